#!/usr/bin/env bash
# Makes the two zips that are handed out.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/package.sh [--help]

Builds the mingw-package preset (the release with debug symbols), the reference (doxygen) and, in build/mingw-package/zip,
two zips: programs, DLLs, headers, documents, licences and bill of materials; and the debug symbols. Lists what is in
them, tests them, and records with the programs of the first one.
HELP
}
case "${1:-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
esac

readonly ZIPS=build/mingw-package/zip

scripts/lint.sh docs
scripts/build.sh mingw-package
rm -rf "$ZIPS"
(cd build/mingw-package && cpack)

for zip in "$ZIPS"/*.zip; do
    python3 -m zipfile --list "$zip"
done
python3 -m zipfile --list "$ZIPS"/*-win64.zip | grep -c '/docs/reference/index.html' >/dev/null ||
    { echo "the reference is missing" >&2; exit 1; }
python3 -B tests/package/zip_test.py --zips "$ZIPS" --work build/mingw-package/zip-test
ls -l "$ZIPS"
