#!/usr/bin/env python3
"""Checks which room of the repository includes which: every include must follow an arrow of the table below.

Checks, too, that private members are reached through tests/support/ only, that every file begins with a comment, and
that no using directive stands at file scope.
"""
import argparse
import collections
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# Room: what its files may include besides the room's own files. A room is a folder with all folders below it that are
# no room of their own; a target may be a room, or one header of a room that offers nothing else.
EXPORTED = ["include", "common"]
WORKER_CONTRACTS = EXPORTED + ["worker/packet.h", "worker/settings.h", "worker/ticks.h", "worker/log.h"]
TEST_TOOLS = EXPORTED + ["tests/support", "tests/fakes"]
ARROWS = {
    "include": [],
    "common": [],
    "libraries": EXPORTED,
    "systemenvironment": EXPORTED,
    "agreement": EXPORTED,
    "suite/util": EXPORTED,
    "suite/ipcmessage": EXPORTED,
    "suite/logtool": EXPORTED,
    # The wiring knows all rooms of the worker; of the wiring they know the packet, the settings, the clock and
    # the log.
    "worker": EXPORTED + ["worker/" + room for room in ("capture", "video", "sound", "file", "replay", "live")],
    "worker/capture": WORKER_CONTRACTS + ["worker/video/videoencoder.h"],
    "worker/video": WORKER_CONTRACTS,
    "worker/sound": WORKER_CONTRACTS,
    "worker/file": WORKER_CONTRACTS,
    "worker/replay": WORKER_CONTRACTS,
    "worker/live": WORKER_CONTRACTS + ["worker/file/mp4fragment.h"],
    "host": EXPORTED,
    # Programs of somebody else, who has the installed headers and includes them with angle brackets.
    "examples": ["include"],
    "tests/package": ["include"],
    "tests/support": EXPORTED,
    "tests/fakes": EXPORTED + ["tests/support", "suite/util"],
    "tests/common": TEST_TOOLS,
    "tests/unit": TEST_TOOLS + ["systemenvironment/productseries.h"],
    "tests/integration": TEST_TOOLS + ["suite/util", "suite/ipcmessage"],
    "tests/worker": TEST_TOOLS + ["worker"],
    "tests/host": TEST_TOOLS + ["host"],
    "tests/e2e": TEST_TOOLS + ["worker"],
    "benchmarks": EXPORTED + ["worker", "suite", "tests/support"],
    "fuzz": EXPORTED + ["suite", "systemenvironment", "worker"],
}

OUTSIDERS = ["examples", "tests/package"]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]')
# A key word defined away, or an explicit instantiation that names a member, other than that of tests/support.
PRIVATE_MEMBERS = re.compile(r"^\s*#\s*define\s+(?:private|protected|class)\b"
                             r"|^\s*template\s+(?:struct|class)\s+(?!kxtest::Expose\b)[\w:]+<[^;]*&\w+::")

# An unnamed namespace is still file scope. The formatter writes the comment after each namespace's end.
NAMED_NAMESPACE = re.compile(r"^(namespace|} // namespace) [\w:]")
USING_DIRECTIVE = re.compile(r"^using namespace ")


def room_of(path):
    """The innermost room that a file lies in."""
    for folder in pathlib.PurePosixPath(path).parents:
        if str(folder) in ARROWS:
            return str(folder)
    return None


def resolve(path, name):
    """The repository's file that an include means, or None for one of the system or of a library."""
    for folder in (pathlib.PurePosixPath(path).parent, "include", ".", "tests"):
        found = (ROOT / folder / name).resolve()
        if found.is_file() and found.is_relative_to(ROOT):
            return found.relative_to(ROOT).as_posix()
    return None


def is_allowed(room, target):
    if room_of(target) == room:
        return True
    return any(target == allowed or target.startswith(allowed + "/") for allowed in ARROWS[room])


def check_file(path, arrows):
    """The findings in one file; counts its arrows between rooms."""
    room = room_of(path)
    if room is None:
        return [f"{path}: lies in no room of scripts/arrows.py"]
    findings = []
    lines = (ROOT / path).read_text(encoding="utf-8").splitlines()
    if not lines[0].startswith(("//", "/*")):
        findings.append(f"{path}:1: the file does not begin with a comment that says what it is")
    depth = 0
    for number, line in enumerate(lines, 1):
        if named := NAMED_NAMESPACE.match(line):
            depth += 1 if named[1] == "namespace" else -1
        if depth == 0 and USING_DIRECTIVE.match(line):
            findings.append(f"{path}:{number}: a using directive at file scope")
        if PRIVATE_MEMBERS.match(line) and room != "tests/support":
            findings.append(f"{path}:{number}: private members are reached through tests/support/ only")
        include = INCLUDE.match(line)
        if not include:
            continue
        bracket, name = include.groups()
        target = resolve(path, name)
        if target is None:
            if bracket == '"' and not name.endswith(".inc"):
                findings.append(f'{path}:{number}: "{name}" is no file of the repository')
            continue
        if bracket == "<" and room not in OUTSIDERS:
            findings.append(f"{path}:{number}: <{name}> is a file of the repository: include it with quotes")
        if room_of(target) != room:
            arrows[room, room_of(target)] += 1
        if not is_allowed(room, target):
            findings.append(f"{path}:{number}: {room}/ does not include {target}")
    return findings


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", action="store_true",
                        help="list the arrows between rooms and how many includes each has")
    options = parser.parse_args()
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.h", "*.cpp"], cwd=ROOT,
                            check=True, capture_output=True, text=True)
    arrows = collections.Counter()
    findings = []
    for path in listed.stdout.splitlines():
        if (ROOT / path).is_file():
            findings += check_file(path, arrows)
    if options.count:
        for (source, target), count in sorted(arrows.items()):
            print(f"{source} -> {target}: {count}")
        print(f"{len(arrows)} arrows, {sum(arrows.values())} includes")
    for finding in findings:
        print(finding, file=sys.stderr)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
