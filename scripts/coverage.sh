#!/usr/bin/env bash
# Line and branch coverage of the product and the suite libraries under their tests.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/coverage.sh [CTEST ARGUMENT...]

Builds tests/unit and tests/integration with the mingw-coverage preset, runs them, and prints line and branch
coverage of libraries/, systemenvironment/, agreement/ and suite/. Installs gcovr when it is missing. The HTML
report goes to build/mingw-coverage/coverage/index.html.

Fails when a test does, when a line of libraries/, systemenvironment/ or agreement/ was not run that
tests/uncovered.txt does not list with a reason, when a listed line was run or is gone, and when the
report leaves out a source.
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac
readonly BUILD=build/mingw-coverage
readonly ROOMS=(tests/unit tests/integration)

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

if ! command -v gcovr >/dev/null; then
    as_root apt-get update -qq
    as_root apt-get install -y -qq --no-install-recommends gcovr >/dev/null
fi
scripts/build.sh mingw-coverage "${ROOMS[@]/%//all}"
find "$BUILD" -name '*.gcda' -delete
passed=yes
for room in "${ROOMS[@]}"; do
    ctest --test-dir "$BUILD/$room" --output-on-failure --parallel 2 --repeat until-pass:2 "$@" || passed=no
done

report=(gcovr --root . --object-directory "$BUILD" --gcov-executable x86_64-w64-mingw32-gcov-posix
    --filter libraries/ --filter systemenvironment/ --filter agreement/ --filter suite/
    --exclude-throw-branches --exclude-unreachable-branches
    "$BUILD/libraries" "$BUILD/suite") # elsewhere it would follow a Wine prefix's drive out of the repository
mkdir -p "$BUILD/coverage"
"${report[@]}" --html-details "$BUILD/coverage/index.html" --json "$BUILD/coverage/lines.json"
"${report[@]}"
"${report[@]}" --branches
scripts/uncovered.py "$BUILD/coverage/lines.json"
if [ "$passed" = no ]; then
    echo "== some tests failed; the figures above are of this run all the same" >&2
    exit 1
fi
