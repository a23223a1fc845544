#!/usr/bin/env bash
# Configures and builds one preset.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/build.sh [PRESET [TARGET...]]

Builds PRESET (default mingw-release; cmake --list-presets names them all) into build/PRESET, with the
programs and DLLs in build/PRESET/bin; all of it, or some of its targets. Prepares the machine first
(scripts/bootstrap.sh).
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    -*) usage >&2; exit 2 ;;
esac
readonly PRESET="${1:-mingw-release}"
readonly TARGETS=("${@:2}")

scripts/bootstrap.sh
echo "== building $PRESET"
cmake --preset "$PRESET" -Wno-dev >"build/configure-$PRESET.log" || { cat "build/configure-$PRESET.log" >&2; exit 1; }
cmake --build --preset "$PRESET" --target "${TARGETS[@]:-all}"
