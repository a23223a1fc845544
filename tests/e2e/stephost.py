"""Drives stephost.exe, the host that takes one step at a time."""

import shutil
import subprocess

from stage import END_LIMIT_S, WINE_RUN

PROGRAM = "stephost.exe"
KEEP_AS_VP9 = 0x100  # kStreamVp9


class StepFailed(Exception):
    pass


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class StepHost:
    """One host with its worker; used with "with", so that none is left over."""

    def __init__(self, stage, programs_from):
        self._stage = stage
        program = stage.folder / PROGRAM
        if not program.exists():
            shutil.copy(programs_from / PROGRAM, program)
        self._process = subprocess.Popen([WINE_RUN, program], env=stage.environment, text=True, encoding="utf-8",
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.leave()
        self._stage.expect_ended(PROGRAM)

    def _step(self, line):
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        answer = self._process.stdout.readline().split()
        if not answer or answer[0] != "ok":
            raise StepFailed(f"{line}: {answer}")
        return [int(number) for number in answer[1:]]

    def prepare(self, replay_s=0, rate=30, cursor=0, region=(0, 0, 0, 0), vp9=False, window=0):
        """Runs the worker and prepares; returns the milliseconds that it took."""
        streams = KEEP_AS_VP9 if vp9 else 0
        return self._step(f"prepare {replay_s} {rate} {cursor} {streams} {' '.join(map(str, region))} {window}")[0]

    def start(self, path):
        """Starts a recording; returns the milliseconds that it took and the counter on the screen at that time."""
        return self._step(f"start {windows_path(path)}")

    def status(self):
        """What the worker tells of its file, also when it has ended; moments in 100 ns."""
        names = ("pictures", "repeats", "dropped", "liveStart", "length", "bytes", "finished")
        return dict(zip(names, self._step("status")))

    def live(self):
        """Starts the live server; returns its port."""
        return self._step("live")[0]

    def stop(self):
        """Stops the worker; returns its exit code."""
        return self._step("stop")[0]

    def display(self, width, height):
        self._step(f"display {width} {height}")

    def pointer(self, x, y):
        self._step(f"pointer {x} {y}")

    def leave(self):
        """Ends the host at once; a worker that runs has lost it."""
        if not self._process.stdin.closed:
            self._process.stdin.close()
            self._process.stdout.close()
            self._process.wait(timeout=END_LIMIT_S)
