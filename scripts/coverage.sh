#!/usr/bin/env bash
# Line and branch coverage of the product and the suite libraries under the tests.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/coverage.sh [CTEST ARGUMENT...]

Builds the mingw-coverage preset, runs its tests and prints line and branch coverage of libraries/,
systemenvironment/, agreement/ and suite/. Installs gcovr when it is missing. The HTML report goes to
build/mingw-coverage/coverage/index.html.
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

if ! command -v gcovr >/dev/null; then
    as_root apt-get update -qq
    as_root apt-get install -y -qq --no-install-recommends gcovr >/dev/null
fi
scripts/build.sh mingw-coverage
find build/mingw-coverage -name '*.gcda' -delete
ctest --preset mingw-coverage --parallel 2 "$@" || echo "== some tests failed; the figures below are of this run all the same"
mkdir -p build/mingw-coverage/coverage
report=(gcovr --root . --object-directory build/mingw-coverage --gcov-executable x86_64-w64-mingw32-gcov-posix
    --filter libraries/ --filter systemenvironment/ --filter agreement/ --filter suite/
    --exclude-throw-branches --exclude-unreachable-branches)
"${report[@]}" --html-details build/mingw-coverage/coverage/index.html
"${report[@]}"
"${report[@]}" --branches
