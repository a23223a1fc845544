#!/usr/bin/env python3
"""Do the tests bite? Changes one thing at a time in the product's sources and looks whether a test fails.

The work of scripts/mutate.sh, whose --help says how to use it. A mutant is one change of one line: a constant, a
comparison, a condition, the order of two statements, a call that is left out, a text. It is known by its file, the
line's text and the change, so that results outlive lines that move.

Nothing is changed in the repository: sources are copied to build/mutate/source and built without optimisation in
build/mutate/build. For a mutant only the objects that it touches are compiled and the library is linked again; test
programs stay as they are and find the new library beside them. One Wine prefix serves all tests, since starting one
takes longer than most of them.
"""
import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
SOURCE, BUILD = WORK / "source", WORK / "build"
PREFIX = WORK / "prefix"
RESULTS = WORK / "results.tsv"
PLAN, KEPT = WORK / "plan.json", WORK / "kept"
SURVIVORS = ROOT / "tests" / "mutants.txt"

LEAST_SECONDS = 10   # of one test program, which hangs when it takes so much more than LONGER times its usual time
LONGER = 2
IN_VAIN_SECONDS = 8  # a test that fails after so long has waited for what does not come
QUICK_SECONDS = 3    # a program that takes no longer waits for nothing that a loaded machine could delay
BASELINE_SECONDS = 300  # of a test whose usual time is not known
NEAR_LINES = 10      # what a test has killed counts half when it lies so many lines from a mutant
UNTRIED = 0.2        # what counts for a test that has killed nothing yet
ENOUGH = 0.95        # of the mutants killed

# What is mutated and which tests are about it.
PROXY_TESTS = ["screenrecordproxy_" + topic + "_test" for topic in (
    "commands", "lifecycle", "liveserver", "localrecord", "logging", "ipc", "issupport", "stop", "boundary",
    "launch", "supervision", "ready", "runs", "sameworker", "commandrace", "latecommand", "destructor")] + [
    "proxy_integration_test", "screenrecordproxy_randomlives_test", "proxymemory_integration_test"]
QUERIES = ["settings_integration_test", "identity_integration_test", "memory_integration_test"]
PRODUCT = ["bin/ScreenRecordProxy.dll"]
CHANNEL_TESTS = ["ipcmessage_test", "proxy_integration_test"]


class Folder:
    """What holds a folder's sources, the tests of them all, and the tests of single files."""

    def __init__(self, binaries, tests, own=None):
        self.binaries, self.tests, self.own = binaries, tests, own or {}


FOLDERS = {
    "libraries": Folder(PRODUCT, PROXY_TESTS),
    "agreement": Folder(PRODUCT, ["agreementsign_test"] + QUERIES),
    "systemenvironment": Folder(PRODUCT, QUERIES, {
        "debugline.h": ["integritymanifest_test", "osversion_test"],
        "narrowtext.h": ["integritymanifest_test", "firmwareidentity_test", "registrytextlocale_test"],
        "oemversion.h": ["firmwareidentity_test", "productidentity_test"],
        "sharedqueries.h": ["firmwareidentity_test", "productidentity_test", "osversion_test"],
        "integritymanifest.cpp": ["integritymanifest_test", "screenrecordproxy_launch_test"],
        "devicefuncswitch.cpp": ["devicefuncswitch_test", "suitesettings_test"],
    }),
    # The channel's test has the frame's code in it.
    "suite/ipcmessage": Folder(["bin/IPCMessage.dll", "bin/ipcmessage_test.exe"], CHANNEL_TESTS),
}
SAMPLES = ["productseries.h"]  # rows that are there to be replaced


def tests_of(path):
    folder = FOLDERS[folder_of(path)]
    own = folder.own.get(path.name)
    if own is None and folder_of(path) == "systemenvironment":
        own = [path.stem + "_test"]
    return (own or []) + folder.tests


def folder_of(path):
    return next(name for name in FOLDERS if path.is_relative_to(name))


# ---- Mutants ---------------------------------------------------------------------------------------------------------

Mutant = collections.namedtuple("Mutant", "file line kind before after lines")  # lines: {index: new text}


def key_of(mutant):
    return "\t".join((mutant.file, mutant.kind, mutant.before, mutant.after))


COMMENT_OR_TEXT = re.compile(r'//[^\n]*|/\*.*?\*/|R"\(.*?\)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', re.S)
NO_CODE = re.compile(r"^\s*(#|static_assert|using |template |namespace )")
REPLACEMENTS = [  # kind, what, by what; the code is formatted, so a comparison has blanks and a template has none
    ("comparison", re.compile(r" (==|!=|<=|>=|<|>) "),
     {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}),
    ("condition", re.compile(r" (&&|\|\|) "), {"&&": "||", "||": "&&"}),
    ("condition", re.compile(r"(!)(?=[\w(])"), {"!": ""}),
    ("condition", re.compile(r"(?<!else )\b(?:if|while) (\()"), {"(": "(!"}),
    ("constant", re.compile(r"\b(true|false)\b"), {"true": "false", "false": "true"}),
    ("constant", re.compile(r" ([+\-|&]) "), {"+": "-", "-": "+", "|": "&", "&": "|"}),
    ("constant", re.compile(r"(\+\+|--)(?=\w)"), {"++": "--", "--": "++"}),
]
NUMBER = re.compile(r"(?<![\w.])(0x[0-9A-Fa-f]+|\d+)(?=[uUlL]*\b)(?!\.)")
STATE = re.compile(r"\b(RunStatus|RecordMode)::(\w+)")
STATES = {"RunStatus": ["Idle", "Error"], "RecordMode": ["NoWorker", "LiveServer"]}
STATEMENT = re.compile(r"^\s+(?!return\b|delete\b|case\b|throw\b|const\b|static\b|auto\b|constexpr\b|goto\b)"
                       r"[\w:.>\-*\[\]()&]+(\(.*\)|\[.*\]| (=|\+=|\|=|&=) .*|\+\+|--)?;\s*(//.*)?$")
ZERO = re.compile(r"^\s+\w+ (\w+) = 0;$")
PLAIN_VALUE = re.compile(r"^\s*([\w.]+) = \*?([\w:.]+);")
ARRAY_SIZE = re.compile(r"^\s+(?:char|wchar_t) \w+\[[^\]]*$|std::array<[\w:]+, [^>]*$")
BARE_WORD = re.compile(r"^\s+[\w:]+;")


def masked(text):
    """The code alone: comments and texts are blanked out, so that columns stay."""
    return COMMENT_OR_TEXT.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def replaced(line, start, end, by):
    return line[:start] + by + line[end:]


def texts_in(text):
    """(line index, column behind the opening quote) of every text that is not empty."""
    for match in COMMENT_OR_TEXT.finditer(text):
        if match[0].startswith(('"', 'R"')) and len(match[0]) > 2:
            inside = match.start() + (3 if match[0].startswith("R") else 1)
            yield text.count("\n", 0, inside), inside - text.rfind("\n", 0, inside) - 1


def is_filled_in(lines, index):
    """Whether a call fills in next what the line gives a first value, which no comment says to count."""
    declared = ZERO.match(lines[index])
    return bool(declared) and re.search(rf"[(,] ?&?{declared[1]}[,)]", " ".join(lines[index + 1:index + 4]))


def are_apart(one, other):
    """Whether one of two statements only gives a plain value to what the other does not name: no order to test."""
    def names(statement, word):
        return re.search(rf"(?<![\w.]){re.escape(word)}\b", statement)

    return any(given and not names(there, given[1]) and not names(there, given[2])
               for given, there in ((PLAIN_VALUE.match(one), other), (PLAIN_VALUE.match(other), one)))


def is_statement(line):
    return bool(STATEMENT.match(line)) and not BARE_WORD.match(line)


def mutants_of(root, file):
    text = (root / file).read_text()
    lines, code = text.split("\n"), masked(text).split("\n")

    def change(index, kind, new):
        return Mutant(file, index + 1, kind, lines[index].strip(), new.strip(), {index: new})

    for index, bare in enumerate(code):
        line = lines[index]
        if not bare.strip() or NO_CODE.match(bare):
            continue
        for kind, what, by in REPLACEMENTS:
            for match in what.finditer(bare):
                new = replaced(line, match.start(1), match.end(1), by[match[1]])
                if by[match[1]] == "(!":  # the whole condition, when it ends on its line
                    end = line.rfind(") {")
                    if end < 0 or ";" in bare[match.end():end]:
                        continue
                    new = line[:match.end()] + "!(" + line[match.end():end] + ")" + line[end:]
                yield change(index, kind, new)
        for match in [] if is_filled_in(lines, index) else NUMBER.finditer(bare):
            if ARRAY_SIZE.search(bare[:match.start()]):  # more room is never wrong
                continue
            number = int(match[1], 0)
            by = hex(number + 1) if match[1].startswith("0x") else str(number + 1)
            yield change(index, "constant", replaced(line, match.start(1), match.end(1), by))
        for match in STATE.finditer(bare):
            other = next(state for state in STATES[match[1]] if state != match[2])
            yield change(index, "constant", replaced(line, match.start(2), match.end(2), other))
        if is_statement(bare):
            yield change(index, "removal", re.match(r"\s*", line)[0] + ";")
            following = code[index + 1] if index + 1 < len(code) else ""
            same_block = re.match(r"\s*", line)[0] == re.match(r"\s*", following)[0]
            if is_statement(following) and same_block and not are_apart(bare, following):
                yield Mutant(file, index + 1, "order", lines[index].strip(),
                             lines[index + 1].strip() + " " + lines[index].strip(),
                             {index: lines[index + 1], index + 1: lines[index]})
    for index, column in texts_in(text):
        if not NO_CODE.match(lines[index]):
            yield change(index, "text", replaced(lines[index], column, column, "~"))


def sources(root, folders):
    return [path.relative_to(root).as_posix() for folder in folders for path in sorted((root / folder).rglob("*"))
            if path.suffix in (".cpp", ".h") and path.name not in SAMPLES]


def all_mutants(root, folders):
    for file in sources(root, folders):
        yield from mutants_of(root, file)


def chosen(root, arguments):
    """The mutants of this run: the first ones of an order that the seed decides, so that more follow on fewer.

    A mutant's place depends on nothing but itself: sources that change bring few others.
    """
    def place(key):
        return hashlib.sha256(f"{arguments.seed}\t{key}".encode()).digest()

    unique = {key_of(mutant): mutant for mutant in all_mutants(root, arguments.folder)}
    order = sorted(unique, key=place)
    return [unique[key] for key in (order[:arguments.count] if arguments.count else order)]


# ---- Build and tests -------------------------------------------------------------------------------------------------

def run(command, **options):
    return subprocess.run([str(part) for part in command], check=True, **options)


def copy_sources():
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True, text=True,
                           capture_output=True).stdout.split("\n")
    for name in filter(None, files):
        there, here = SOURCE / name, ROOT / name
        if here.is_file() and not (there.is_file() and there.read_bytes() == here.read_bytes()):
            there.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(here, there)
    (SOURCE / "build").mkdir(exist_ok=True)
    if not (SOURCE / "build" / "deps").exists():
        (SOURCE / "build" / "deps").symlink_to((ROOT / "build" / "deps").resolve())


def programs():
    """{test: its program}; each one runs in the folder that it lies in."""
    listed = subprocess.run(["ctest", "--test-dir", BUILD, "--show-only=json-v1"], check=True, text=True,
                            capture_output=True).stdout
    commands = {test["name"]: test.get("command", []) for test in json.loads(listed)["tests"]}
    return {name: part for name, command in commands.items() for part in command if part.endswith(".exe")}


def prepare(folders):
    """Builds everything as it is; the tests have to pass before a change of the sources can be blamed for a failure.

    Leaves behind what every mutant needs: the programs and how long they take, the objects of each binary with a copy
    of them, the command that links it, and where it is copied to.
    """
    copy_sources()
    run(["cmake", "--preset", "mingw-debug", "-S", SOURCE, "-B", BUILD, "-Wno-dev", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
         "-DKX_WARNINGS_AS_ERRORS=OFF", "-DKX_BUILD_BENCHMARKS=OFF"], cwd=SOURCE, stdout=subprocess.DEVNULL)
    known = programs()
    tests = sorted({test for file in sources(ROOT, folders) for test in tests_of(pathlib.Path(file))})
    run(["cmake", "--build", BUILD, "--target", *tests], stdout=subprocess.DEVNULL)
    plan = {"binaries": {binary: plan_of(binary) for folder in FOLDERS.values() for binary in folder.binaries}}
    before = read_plan().get("tests", {}) if PLAN.exists() else {}
    plan["tests"] = dict(before)
    for test in tests:
        digest = digest_of([known[test], *sorted(pathlib.Path(known[test]).parent.glob("*.dll"))])
        if before.get(test, {}).get("digest") == digest:
            continue
        began = time.monotonic()
        failure = fails(known[test], BASELINE_SECONDS)
        if failure and fails_again(known[test], BASELINE_SECONDS, failure):
            sys.exit(f"{test} does not pass without a mutant: {failure.test}")
        plan["tests"][test] = {"program": known[test], "seconds": time.monotonic() - began, "digest": digest}
    PLAN.write_text(json.dumps(plan))


def read_plan():
    return json.loads(PLAN.read_text())


def digest_of(files):
    return hashlib.sha256(b"".join(pathlib.Path(file).read_bytes() for file in files)).hexdigest()


def asked_of_ninja(*question):
    return run(["ninja", "-C", BUILD, "-t", *question], text=True, capture_output=True).stdout


def plan_of(binary):
    asked = asked_of_ninja("query", binary)
    objects = re.findall(r"^    (\S+\.obj)$", asked.split("outputs:")[0], re.M)
    link = asked_of_ninja("commands", "-s", binary).strip()
    built = BUILD / binary
    copies = [copy for copy in BUILD.rglob(built.name)
              if copy != built and copy.read_bytes() == built.read_bytes()]  # a fake has the same name
    changed = [*objects, binary, *re.findall(r"--out-implib,(\S+)", link),
               *(copy.relative_to(BUILD).as_posix() for copy in copies)]
    changed = [name for name in changed if (BUILD / name).is_file()]  # a program has no import library
    for name in changed:
        (KEPT / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(BUILD / name, KEPT / name)
    compiled = {name: {"command": asked_of_ninja("commands", "-s", name).strip(),
                       "files": [os.path.normpath(BUILD / file)
                                 for file in re.findall(r"^    (\S+)$", asked_of_ninja("deps", name), re.M)]}
                for name in objects}
    return {"objects": compiled, "link": link, "copies": [str(copy) for copy in copies], "changed": changed}


def build(plan, binary, path):
    """Compiles what the file is part of and links one binary, each by its own command: nothing else is to change."""
    def execute(command):
        run(["sh", "-c", command], cwd=BUILD, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "CCACHE_DISABLE": "1"})  # nobody compiles a mutant twice

    commands = [its["command"] for its in plan["objects"].values() if str(path) in its["files"]]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(execute, commands))
    if commands:
        execute(plan["link"])
        for copy in plan["copies"]:
            shutil.copy(BUILD / binary, copy)


def restore(plan):
    """What a mutant has changed in the build folder, as it was; times too, so that nothing is built for it."""
    for name in plan["changed"]:
        kept, here = KEPT / name, BUILD / name
        if not here.exists() or here.stat().st_mtime_ns != kept.stat().st_mtime_ns:
            shutil.copy2(kept, here)


def wine(*arguments):
    return subprocess.run([SOURCE / "scripts" / "wine-run.sh", *arguments], check=True, text=True,
                          capture_output=True).stdout.strip()


TEST_BEGINS = re.compile(r"\[ RUN      \] ([\w./]+)")
Failure = collections.namedtuple("Failure", "test seconds")  # the test; how long it took, or 0 when it did not return


def server(*arguments):
    subprocess.run([wine("--wineserver"), *arguments], env={**os.environ, "WINEPREFIX": str(PREFIX)}, check=False,
                   stderr=subprocess.DEVNULL)


def end_prefix():
    server("-k")
    shutil.rmtree(PREFIX, ignore_errors=True)


def fails(program, seconds, *arguments):
    """Why a test program fails; nothing when it passes."""
    environment = {**os.environ, "KX_WINEPREFIX": str(PREFIX), "GTEST_FAIL_FAST": "1"}
    with open(WORK / "test.log", "w") as log:
        process = subprocess.Popen([SOURCE / "scripts" / "wine-run.sh", program, *arguments], stdout=log,
                                   stderr=subprocess.STDOUT, env=environment, start_new_session=True,
                                   cwd=pathlib.Path(program).parent)
        try:
            has_failed = process.wait(timeout=seconds) != 0
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            has_failed = True
    if has_failed:
        end_prefix()  # whatever the test has left behind
        printed = (WORK / "test.log").read_text(errors="replace")
        first = re.search(r"\[  FAILED  \] ([\w./]+).* \((\d+) ms\)", printed)
        if first:
            return Failure(first[1], int(first[2]) / 1000)
        return Failure(["", *TEST_BEGINS.findall(printed)][-1], 0)
    return None


def fails_again(program, seconds, failure):
    """Whether a failure was the mutant's: a loaded machine lets a test fail now and then, but not twice."""
    if failure.seconds > IN_VAIN_SECONDS:
        return True
    return fails(program, LEAST_SECONDS, f"--gtest_filter={failure.test}") or fails(program, seconds)


def likeliest_first(mutant, tests):
    """[(test, its program, its usual time)]: by what it has killed nearby, and by how little its try costs."""
    score = dict.fromkeys(tests, UNTRIED)
    lines = {key_of(other): other.line for other in mutants_of(SOURCE, mutant.file)}
    for key, (verdict, by) in read_results().items():
        test = by.split(":")[0]
        if verdict == "killed" and key in lines and test in score:
            score[test] += NEAR_LINES / (NEAR_LINES + abs(lines[key] - mutant.line))
    known = read_plan()["tests"]
    first = sorted(tests, key=lambda test: -score[test] / known[test]["seconds"])
    return [(test, known[test]["program"], known[test]["seconds"]) for test in first]


def stage_source(path):
    for copy in BUILD.glob("*/source/" + path.name):  # a test finds the lines of messages in it
        shutil.copy2(path, copy)


def attempt(mutant):
    """What becomes of one mutant: (stillborn | killed | survived, by what)."""
    plan, path = read_plan(), SOURCE / mutant.file
    binaries = {binary: plan["binaries"][binary] for binary in FOLDERS[folder_of(pathlib.Path(mutant.file))].binaries}
    tests = likeliest_first(mutant, tests_of(pathlib.Path(mutant.file)))
    original, times = path.read_text(), path.stat()
    lines = original.split("\n")
    for index, new in mutant.lines.items():
        lines[index] = new
    path.write_text("\n".join(lines))
    stage_source(path)
    try:
        for binary, its_plan in binaries.items():
            build(its_plan, binary, path)
        for test, program, seconds in tests:
            limit = LEAST_SECONDS + LONGER * seconds
            failure = fails(program, limit)
            if failure and (seconds < QUICK_SECONDS or fails_again(program, limit, failure)):
                return "killed", f"{test}: {failure.test}"
        return "survived", ""
    except subprocess.CalledProcessError:
        return "stillborn", ""
    finally:
        path.write_text(original)
        os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))
        for its_plan in binaries.values():
            restore(its_plan)
        stage_source(path)


# ---- Results ---------------------------------------------------------------------------------------------------------

def read_results():
    results = {}
    if RESULTS.exists():
        for line in RESULTS.read_text().splitlines():
            *key, verdict, reason = line.split("\t")
            results["\t".join(key)] = (verdict, reason)
    return results


def read_survivors():
    """{mutant: why it may survive}, from the list in the repository: blocks of file, kind, before, after, reason."""
    reasons = {}
    for block in re.split(r"\n\s*\n", SURVIVORS.read_text()) if SURVIVORS.exists() else []:
        fields = dict(line.split(": ", 1) for line in block.splitlines() if line and not line.startswith("#"))
        if fields:
            key = "\t".join((fields["file"], fields["kind"], fields["line"], fields["mutant"]))
            reasons[key] = fields["why"]
    return reasons


def report(mutants):
    """Prints the table and the survivors. @return whether enough are killed and every survivor has a reason"""
    results, reasons = read_results(), read_survivors()
    table = collections.defaultdict(collections.Counter)
    unexplained = 0
    for mutant in mutants:
        verdict, _ = results.get(key_of(mutant), ("not tried", ""))
        table[folder_of(pathlib.Path(mutant.file))][verdict] += 1
        table["all"][verdict] += 1
        if verdict == "survived":
            reason = reasons.get(key_of(mutant))
            unexplained += reason is None
            print(f"file: {mutant.file}\nkind: {mutant.kind}\nline: {mutant.before}\nmutant: {mutant.after}\n"
                  f"why: {reason or '?'}\n# line {mutant.line}\n")
    print(f"{'folder':20}{'mutants':>9}{'killed':>9}{'survived':>10}{'rate':>8}   (and not compiled, not tried)")
    for folder in [*FOLDERS, "all"]:
        count = table[folder]
        tried = count["killed"] + count["survived"]
        rate = f"{100 * count['killed'] / tried:.1f} %" if tried else "-"
        print(f"{folder:20}{tried:>9}{count['killed']:>9}{count['survived']:>10}{rate:>8}   "
              f"({count['stillborn']}, {count['not tried']})")
    total = table["all"]
    return total["killed"] >= ENOUGH * (total["killed"] + total["survived"]) and unexplained == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=400)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--folder", action="append", choices=list(FOLDERS))
    parser.add_argument("--before", default="")
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--report", action="store_true")
    parser.add_argument("--prepare", action="store_true")
    parser.add_argument("--try", dest="key")
    arguments = parser.parse_args()
    arguments.folder = arguments.folder or list(FOLDERS)
    WORK.mkdir(parents=True, exist_ok=True)
    if arguments.prepare:
        return prepare(arguments.folder)
    if arguments.key:
        mutant = next(mutant for mutant in mutants_of(SOURCE, arguments.key.split("\t")[0])
                      if key_of(mutant) == arguments.key)
        with open(RESULTS, "a") as results:
            results.write("\t".join((key_of(mutant), *attempt(mutant))) + "\n")
        return None
    if arguments.report:
        mutants = chosen(ROOT, arguments)
    else:
        before = arguments.before.split() + [sys.executable, __file__]
        run([*before, "--prepare", *(part for folder in arguments.folder for part in ("--folder", folder))])
        mutants = chosen(SOURCE, arguments)  # the copy: whoever edits the sources meanwhile disturbs nothing
        results = read_results()
        again = {key for key, (verdict, _) in results.items() if arguments.again and verdict == "survived"}
        for number, mutant in enumerate(mutants, 1):
            if key_of(mutant) not in results or key_of(mutant) in again:
                began = time.monotonic()
                run([*before, "--try", key_of(mutant)])
                verdict, by = read_results()[key_of(mutant)]
                print(f"{number}/{len(mutants)} {mutant.file}:{mutant.line} {mutant.kind}: {verdict} {by} "
                      f"({time.monotonic() - began:.0f} s)", flush=True)
        end_prefix()
    return 0 if report(mutants) else 1


if __name__ == "__main__":
    sys.exit(main())
