#!/usr/bin/env python3
"""Holds tests/faultmatrix.txt against the libraries as they are built.

Each import of each library has a line; each line speaks for an import; each test that a line names exists, and one
that is said to swap an import names that import in its file or in a header that it includes.
"""

import argparse
import collections
import fnmatch
import pathlib
import re
import subprocess
import sys

TESTS = pathlib.Path(__file__).resolve().parent
MATRIX = TESTS / "faultmatrix.txt"
MODULES = ("ScreenRecordProxy", "Util", "IPCMessage", "LogTool")
KINDS = ("patched", "provoked", "reason")

Line = collections.namedtuple("Line", "number module library function kind text")
Import = collections.namedtuple("Import", "module library function")


def lines_of_matrix():
    for number, text in enumerate(MATRIX.read_text(encoding="utf-8").splitlines(), 1):
        if text and not text.startswith("#"):
            parts = text.split(None, 4)
            if len(parts) != 5 or parts[3] not in KINDS:
                raise ValueError(f"{MATRIX.name}:{number}: module, library, function, kind and text are needed")
            yield Line(number, *parts)


def imports_of(objdump, library):
    """What a library imports, as the objdump program lists it."""
    listing = subprocess.run([objdump, "-p", library], check=True, capture_output=True, text=True).stdout
    source = None
    for line in listing.splitlines():
        if found := re.match(r"\s*DLL Name: (\S+)\.dll$", line, re.IGNORECASE):
            source = found[1]
        elif found := re.match(r"\t[0-9a-f]+\t\s*\d+\s+(\S+)$", line):
            yield Import(library.stem, source, found[1])


def tests_by_name():
    """Suite.Test -> the file that has it."""
    return {f"{suite}.{name}": path
            for path in TESTS.rglob("*.cpp")
            for suite, name in re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)",
                                          path.read_text(encoding="utf-8"), re.MULTILINE)}


def text_with_headers(path, seen=None):
    """A test's source and the test headers that it includes."""
    seen = set() if seen is None else seen
    seen.add(path)
    text = path.read_text(encoding="utf-8")
    for name in re.findall(r'^#include "([^"]+)"', text, re.MULTILINE):
        for header in (path.parent / name, TESTS / name):
            if header.is_file() and header not in seen:
                text += text_with_headers(header, seen)
    return text


def names_import(text, function):
    """Whether the source has the name as a text, in one piece or in several."""
    return f'"{function}"' in re.sub(r'"\s*\n\s*"', "", text)


def speaks_for(line, imported):
    return (fnmatch.fnmatchcase(imported.module, line.module) and line.library == imported.library
            and fnmatch.fnmatchcase(imported.function, line.function))


def faults(lines, imports, tests):
    spoken_for = collections.defaultdict(list)
    for imported in imports:
        line = next((line for line in lines if speaks_for(line, imported)), None)
        if line is None:
            yield f"{imported.module}.dll imports {imported.function} of {imported.library}.dll, which has no line"
        spoken_for[line].append(imported)
    for line in lines:
        where = f"{MATRIX.name}:{line.number}"
        if not spoken_for[line]:
            yield f"{where}: nothing is imported that this line speaks for"
        if line.kind not in ("patched", "provoked"):
            continue
        if line.text not in tests:
            yield f"{where}: there is no test {line.text}"
        elif line.kind == "patched":
            text = text_with_headers(tests[line.text])
            yield from (f"{where}: {line.text} does not swap {imported.function}" for imported in spoken_for[line]
                        if not names_import(text, imported.function))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--objdump", required=True, help="the tool chain's program that lists imports")
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="folder with the built libraries")
    arguments = parser.parse_args()
    lines = list(lines_of_matrix())
    imports = [imported for module in MODULES
               for imported in imports_of(arguments.objdump, arguments.bin / f"{module}.dll")]
    found = list(faults(lines, imports, tests_by_name()))
    for fault in found:
        print(fault)
    kinds = collections.Counter(next((line.kind for line in lines if speaks_for(line, imported)), "without a line")
                                for imported in imports)
    print(f"{len(imports)} imports: " + ", ".join(f"{count} {kind}" for kind, count in kinds.most_common()))
    print(f"{len(found)} faults")
    return bool(found or not imports)


if __name__ == "__main__":
    sys.exit(main())
