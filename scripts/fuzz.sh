#!/usr/bin/env bash
# Builds all fuzz targets natively and runs each of them.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/fuzz.sh SECONDS [TARGET...]

Builds the fuzz targets of fuzz/ with clang, libFuzzer and the address and undefined-behaviour sanitizers
into build/fuzz, and runs each of them, or the named ones (xml, parameters, ...), for SECONDS. A target
begins with its corpus in fuzz/corpus and keeps what it finds besides in build/fuzz. Fails when an input
does; the input is left in build/fuzz and repeated by giving its file to the target.

Needs clang++ with its run-time libraries (CXX names another one), and the sources in build/deps
(scripts/bootstrap.sh).
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    "" | *[!0-9]*) usage >&2; exit 2 ;;
esac
readonly SECONDS_EACH="$1"
shift

readonly TINYXML=(build/deps/src/tinyxml2-*)
# The commas are the compiler's.
# shellcheck disable=SC2054
readonly COMPILE=("${CXX:-clang++}" -std=c++20 -O1 -g -Wall -Wextra -Werror -Wno-attributes
    "-fsanitize=fuzzer,address,undefined" -fno-sanitize-recover=all -ffunction-sections -fdata-sections
    -fuse-ld=lld -Wl,--gc-sections
    '-D__declspec(attribute)=' -DKXSCREENRECORD_BUILD -DKXUTIL_BUILD -Ifuzz/native -I. -Iinclude "-I${TINYXML[0]}")

# Each target's own sources; functions of theirs that no target reaches are left out by the linker.
sources() {
    case "$1" in
        frame) echo suite/ipcmessage/frame.cpp ;;
        smbios) echo suite/util/smbiostable.cpp ;;
        xml)
            echo fuzz/native/windows.cpp systemenvironment/{integritymanifest,devicefuncswitch,registrytextlocale}.cpp \
                suite/util/{xml,productprofile,productadapt,text}.cpp "${TINYXML[0]}/tinyxml2.cpp"
            ;;
        oemtext)
            echo fuzz/native/windows.cpp systemenvironment/{registrytextlocale,firmwareidentity}.cpp suite/util/text.cpp
            ;;
        parameters) echo fuzz/native/windows.cpp worker/{parameters,capture/screenlayout}.cpp ;;
    esac
}

targets=("$@")
[ $# -gt 0 ] || targets=(frame smbios xml oemtext parameters)
mkdir -p build/fuzz
for target in "${targets[@]}"; do
    echo "== building $target"
    read -ra files <<<"$(sources "$target")"
    "${COMPILE[@]}" "fuzz/${target}_fuzz.cpp" "${files[@]}" -o "build/fuzz/${target}_fuzz"
done
for target in "${targets[@]}"; do
    echo "== running $target for $SECONDS_EACH s"
    mkdir -p "build/fuzz/$target"
    "build/fuzz/${target}_fuzz" -max_total_time="$SECONDS_EACH" -max_len=4096 -print_final_stats=1 -verbosity=0 \
        -artifact_prefix="build/fuzz/" "build/fuzz/$target" "fuzz/corpus/$target"
done
