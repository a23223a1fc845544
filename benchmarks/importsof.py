#!/usr/bin/env python3
"""Writes linker options that make a library import what another one does."""
import argparse
import pathlib
import re
import subprocess


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--objdump", required=True)
    parser.add_argument("library")
    parser.add_argument("output", type=pathlib.Path)
    arguments = parser.parse_args()
    listing = subprocess.run([arguments.objdump, "-p", arguments.library], check=True, capture_output=True, text=True)
    tables = listing.stdout.split("The Import Tables")[1].split("The Export Tables")[0]
    names = re.findall(r"^\t[0-9a-f]+\t *[0-9a-f]+  (\S+)$", tables, re.MULTILINE)
    if not names:
        raise SystemExit(f"no imports found in {arguments.library}")
    arguments.output.write_text("".join(f"-Wl,--undefined=__imp_{name}\n" for name in names), encoding="ascii")


if __name__ == "__main__":
    main()
