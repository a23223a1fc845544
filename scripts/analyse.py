#!/usr/bin/env python3
"""Runs a compiler or analyser over what build/mingw-release compiles, with the flags that it is compiled with.

clang    every source of the rooms compiles with clang for the target, warnings are errors
headers  every header of the rooms compiles alone, with clang for the target. A header that its own source includes
         before anything else is left out, because the build has shown it
tidy     clang-tidy finds nothing in the sources of the rooms
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "mingw-release"
GCC = "x86_64-w64-mingw32-g++-posix"
TARGET = "--target=x86_64-w64-windows-gnu"


def output_of(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def clang_arguments():
    """Clang reads the C++ headers of the cross compiler."""
    folder = output_of(GCC, "-print-file-name=include").strip()
    return [TARGET, "-Wno-unknown-warning-option", "-Wreserved-identifier", "-Wreserved-macro-identifier",
            f"-isystem{folder}/c++", f"-isystem{folder}/c++/x86_64-w64-mingw32"]


def compiled_sources():
    """Source relative to the repository -> its compiler arguments, without compiler, source and outputs."""
    sources = {}
    for entry in json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8")):
        source = pathlib.Path(entry["file"]).resolve()
        if not source.is_relative_to(ROOT) or source.is_relative_to(BUILD) or source.suffix != ".cpp":
            continue
        arguments = shlex.split(entry["command"])
        while not arguments[0].startswith("-"):  # a launcher, the compiler
            del arguments[0]
        kept = []
        skip = False
        for argument in arguments:
            if skip or argument in ("-c", "-MD", entry["file"]):
                skip = False
            elif argument in ("-o", "-MT", "-MF"):
                skip = True
            else:
                kept.append(argument)
        sources[source.relative_to(ROOT).as_posix()] = kept
    return sources


def is_in(path, rooms):
    return any(path.startswith(room + "/") for room in rooms)


def tracked(pattern):
    return output_of("git", "ls-files", "--cached", "--others", "--exclude-standard", pattern, cwd=ROOT).splitlines()


def affected_since(base):
    """Sources whose last build read a file that differs from a commit, by the build's own list of dependencies."""
    merge_base = output_of("git", "merge-base", base, "HEAD", cwd=ROOT).strip()
    changed = set(output_of("git", "diff", "--name-only", merge_base, cwd=ROOT).splitlines())
    affected = set()
    inputs = []
    for line in output_of("ninja", "-C", str(BUILD), "-t", "deps").splitlines() + [""]:
        if line.startswith("    "):
            path = (BUILD / line.strip()).resolve()
            if path.is_relative_to(ROOT):
                inputs.append(path.relative_to(ROOT).as_posix())
            continue
        if changed.intersection(inputs):
            affected.update(path for path in inputs if path.endswith(".cpp"))
        inputs = []
    return affected


def clang_commands(options):
    extra = ["-fsyntax-only", *clang_arguments()]
    for source, arguments in sorted(compiled_sources().items()):
        if is_in(source, options.room):
            yield source, ["clang++-16", *arguments, *extra, str(ROOT / source)]


def is_first_in_its_source(header):
    source = (ROOT / header).with_suffix(".cpp")
    if not source.is_file():
        return False
    first = re.search(r'^\s*#\s*include\s*[<"]([^">]+)[">]', source.read_text(encoding="utf-8"), re.MULTILINE)
    return first is not None and pathlib.PurePosixPath(first[1]).name == source.with_suffix(".h").name


def headers_commands(options):
    sources = compiled_sources()
    extra = ["-fsyntax-only", *clang_arguments()]
    for header in tracked("*.h"):
        if not is_in(header, options.room) or is_first_in_its_source(header):
            continue
        # The flags of the source that lies nearest: most folders in common, then the first by name.
        nearest = max(sorted(sources), key=lambda source: len(os.path.commonprefix([source, header])))
        yield header, ["clang++-16", *sources[nearest], *extra, "-include", str(ROOT / header), "-x", "c++", os.devnull]


def tidy_commands(options):
    chosen = affected_since(options.changed) if options.changed else None
    extra = ["--extra-arg=" + argument for argument in clang_arguments()]
    for source in sorted(compiled_sources()):
        if is_in(source, options.room) and (chosen is None or source in chosen):
            yield source, ["clang-tidy-16", "--quiet", "-p", str(BUILD), *extra, str(ROOT / source)]


def run(job):
    name, command = job
    done = subprocess.run(command, cwd=BUILD, capture_output=True, text=True)
    return name, done.returncode, done.stdout + (done.stderr if done.returncode else "")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("check", choices=["clang", "headers", "tidy"])
    parser.add_argument("room", nargs="+", help="folder whose files are checked, and all below it")
    parser.add_argument("--changed", metavar="BASE", help="tidy: only sources that a change since commit BASE affects")
    options = parser.parse_args()
    jobs = list(globals()[options.check + "_commands"](options))
    failures = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for name, code, text in pool.map(run, jobs):
            if code != 0:
                failures += 1
                print(f"{name}:\n{text}", file=sys.stderr)
    print(f"{len(jobs)} files, {failures} with findings")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
