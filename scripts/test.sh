#!/usr/bin/env bash
# Installs what is missing, builds and passes every test.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/test.sh [--preset PRESET] [CTEST ARGUMENT...]

Prepares the machine, builds PRESET (default mingw-release) and runs its tests under Wine, each program in a
fresh prefix; one that fails is run a second time. Further arguments go to ctest, for example: scripts/test.sh -R integrity
HELP
}
preset=mingw-release
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    --preset) preset="$2"; shift 2 ;;
esac

scripts/build.sh "$preset"
echo "== testing $preset"
# Three at once on two processors: one of them compiles in what time the others leave.
# Wine now and then loses a process while it starts it; a program that fails is run once more, and fails if it fails
# again. ctest shows which ones.
ctest --preset "$preset" --parallel 3 --repeat until-pass:2 "$@"
