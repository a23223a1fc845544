"""Compares recordings of the worker with ffmpeg's, which records the same content on the same display in turn.

Every picture on the screen carries a number. So each recorded picture is compared with the one that was drawn, and
pictures that were never recorded are counted. For each recorder the table says the bits a second, the processor time
for a changed picture, the likeness of brightness to what was drawn and the pictures that were lost; for the worker also
its bytes and processor time as multiples of what ffmpeg's recordings take for the same likeness. Processor times come
from /proc, so that everything that a process does is counted. All recorders make a key picture every two seconds.
"""

import argparse
import os
import pathlib
import subprocess
import sys
import time

from quality import RATE, at

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

from stage import WINE_RUN, WORKER, Stage  # noqa: E402
from stephost import StepHost  # noqa: E402

PLAYER = "sceneplayer.exe"
DISPLAY = (1920, 1080)
SCENES = {"terminal": (1280, 720), "web": (1280, 720), "windows": (1280, 720), "typing": (1280, 720),
          "mix": (1920, 1080), "motion": (1280, 720)}
STILL = "still"
STILL_S = 10
STILL_LIMIT_BYTES = 150_000
RECORDED_S = 5
SHOWN_S = 30  # longer than any recorder takes to start and stop
STAMP_BITS, STAMP_SIDE = 12, 8
TICK_S = 1 / os.sysconf("SC_CLK_TCK")
LIMIT_S = 120
PEERS = {
    "veryfast": [["-c:v", "libx264", "-preset", "veryfast", "-crf", crf] for crf in ("23", "17")],
    "ultrafast": [["-c:v", "libx264", "-preset", "ultrafast", "-crf", crf] for crf in ("23", "17")],
    "libvpx": [["-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-row-mt", "1", "-b:v", "0",
                "-crf", crf] for crf in ("34", "22")],
}
KEY_PICTURES = ["-force_key_frames", "expr:gte(t,n_forced*2)"]
TO_VIDEO = "scale=out_color_matrix=bt709:out_range=tv,format=yuv420p"


def cpu_s(process):
    """Processor time of a process so far, in user and system mode."""
    facts = pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
    return (int(facts[11]) + int(facts[12])) * TICK_S


def stamp(row):
    """The number in a row of brightness or of equal bytes, one for each pixel."""
    return sum((row[bit * STAMP_SIDE + STAMP_SIDE // 2] > 127) << bit for bit in range(STAMP_BITS))


class Drawn:
    """The pictures of a scene as they are drawn."""

    def __init__(self, stage, player, scene):
        self.size = SCENES.get(scene, (1280, 720))
        self._raw = stage.new_path(f"{scene}.raw")
        subprocess.run([WINE_RUN, player, "write", scene, str(SHOWN_S * RATE), self._raw], check=True,
                       timeout=LIMIT_S, env=stage.environment)
        self._bytes = self.size[0] * self.size[1] * 4
        self._places = {}
        with open(self._raw, "rb") as raw:
            for number in range(SHOWN_S * RATE):
                raw.seek(number * self._bytes)
                self._places.setdefault(stamp(raw.read(STAMP_BITS * STAMP_SIDE * 4)[::4]), number * self._bytes)

    def remove(self):
        self._raw.unlink()

    def judge(self, path):
        """Compares a recording with what was drawn: likeness, distinct pictures and lost ones."""
        rows = subprocess.run(
            ["ffmpeg", "-v", "error", "-i", path, "-vf",
             f"crop={STAMP_BITS * STAMP_SIDE}:1:0:{STAMP_SIDE // 2 - 1}:exact=1,format=gray",
             "-fps_mode", "passthrough", "-f", "rawvideo", "-"],
            check=True, capture_output=True, timeout=LIMIT_S).stdout
        width = STAMP_BITS * STAMP_SIDE
        stamps = [stamp(rows[at:at + width]) for at in range(0, len(rows), width)]
        seen = {number for number in stamps if number in self._places}
        lost = max(seen) - min(seen) + 1 - len(seen)
        return self._likeness(path, stamps), len(seen), lost

    def _likeness(self, path, stamps):
        graph = (f"[0:v]settb=1/{RATE},setpts=N,format=yuv420p[a];[1:v]{TO_VIDEO},settb=1/{RATE},setpts=N[b];"
                 "[a][b]ssim=eof_action=endall")
        process = subprocess.Popen(
            ["ffmpeg", "-hide_banner", "-i", path, "-f", "rawvideo", "-pix_fmt", "bgr0", "-s",
             f"{self.size[0]}x{self.size[1]}", "-i", "-", "-lavfi", graph, "-fps_mode", "passthrough", "-f", "null",
             "-"], stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        place = 0
        with open(self._raw, "rb") as raw:
            for number in stamps:
                place = self._places.get(number, place)
                raw.seek(place)
                process.stdin.write(raw.read(self._bytes))
        _, report = process.communicate(timeout=LIMIT_S)
        return float(report.decode().rpartition("SSIM Y:")[2].split()[0])


class Recording:
    """What one recorder made of the scene."""

    def __init__(self, path, drawn, seconds, cpu):
        self.path = path
        self.ssim, pictures, self.lost = drawn.judge(path)
        self.point = {"bytes": path.stat().st_size / seconds, "cpu": max(1000 * cpu / pictures, 0.01),
                      "ssim": self.ssim}
        path.unlink()

    def line(self):
        return (f"{self.point['bytes'] * 8 / 1000:8.0f} kbit/s {self.point['cpu']:6.2f} ms  SSIM {self.ssim:.4f} "
                f"{self.lost:3} lost")


class Judge:
    def __init__(self, stage, programs):
        self._stage = stage
        self._programs = programs
        self._player = programs / PLAYER

    def _show(self, scene):
        shown = subprocess.Popen([WINE_RUN, self._player, "show", scene, str(SHOWN_S)], env=self._stage.environment,
                                 text=True, stdout=subprocess.PIPE)
        if shown.stdout.readline().strip() != "ready":
            raise AssertionError(f"the scene {scene} did not appear")
        return shown

    def by_worker(self, scene, drawn, ending, seconds=RECORDED_S):
        path = self._stage.new_path(f"worker.{ending}")
        shown = self._show(scene)
        with StepHost(self._stage, self._programs) as host:
            host.prepare(0, RATE, region=(0, 0, *drawn.size))
            worker, = self._stage.processes(WORKER)
            before = cpu_s(worker)
            host.start(path)
            time.sleep(seconds)
            used = cpu_s(worker) - before
            host.stop()
        shown.kill()
        self._stage.expect_ended(PLAYER)
        return Recording(path, drawn, seconds, used)

    def by_ffmpeg(self, scene, drawn, arguments):
        path = self._stage.new_path("ffmpeg.mkv")
        shown = self._show(scene)
        process = subprocess.Popen(
            ["ffmpeg", "-v", "error", "-f", "x11grab", "-draw_mouse", "0", "-framerate", str(RATE), "-video_size",
             f"{drawn.size[0]}x{drawn.size[1]}", "-i", self._stage.environment["DISPLAY"], "-vf", TO_VIDEO,
             *arguments, *KEY_PICTURES, str(path)], stdin=subprocess.PIPE)
        time.sleep(RECORDED_S)
        used = cpu_s(process.pid)
        process.communicate(b"q", timeout=LIMIT_S)
        shown.kill()
        self._stage.expect_ended(PLAYER)
        return Recording(path, drawn, RECORDED_S, used)

    def compare(self, scene):
        drawn = Drawn(self._stage, self._player, scene)
        peers = {}
        for name, settings in PEERS.items():
            recordings = [self.by_ffmpeg(scene, drawn, arguments) for arguments in settings]
            peers[name] = [recording.point for recording in recordings]
            for recording in recordings:
                print(f"{scene:9} {name:10} {recording.line()}", flush=True)
        for ending in ("mp4", "webm"):
            recording = self.by_worker(scene, drawn, ending)
            line = f"{scene:9} worker {ending:4}{recording.line()}"
            for name, points in peers.items():
                line += (f" | {name} x{recording.point['bytes'] / at(points, recording.ssim, 'bytes'):.2f} bytes "
                         f"x{recording.point['cpu'] / at(points, recording.ssim, 'cpu'):.2f} CPU")
            print(line, flush=True)
        drawn.remove()

    def still(self):
        drawn = Drawn(self._stage, self._player, STILL)
        recording = self.by_worker(STILL, drawn, "mp4", STILL_S)
        size = recording.point["bytes"] * STILL_S
        drawn.remove()
        print(f"{STILL:9} worker mp4 {size:.0f} bytes in {STILL_S} s, at most {STILL_LIMIT_BYTES} wanted", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/mingw-release/bin",
                        help="folder with the built programs and DLLs")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build/benchmarks", help="folder for the files")
    parser.add_argument("scenes", nargs="*", metavar="SCENE", default=[*SCENES, STILL],
                        help=", ".join([*SCENES, STILL]))
    settings = parser.parse_args()
    stage = Stage(settings.bin, settings.work, DISPLAY)
    try:
        judge = Judge(stage, settings.bin.resolve())
        for scene in settings.scenes:
            if scene == STILL:
                judge.still()
            else:
                judge.compare(scene)
    finally:
        stage.close()


if __name__ == "__main__":
    main()
