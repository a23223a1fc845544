"""A place to run the host in: a virtual display with the pattern on it, a throw-away Wine prefix and a folder with
the programs, all gone when the stage is closed. A driver that is killed takes its display along: the pattern ends
with its standard input, and the display with its last client, which the driver itself is."""

import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import time

START_LIMIT_S = 60
RUN_LIMIT_S = 60
END_LIMIT_S = 20
POLL_S = 0.05

SCREEN_WIDTH = 1280
SCREEN_HEIGHT = 720

ROOT = pathlib.Path(__file__).resolve().parents[2]
WINE_RUN = ROOT / "scripts" / "wine-run.sh"
PROGRAMS = ("kxrecord.exe", "KXVCR.exe", "pattern.exe", "launch.exe")
WORKER = "KXVCR.exe"
HOST = "kxrecord.exe"


def wait_until(condition, limit_s, what):
    """Polls until condition() holds; a wait that lasts longer than its limit is a failure that says so."""
    deadline = time.monotonic() + limit_s
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"{what}: not within {limit_s} s")
        time.sleep(POLL_S)


def become_client(display):
    """A connection to a display. Wine's own clients come and go while it starts: on a busy machine the last one goes
    before the next one comes, and without this one the display would go with it."""
    client = socket.socket(socket.AF_UNIX)
    client.settimeout(START_LIMIT_S)
    client.connect(f"\0/tmp/.X11-unix/X{display}")
    client.sendall(struct.pack("<BxHHHHxx", ord("l"), 11, 0, 0, 0))  # little-endian, version 11.0, without a cookie
    if client.recv(1) != b"\x01":
        raise AssertionError(f"the display {display} takes no client")
    return client


class Result:
    """How one run of the host ended: its whole exit code, both streams and its processor time."""

    def __init__(self, report, output, complaint):
        facts = dict(line.split() for line in report.read_text().splitlines())
        self.code = int(facts["exit"])
        self.cpu_s = (int(facts["kernel-ms"]) + int(facts["user-ms"])) / 1000
        self.output = output
        self.complaint = complaint


class Run:
    """A program that is running, most often the host."""

    def __init__(self, stage, program, arguments, cwd, limit_s, stdin):
        self._limit_s = limit_s
        self._report = stage.new_path("report.txt")
        command = [WINE_RUN, stage.folder / "launch.exe", self._report, stage.folder / program, *arguments]
        self.process = subprocess.Popen(command, cwd=cwd, env=stage.environment, text=True, encoding="utf-8",
                                        stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def first_line(self):
        """Waits for the next line, the first of which says that the recording has begun."""
        return self.process.stdout.readline()

    def type(self, text):
        self.process.stdin.write(text)
        self.process.stdin.flush()

    def finish(self):
        try:
            output, complaint = self.process.communicate(timeout=self._limit_s)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise
        if not self._report.exists():
            raise AssertionError(f"the host was not run to its end: {output}{complaint}")
        return Result(self._report, output, complaint)

    def abandon(self):
        """Ends waiting for a host that was killed."""
        self.process.communicate(timeout=self._limit_s)


class Stage:
    def __init__(self, programs_from, work, size=(SCREEN_WIDTH, SCREEN_HEIGHT)):
        work = work.resolve()
        shutil.rmtree(work, ignore_errors=True)
        self.folder = work / "bin"
        self.files = work / "files"
        self.display_memory = work / "display"  # a folder with the file that the display's pixels are in
        self._prefix = work / "prefix"
        self.drive = self._prefix / "drive_c"
        self._size = size
        self._count = 0
        self.folder.mkdir(parents=True)
        self.files.mkdir()
        self.display_memory.mkdir()
        for library in programs_from.glob("*.dll"):
            os.link(library, self.folder / library.name)
        for program in PROGRAMS:
            shutil.copy(programs_from / program, self.folder)
        self._xvfb = None
        self._client = None
        self._pattern = None
        self.environment = {**os.environ, "KX_WINEPREFIX": str(self._prefix)}
        try:
            self._start()
        except BaseException:
            self.close()
            raise

    def _start(self):
        display, self._xvfb = self._start_display(*self._size)
        self._client = become_client(display)
        self.environment["DISPLAY"] = f":{display}"
        self._pattern = subprocess.Popen([WINE_RUN, self.folder / "pattern.exe"], env=self.environment, text=True,
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self._pattern.stdout.readline().strip() != "ready":
            raise AssertionError("the pattern did not appear")
        self.trust(WORKER)

    def _start_display(self, width, height):
        reader, writer = os.pipe()
        xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-fbdir", str(self.display_memory), "-screen", "0",
                                 f"{width}x{height}x24", "-terminate", "-nolisten", "tcp"],
                                pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as answer:
            display = answer.readline().strip()
        if not display:
            raise AssertionError("Xvfb found no free display")
        return display, xvfb

    @property
    def display_server(self):
        """The id of the process that serves the display."""
        return self._xvfb.pid

    def close(self):
        if self._prefix.exists():
            server = subprocess.check_output([WINE_RUN, "--wineserver"], text=True).strip()
            for option in ("-k", "-w"):
                subprocess.run([server, option], env={**os.environ, "WINEPREFIX": str(self._prefix)}, check=False,
                               timeout=START_LIMIT_S)
        for process in (self._pattern, self._xvfb):
            if process is not None:
                process.kill()
                process.communicate()
        if self._client is not None:
            self._client.close()
        shutil.rmtree(self._prefix, ignore_errors=True)

    def new_path(self, name):
        """A path for a new file, not used before in this stage."""
        self._count += 1
        return self.files / f"{self._count:02d}-{name}"

    def start(self, *arguments, program=HOST, cwd=None, limit_s=RUN_LIMIT_S, stdin=subprocess.DEVNULL):
        return Run(self, program, [str(argument) for argument in arguments], cwd or self.files, limit_s, stdin)

    def run(self, *arguments, **options):
        return self.start(*arguments, **options).finish()

    def wine(self, *arguments):
        """Runs one of the system's own programs in this stage's prefix; a failure is an exception."""
        result = subprocess.run([WINE_RUN, *arguments], env=self.environment, timeout=START_LIMIT_S, check=False,
                                capture_output=True)
        if result.returncode != 0:
            raise AssertionError(f"{arguments} ended with {result.returncode}: {result.stdout} {result.stderr}")
        return result

    def trust(self, *files):
        result = self.run("manifest", *files)
        if result.code != 0:
            raise AssertionError(f"kxrecord manifest failed with {result.code}: {result.complaint}")

    def worker_log(self):
        """What the workers have logged so far: WARN and above."""
        return (self.folder / "KXVCR.log").read_text(encoding="utf-8")

    def processes(self, program):
        """The ids of the build machine for a program's processes in this stage's prefix."""
        marker = f"KX_WINEPREFIX={self._prefix}".encode()
        return [int(entry.name) for entry in pathlib.Path("/proc").iterdir()
                if entry.name.isdigit() and self._is(entry, program.encode(), marker)]

    @staticmethod
    def _is(entry, program, marker):
        try:
            name = (entry / "cmdline").read_bytes().split(b"\0")[0]
            return name.endswith(program) and marker in (entry / "environ").read_bytes().split(b"\0")
        except OSError:
            return False

    def kill(self, program):
        for process in self.processes(program):
            os.kill(process, signal.SIGKILL)

    def expect_ended(self, program, limit_s=END_LIMIT_S):
        wait_until(lambda: not self.processes(program), limit_s, f"the end of {program}")
