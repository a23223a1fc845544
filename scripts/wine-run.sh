#!/usr/bin/env bash
# Runs one Windows program under Wine in a fresh, throw-away prefix, and removes the prefix afterwards.
set -euo pipefail

usage() {
    cat <<'HELP'
usage: scripts/wine-run.sh PROGRAM [ARGUMENT...]
       scripts/wine-run.sh --wine | --wineserver | --help

Runs a Windows program under Wine in a prefix of its own, copied from the template that
scripts/bootstrap.sh makes: a clean registry and an empty drive each time. CMake uses it as the
emulator of the cross presets, so that ctest runs Windows programs by itself.

  KX_WINEPREFIX   run in this prefix instead and keep it (made from the template when it is missing)
  --wine          print the Wine loader's path
  --wineserver    print the Wine server's path
HELP
}

find_tool() {
    local candidate
    for candidate in "$@"; do
        if [ -x "$candidate" ]; then printf '%s\n' "$candidate"; return; fi
    done
    echo "wine64 is not installed; run scripts/bootstrap.sh" >&2
    exit 1
}
wine_path() { find_tool /usr/lib/wine/wine64 /usr/bin/wine64; }
wineserver_path() { find_tool /usr/lib/wine/wineserver64 /usr/lib/wine/wineserver /usr/bin/wineserver; }

case "${1:-}" in
    "") usage >&2; exit 2 ;;
    -h | --help) usage; exit 0 ;;
    --wine) wine_path; exit 0 ;;
    --wineserver) wineserver_path; exit 0 ;;
esac

ROOT="$(cd "$(dirname "$0")/.." && pwd)"
readonly ROOT
readonly TEMPLATE="$ROOT/build/deps/wineprefix"

# The system folder is read only to the programs under test and shared with the template; the registry,
# the user's folders and the rest of drive C: are the prefix's own.
make_prefix() {
    local prefix="$1"
    mkdir -p "$prefix/dosdevices" "$prefix/drive_c"
    cp "$TEMPLATE"/*.reg "$TEMPLATE/.update-timestamp" "$prefix/"
    ln -s ../drive_c "$prefix/dosdevices/c:"
    ln -s / "$prefix/dosdevices/z:"
    ln -s "$TEMPLATE/drive_c/windows" "$prefix/drive_c/windows"
    cp -r "$TEMPLATE/drive_c/users" "$TEMPLATE/drive_c/ProgramData" "$prefix/drive_c/"
}

export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
if [ -n "${KX_WINEPREFIX:-}" ]; then
    [ -d "$KX_WINEPREFIX/dosdevices" ] || make_prefix "$KX_WINEPREFIX"
    WINEPREFIX="$KX_WINEPREFIX" exec "$(wine_path)" "$@"
fi

mkdir -p "$ROOT/build/prefixes"
WINEPREFIX="$(mktemp -d "$ROOT/build/prefixes/run.XXXXXX")"
export WINEPREFIX
clean_up() {
    "$(wineserver_path)" -k 2>/dev/null || true
    "$(wineserver_path)" -w 2>/dev/null || true
    rm -rf "$WINEPREFIX"
}
trap clean_up EXIT
make_prefix "$WINEPREFIX"
"$(wine_path)" "$@"
