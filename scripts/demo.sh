#!/usr/bin/env bash
# Builds host and worker, records five seconds of a moving screen and takes one picture out of the recording.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/demo.sh [--help]

Prepares the machine and builds host and worker (mingw-release), starts a virtual display with a moving colour pattern,
records 5 s of it with kxrecord.exe (through ScreenRecordProxy.dll, which starts the worker KXVCR.exe) and takes
one picture out of the recording. The last line names both files, build/demo/screen.mp4 and build/demo/frame.png.

Needs no network once the dependencies are built; can be run again.
HELP
}
case "${1:-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
esac

readonly BIN=build/mingw-release/bin DEMO=build/demo SECONDS_TO_RECORD=5 START_LIMIT_S=60
export KX_WINEPREFIX="$PWD/$DEMO/prefix"
xvfb_pid=

say() { printf '== %s\n' "$*"; }

clean_up() {
    if [ -d "$KX_WINEPREFIX" ]; then
        local server
        server="$(scripts/wine-run.sh --wineserver)"
        WINEPREFIX="$KX_WINEPREFIX" "$server" -k || true
        WINEPREFIX="$KX_WINEPREFIX" "$server" -w || true
        rm -rf "$KX_WINEPREFIX"
    fi
    if [ -n "$xvfb_pid" ]; then
        kill "$xvfb_pid" 2>/dev/null || true
        wait "$xvfb_pid" 2>/dev/null || true
    fi
}

start_display() {
    local answer number
    exec {answer}< <(exec Xvfb -displayfd 1 -screen 0 1280x720x24 -nolisten tcp 2>/dev/null)
    xvfb_pid=$!
    read -r -t "$START_LIMIT_S" number <&"$answer" || { echo "Xvfb found no free display" >&2; exit 1; }
    export DISPLAY=":$number"
}

# The pattern says when it is on the screen, and ends when its standard input, held by this shell, is closed.
start_pattern() {
    coproc PATTERN { exec scripts/wine-run.sh "$BIN/pattern.exe"; }
    read -r -t "$START_LIMIT_S" _ <&"${PATTERN[0]}" || { echo "the pattern did not appear" >&2; exit 1; }
}

scripts/bootstrap.sh
say "building the host, the libraries and the worker"
cmake --preset mingw-release -Wno-dev >build/configure-demo.log || { cat build/configure-demo.log >&2; exit 1; }
cmake --build --preset mingw-release --target kxrecord KXVCR pattern

rm -rf "$DEMO"
mkdir -p "$DEMO"
trap clean_up EXIT
say "starting a virtual display with a moving pattern"
start_display
start_pattern

say "entering the worker into the integrity manifest"
scripts/wine-run.sh "$BIN/kxrecord.exe" manifest KXVCR.exe

say "recording $SECONDS_TO_RECORD s"
scripts/wine-run.sh "$BIN/kxrecord.exe" record "$DEMO/screen.mp4" --seconds "$SECONDS_TO_RECORD"
ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames:format=duration,size \
    -of default=noprint_wrappers=1 "$DEMO/screen.mp4"
ffmpeg -v error -y -ss 2 -i "$DEMO/screen.mp4" -frames:v 1 "$DEMO/frame.png"

echo "The recording is $DEMO/screen.mp4, which any browser opens; a picture out of it is $DEMO/frame.png."
