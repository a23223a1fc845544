#!/usr/bin/env bash
# Runs the benchmark programs, which print one table: each operation beside the least that it could cost.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/bench.sh [BENCHMARK ARGUMENT...]
       scripts/bench.sh --write [BENCHMARK ARGUMENT...]
       scripts/bench.sh --growth [BENCHMARK ARGUMENT...]
       scripts/bench.sh --ffmpeg [ARGUMENT...]

Builds the release preset and runs every benchmark program under Wine, on a display of its own. Each
operation and its floor run by turns in the same process; the table has the median of the pairs' ratios
with its quartiles, and the medians of both times. Arguments go to each program:
  --pairs N     so many pairs, 20 at least (31); a row that has taken 20 seconds ends with 20
  --only TEXT   only operations whose name contains the text

  --write    puts the whole table into docs/performance.md as well, in place of the one that is there
  --growth   measures how the times grow with sizes instead, and draws the plots in docs/performance/
  --ffmpeg   compares the worker with ffmpeg on the same display instead (--ffmpeg --help)
HELP
}

readonly BUILD=build/mingw-release
readonly PAGE=docs/performance.md
readonly PROGRAMS=(
    benchmark/query_benchmark bin/proxy_benchmark benchmark/integrity_benchmark
    bin/replay_benchmark bin/live_benchmark bin/picture_benchmark bin/load_benchmark
)

run_programs() {
    local program
    for program in "${PROGRAMS[@]}"; do
        xvfb-run -a -s "-screen 0 5120x2880x24" scripts/wine-run.sh "$BUILD/$program.exe" "$@"
    done
}

load() {
    cut -d ' ' -f 1 /proc/loadavg
}

# As it stands in the page.
print_table() {
    local before
    before="$(load)"
    echo "| operation | floor | ratio | quartiles | goal | met | operation takes | floor takes |"
    echo "| --- | --- | --- | --- | --- | --- | --- | --- |"
    run_programs "$@"
    echo
    echo "Load average of the machine: $before before the run, $(load) after it, on $(nproc) processors."
}

write_table() {
    local table="$BUILD/table.md"
    print_table "$@" | tee "$table"
    sed -i -e '/^<!-- the table /,/^<!-- end of the table /{//!d}' -e "/^<!-- the table /r $table" "$PAGE"
}

draw_growth() {
    local points="$BUILD/growth.tsv"
    run_programs --growth "$@" | tee "$points"
    python3 -B benchmarks/plot.py "$points" docs/performance
}

case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac
case "${1:-}" in
    --ffmpeg) shift; scripts/build.sh mingw-release; exec python3 -B benchmarks/compare_ffmpeg.py "$@" ;;
esac
scripts/build.sh mingw-release benchmarks
case "${1:-}" in
    --write) shift; write_table "$@" ;;
    --growth) shift; draw_growth "$@" ;;
    *) print_table "$@" ;;
esac
