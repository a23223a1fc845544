#!/usr/bin/env bash
# Everything that a machine can say about the sources; any finding is an error.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/lint.sh [CHECK...]
       scripts/lint.sh tidy --all | --changed BASE

Checks; without arguments all of them.
  arrows   every include follows an arrow between rooms that scripts/arrows.py allows; every file says what it is; no
           using directive stands at file scope
  includes every header, and every source but the tests', includes the header of the C++ library for each of the
           library's names that it uses (scripts/includes.py --fix adds it)
  format   every source file is as .clang-format would write it
  headers  every header compiles alone
  clang    worker and host compile with clang for the target, too
  tidy     product and suite libraries compile with clang, and clang-tidy finds nothing in them; with --all in everything
           that is built, with --changed BASE in every source that the changes since commit BASE affect
  docs     the public headers document everything (doxygen)
  shell    shellcheck finds nothing in the scripts
  python   flake8 finds nothing in the Python scripts and tests
  script   eslint finds nothing in the live page's script
Installs the tools that are missing (scripts/bootstrap.sh --lint). headers, clang and tidy build first.
HELP
}

readonly PRODUCT=(common libraries systemenvironment agreement suite)
readonly PROGRAMS=(worker host)
readonly BUILT=("${PRODUCT[@]}" "${PROGRAMS[@]}" tests benchmarks)

# The build makes the compile commands and the generated sources that the analysers read.
built=no
build() {
    [ "$built" = yes ] || scripts/build.sh mingw-release
    built=yes
}

check_arrows() {
    scripts/arrows.py
}

check_includes() {
    scripts/includes.py
}

check_format() {
    git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format-16 --dry-run -Werror
}

check_headers() {
    build
    scripts/analyse.py headers include "${BUILT[@]}"
}

check_clang() {
    build
    scripts/analyse.py clang "${PROGRAMS[@]}"
}

check_tidy() {
    build
    case "${1:-}" in
        '') scripts/analyse.py tidy "${PRODUCT[@]}" ;;
        --all) scripts/analyse.py tidy "${BUILT[@]}" ;;
        --changed) scripts/analyse.py tidy "${BUILT[@]}" --changed "${2:?tidy --changed needs a commit}" ;;
        *) usage >&2; exit 2 ;;
    esac
}

check_docs() {
    mkdir -p build/doxygen
    doxygen docs/Doxyfile
}

check_shell() {
    git ls-files -z '*.sh' .ci/run | xargs -0 shellcheck
}

check_python() {
    git ls-files -z '*.py' | xargs -0 flake8 --max-line-length 120
}

check_script() {
    # A Node that is not the distribution's does not look where the distribution keeps its modules.
    git ls-files -z 'worker/live/page/*.js' |
        NODE_PATH=/usr/share/nodejs:/usr/lib/nodejs xargs -0 -r eslint --format unix --max-warnings 0
}

run() {
    local check="$1"
    shift
    echo "== $check"
    "check_$check" "$@"
}

case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac
scripts/bootstrap.sh --lint
case "${1:-}" in
    tidy) run "$@"; exit ;;
    '') set -- arrows includes format docs shell python script headers clang tidy ;;
esac
for check in "$@"; do
    case "$check" in
        arrows | includes | format | headers | clang | tidy | docs | shell | python | script) run "$check" ;;
        *) usage >&2; exit 2 ;;
    esac
done
