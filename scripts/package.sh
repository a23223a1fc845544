#!/usr/bin/env bash
# Makes the two zips that are handed out.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/package.sh [--help]

Builds the mingw-package preset (the release with debug symbols), the reference (doxygen) and, in build/mingw-package/zip,
two zips: programs, DLLs, headers, documents, licences and bill of materials; and the debug symbols.
HELP
}
case "${1:-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
esac

scripts/lint.sh docs
scripts/build.sh mingw-package
(cd build/mingw-package && cpack)
ls -l build/mingw-package/zip/*.zip
