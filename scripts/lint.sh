#!/usr/bin/env bash
# Formatting, static analysis and the documentation build; any finding is an error.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/lint.sh [format|tidy|docs]...

Checks (all three without arguments):
  format  every source file is as .clang-format would write it
  tidy    clang-tidy finds nothing in the product, the suite libraries, the worker and the host
  docs    the public headers document everything (doxygen, warnings are errors)
Installs the tools that are missing.
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac
[ "$#" -gt 0 ] || set -- format tidy docs

missing=()
command -v clang-format-16 >/dev/null || missing+=(clang-format-16)
command -v clang-tidy-16 >/dev/null || missing+=(clang-tidy-16)
command -v doxygen >/dev/null || missing+=(doxygen)
if [ "${#missing[@]}" -gt 0 ]; then
    install=(apt-get install -y -qq --no-install-recommends "${missing[@]}")
    if [ "$(id -u)" -eq 0 ]; then "${install[@]}" >/dev/null; else sudo "${install[@]}" >/dev/null; fi
fi

check_format() {
    git ls-files '*.h' '*.cpp' | xargs clang-format-16 --dry-run -Werror
}

check_tidy() {
    scripts/build.sh mingw-release
    # The analyser reads the cross compiler's own headers.
    local gcc_include
    gcc_include=$(x86_64-w64-mingw32-g++-posix -print-file-name=include)
    git ls-files 'libraries/*.cpp' 'systemenvironment/*.cpp' 'agreement/*.cpp' 'suite/*.cpp' 'worker/*.cpp' 'host/*.cpp' |
        xargs -P 2 -n 4 clang-tidy-16 --quiet -p build/mingw-release \
            --extra-arg=--target=x86_64-w64-windows-gnu \
            --extra-arg=-isystem"$gcc_include/c++" \
            --extra-arg=-isystem"$gcc_include/c++/x86_64-w64-mingw32" \
            --extra-arg=-Wno-unknown-warning-option
}

check_docs() {
    mkdir -p build/doxygen
    doxygen docs/Doxyfile
}

for check in "$@"; do
    echo "== $check"
    case "$check" in
        format) check_format ;;
        tidy) check_tidy ;;
        docs) check_docs ;;
        *) usage >&2; exit 2 ;;
    esac
done
