#!/usr/bin/env bash
# Runs the benchmark programs and the comparison with ffmpeg; each prints its figures beside those it is compared with.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/bench.sh [BENCHMARK ARGUMENT...]

Builds the release preset and runs every benchmark program under Wine. Arguments go to each program, for
example: scripts/bench.sh --benchmark_filter=RoundTrip
Then compares the worker with ffmpeg on the same display, without the arguments
(benchmarks/compare_ffmpeg.py --help).
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac

scripts/build.sh mingw-release
for program in build/mingw-release/bin/*_benchmark.exe; do
    echo "== $(basename "$program")"
    xvfb-run -a -s "-screen 0 1280x720x24" scripts/wine-run.sh "$program" "$@"
done
echo "== compare_ffmpeg.py"
python3 -B benchmarks/compare_ffmpeg.py
