#!/usr/bin/env python3
"""Holds the lines of the product that no test runs against tests/uncovered.txt: they need a reason there.

Lines that follow each other are one piece. A piece is known by its file and its text, so that the list outlives lines
that move; of two pieces of the same text each needs its own reason. A source that the report leaves out is a fault.
"""
import argparse
import collections
import json
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "tests" / "uncovered.txt"
FOLDERS = ("libraries/", "systemenvironment/", "agreement/")
MEASURED = (*FOLDERS, "suite/")

Piece = collections.namedtuple("Piece", "file text")


def listed_pieces():
    """Every piece that the list gives a reason for, with the number of the line that does."""
    for number, line in enumerate(LIST.read_text(encoding="utf-8").splitlines(), 1):
        if line and not line.startswith("#"):
            file, _, rest = line.partition(" | ")
            text, _, reason = rest.rpartition(" | ")
            if not (text and reason):
                raise ValueError(f"{LIST.name}:{number}: file, text of the lines and reason are needed")
            yield number, Piece(file, text)


def pieces_not_run(path, lines):
    """(number of the first line, piece) of each piece of a file that no test runs."""
    text = (ROOT / path).read_text(encoding="utf-8").splitlines()
    piece = []
    for line in [*lines, {"count": 1}]:
        if line["count"] == 0:
            piece.append(line["line_number"])
        elif piece:
            yield piece[0], Piece(path, " ".join(text[number - 1].strip() for number in piece))
            piece = []


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("report", type=pathlib.Path, help="gcovr's report in JSON")
    arguments = parser.parse_args()
    listed = list(listed_pieces())
    unspent = collections.Counter(piece for _, piece in listed)
    files = json.loads(arguments.report.read_text())["files"]
    told = {file["file"] for file in files}
    sources = {path.relative_to(ROOT).as_posix() for folder in MEASURED for path in (ROOT / folder).rglob("*.cpp")}
    count, missed, faults = 0, 0, [f"{source}: the report does not tell of it" for source in sorted(sources - told)]
    for file in files:
        if not file["file"].startswith(FOLDERS):
            continue
        lines = [line for line in file["lines"] if not line.get("gcovr/noncode")]
        count += len(lines)
        missed += sum(line["count"] == 0 for line in lines)
        for number, piece in pieces_not_run(file["file"], lines):
            if unspent[piece]:
                unspent[piece] -= 1
            else:
                faults.append(f"{piece.file}:{number}: no test runs this: {piece.text}")
    for number, piece in listed:
        if unspent[piece]:
            faults.append(f"{LIST.name}:{number}: a test runs this, or it is gone: {piece.file} | {piece.text}")
    print(*faults, f"{count} lines of the product, {missed} of them not run; {len(faults)} faults", sep="\n")
    return bool(faults or count == 0)


if __name__ == "__main__":
    sys.exit(main())
