#!/usr/bin/env bash
# Builds the fuzz targets natively.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: fuzz/build.sh [--help]

Builds the fuzz targets with clang, libFuzzer and the address and undefined-behaviour sanitizers into
build/fuzz. Needs clang++ with its run-time libraries (CXX names another one).
HELP
}
case "${1:-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
esac

readonly COMPILE=("${CXX:-clang++}" -std=c++20 -O1 -g -Wall -Wextra -Werror
    "-fsanitize=fuzzer,address,undefined" -fno-sanitize-recover=all -I.)

mkdir -p build/fuzz
echo "== building frame_fuzz"
"${COMPILE[@]}" fuzz/frame_fuzz.cpp suite/ipcmessage/frame.cpp -o build/fuzz/frame_fuzz
echo "== building smbios_fuzz"
"${COMPILE[@]}" fuzz/smbios_fuzz.cpp suite/util/smbiostable.cpp -o build/fuzz/smbios_fuzz
