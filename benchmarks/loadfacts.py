#!/usr/bin/env python3
"""Prints what the system does when it loads each library: a table of sizes, relocations and static initialisers."""
import argparse
import pathlib
import re
import subprocess
import tempfile

LIBRARIES = ("emptylibrary", "ScreenRecordProxy", "Util", "IPCMessage", "LogTool")
ENDS = 2  # the list of initialisers has a mark at each end


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def stripped_size(tools, library):
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / library.name
        output_of(tools + "strip", "-o", copy, library)
        return copy.stat().st_size


def relocations(tools, library):
    described = output_of(tools + "objdump", "-p", library)
    return len(re.findall(r"^\s*reloc\s+\d+ offset .* DIR64", described, re.MULTILINE))


def initialisers(tools, library):
    places = dict(re.findall(r"^([0-9a-f]+) T (__[CD]TOR_LIST__)$", output_of(tools + "nm", library), re.MULTILINE))
    begin, end = sorted(int(place, 16) for place in places)
    return (end - begin) // 8 - ENDS


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=pathlib.Path, help="of the built libraries")
    parser.add_argument("--tools", default="x86_64-w64-mingw32-", help="what the tools' names begin with")
    arguments = parser.parse_args()
    print("| library | bytes without symbols | base relocations | static initialisers |")
    print("| --- | --- | --- | --- |")
    for name in LIBRARIES:
        library = arguments.folder / f"{name}.dll"
        print(f"| `{library.name}` | {stripped_size(arguments.tools, library):,} "
              f"| {relocations(arguments.tools, library)} | {initialisers(arguments.tools, library)} |")


if __name__ == "__main__":
    main()
