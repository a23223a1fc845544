#!/usr/bin/env python3
"""Runs a compiler or analyser over what build/mingw-release compiles, with the flags that it is compiled with.

clang    every source of the rooms compiles with clang for the target, warnings are errors
headers  every header of the rooms compiles alone, with clang for the target. A header that its own source includes
         before anything else is left out, because the build has shown it
tidy     clang-tidy finds nothing in the sources of the rooms, nor in the headers that belong to no source

Most of the time goes into the headers of Windows and of C++: clang and tidy take sources with the same flags as one
text, which reads them once.
"""
import argparse
import bisect
import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "mingw-release"
GCC = "x86_64-w64-mingw32-g++-posix"
TARGET = "--target=x86_64-w64-windows-gnu"
JOINED_SOURCES = 12  # more in one text leave a core idle


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
            if skip or argument in ("-c", "-MD", "-Winvalid-pch", entry["file"]):
                skip = False
            elif argument in ("-o", "-MT", "-MF", "-include"):  # what is included is the build's precompiled header
                skip = True
            else:
                kept.append(argument)
        # The first target that compiles a source is its own; those after it are tests.
        sources.setdefault(source.relative_to(ROOT).as_posix(), kept)
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


def is_first_in_its_source(header):
    source = (ROOT / header).with_suffix(".cpp")
    if not source.is_file():
        return False
    first = re.search(r'^\s*#\s*include\s*[<"]([^">]+)[">]', source.read_text(encoding="utf-8"), re.MULTILINE)
    return first is not None and pathlib.PurePosixPath(first[1]).name == source.with_suffix(".h").name


def headers_without_source(rooms):
    return [header for header in tracked("*.h") if is_in(header, rooms) and not is_first_in_its_source(header)]


def nearest_source(sources, header):
    """The source whose flags a header gets: most folders in common, then the first by name."""
    return max(sorted(sources), key=lambda source: len(os.path.commonprefix([source, header])))


def headers_commands(options):
    sources = compiled_sources()
    extra = ["-fsyntax-only", *clang_arguments()]
    for header in headers_without_source(options.room):
        yield header, ["clang++-16", *sources[nearest_source(sources, header)], *extra, "-include", str(ROOT / header),
                       "-x", "c++", os.devnull]


def run(job):
    name, command = job
    done = subprocess.run(command, cwd=BUILD, capture_output=True, text=True)
    return name, done.returncode, done.stdout + (done.stderr if done.returncode else "")


def joined_jobs(options):
    """Files that are read as one text, with their compiler arguments; the longest text first."""
    sources = compiled_sources()
    chosen = affected_since(options.changed) if options.changed else None
    groups = collections.defaultdict(list)
    for source, arguments in sorted(sources.items()):
        if is_in(source, options.room) and (chosen is None or source in chosen):
            groups[tuple(arguments)].append(source)
    if options.check == "tidy" and chosen is None:
        for header in headers_without_source(options.room):
            groups[tuple(sources[nearest_source(sources, header)])].append(header)
    jobs = []
    for arguments, files in groups.items():
        count = -(-len(files) // JOINED_SOURCES)
        jobs += [(files[part::count], arguments) for part in range(count)]
    return sorted(jobs, key=lambda job: -len(job[0]))


def join_files(files, text):
    """Writes the files one after the other to a text; the lines that they begin behind."""
    begins = []
    lines = []
    for file in files:
        begins.append(len(lines))
        if file.endswith(".h"):
            lines.append(f'#include "{ROOT / file}"')
        else:
            lines += (ROOT / file).read_text(encoding="utf-8").splitlines()
    text.write_text("\n".join(lines) + "\n", encoding="utf-8")
    return begins


# How the files of one text are read, and what a line of the answer says of something that does not compile.
READERS = {
    "clang": (lambda text, arguments: ["clang++-16", *arguments, "-fsyntax-only", text],
              r"^(.+?):\d+:\d+: error: "),
    "tidy": (lambda text, arguments: ["clang-tidy-16", "--quiet", f"--config-file={ROOT / '.clang-tidy'}", text, "--",
                                      *arguments],
             r"^(.+?):\d+:\d+: error: .*\[clang-diagnostic-error"),
}


def read_as_one(check, job):
    """What an analyser says of files that are read as one text, and whether it found nothing."""
    command, refusal = READERS[check]
    files, arguments = job
    folders = sorted({f"-iquote{(ROOT / file).parent}" for file in files})
    with tempfile.TemporaryDirectory() as folder:
        text = pathlib.Path(folder) / "joined.cpp"
        begins = join_files(files, text)
        done = subprocess.run(command(str(text), [*arguments, *folders, *clang_arguments(), "-ferror-limit=0"]),
                              cwd=BUILD, capture_output=True, text=True)

    def place(match):
        file = bisect.bisect_left(begins, int(match[1])) - 1
        return f"{ROOT / files[file]}:{int(match[1]) - begins[file]}:"

    said = re.sub(re.escape(str(text)) + r":(\d+):", place, done.stdout if check == "tidy" else done.stderr)
    refused = set(re.findall(refusal, said, re.MULTILINE))
    apart = [file for file in files if str(ROOT / file) in refused]
    if not apart or len(files) == 1:
        return done.returncode == 0, said + (done.stderr if done.returncode and not said else "")
    # A name that two of the files use for things of their own: those that the compiler stumbles over are read apart.
    others = [file for file in files if file not in apart]
    if not others:
        others = apart[:1]
        del apart[0]
    parts = [read_as_one(check, (part, arguments)) for part in (others, apart)]
    return all(is_clean for is_clean, _ in parts), "".join(part for _, part in parts)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("check", choices=["clang", "headers", "tidy"])
    parser.add_argument("room", nargs="+", help="folder whose files are checked, and all below it")
    parser.add_argument("--changed", metavar="BASE", help="tidy: only sources that a change since commit BASE affects")
    options = parser.parse_args()
    failures = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        if options.check in READERS:
            jobs = joined_jobs(options)
            for is_clean, text in pool.map(functools.partial(read_as_one, options.check), jobs):
                if not is_clean:
                    failures += 1
                    print(text, file=sys.stderr)
            print(f"{sum(len(files) for files, _ in jobs)} files in {len(jobs)} texts, {failures} with findings")
        else:
            jobs = list(headers_commands(options))
            for name, code, text in pool.map(run, jobs):
                if code != 0:
                    failures += 1
                    print(f"{name}:\n{text}", file=sys.stderr)
            print(f"{len(jobs)} files, {failures} with findings")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
