#!/usr/bin/env bash
# Changes one thing at a time in the product's sources and looks whether a test fails.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/mutate.sh [--count N] [--seed S] [--folder FOLDER]... [--again] [--before COMMAND]
       scripts/mutate.sh --report [--count N] [--seed S] [--folder FOLDER]...

Tries mutants of libraries/, systemenvironment/, agreement/ and suite/ipcmessage/: one constant,
comparison, condition, order of two statements, left-out call or text is changed, the library is built
again, and the tests that are about it run until one fails. A mutant that no test notices survives.

Results are kept in build/mutate/results.tsv: a run that is cut goes on where it was, and a larger
--count or another --seed adds to it. Nothing in the repository is changed.

  --count N          how many mutants (default 400; 0: all of them)
  --seed S           which ones (default 1)
  --folder FOLDER    of this folder only; may be repeated
  --again            tries survivors once more, after a test was added
  --before COMMAND   is put before each mutant's build and tests, for example "nice"
  --report           tries nothing and prints the table

Prints each survivor in the form of tests/mutants.txt, where it needs a reason. Fails when fewer than
95 % are killed or when a survivor has no reason there.
HELP
}
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac

export PYTHONDONTWRITEBYTECODE=1
exec python3 scripts/mutate.py "$@"
