"""Compares the worker's processor time for a frame with ffmpeg's, which grabs and encodes the same display in turn.

Prints both and their ratio, the time that the display's server spends for each, and what the worker's own statistics
say about its steps. Reads the processor times from /proc, so that everything a process does is counted.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

from stage import SCREEN_HEIGHT, SCREEN_WIDTH, WORKER, Stage  # noqa: E402
from stephost import StepHost  # noqa: E402
from video import Video  # noqa: E402

RATE = 30
WARM_UP_S = 1.5
MEASURED_S = 6
ROUNDS = 2
TICK_S = 1 / os.sysconf("SC_CLK_TCK")
REPLAY_S = 5

LOG_CONFIGURATION = """log4cplus.rootLogger=INFO, FILE
log4cplus.appender.FILE=log4cplus::FileAppender
log4cplus.appender.FILE.File={log}
log4cplus.appender.FILE.Append=true
log4cplus.appender.FILE.layout=log4cplus::PatternLayout
log4cplus.appender.FILE.layout.ConversionPattern=%m%n
"""


def cpu_s(process):
    """Processor time of a process so far, in user and system mode."""
    facts = pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
    return (int(facts[11]) + int(facts[12])) * TICK_S


def memory_bytes(process):
    return int(re.search(r"VmRSS:\s*(\d+) kB", pathlib.Path(f"/proc/{process}/status").read_text())[1]) * 1024


def measure(process, display_server):
    """Milliseconds of processor time for a slot: the process's and the display server's."""
    time.sleep(WARM_UP_S)
    before = cpu_s(process), cpu_s(display_server), time.monotonic()
    time.sleep(MEASURED_S)
    after = cpu_s(process), cpu_s(display_server), time.monotonic()
    slots = (after[2] - before[2]) * RATE
    return [1000 * (after[i] - before[i]) / slots for i in (0, 1)]


def of_worker(stage, settings, display_server):
    path = stage.new_path("worker.mkv")
    with StepHost(stage, settings.bin) as host:
        host.prepare(0, RATE)
        host.start(path)
        worker, = stage.processes(WORKER)
        figures = measure(worker, display_server)
        host.stop()
    return figures, Video(path)


def of_ffmpeg(stage, _, display_server):
    path = stage.new_path("ffmpeg.mkv")
    process = subprocess.Popen(
        ["ffmpeg", "-v", "error", "-nostdin", "-f", "x11grab", "-draw_mouse", "0", "-framerate", str(RATE),
         "-video_size", f"{SCREEN_WIDTH}x{SCREEN_HEIGHT}", "-i", stage.environment["DISPLAY"],
         "-c:v", "mjpeg", "-q:v", "4", "-pix_fmt", "yuvj420p", str(path)])
    figures = measure(process.pid, display_server)
    process.terminate()
    process.wait(timeout=20)
    return figures, Video(path)


def report_replay(stage, settings):
    """Memory that a second of replay takes while the pattern moves."""
    with StepHost(stage, settings.bin) as host:
        host.prepare(60, RATE)
        worker, = stage.processes(WORKER)
        time.sleep(1)
        before = memory_bytes(worker)
        time.sleep(REPLAY_S)
        grown = memory_bytes(worker) - before
        host.stop()
    print(f"replay: {grown / REPLAY_S / 2**20:.2f} MiB of memory a second")


def report_round(name, figures, video):
    print(f"{name}: {figures[0]:.2f} ms CPU a frame, display server {figures[1]:.2f} ms, "
          f"{video.path.stat().st_size / video.frames / 1000:.1f} kB a frame, {video.frames} frames")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/mingw-release/bin",
                        help="folder with the built programs and DLLs")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build/benchmarks", help="folder for the files")
    settings = parser.parse_args()
    stage = Stage(settings.bin, settings.work)
    try:
        log = stage.folder / "worker.log"
        windows_log = "Z:" + str(log)
        (stage.folder / "config" / "log4cplus.properties").write_text(LOG_CONFIGURATION.format(log=windows_log))
        sums = {of_worker: [0.0, 0.0], of_ffmpeg: [0.0, 0.0]}
        for _ in range(ROUNDS):
            for recorder, total in sums.items():
                figures, video = recorder(stage, settings, stage.display_server)
                report_round(recorder.__name__[3:], figures, video)
                total[0] += figures[0] / ROUNDS
                total[1] += figures[1] / ROUNDS
        worker, ffmpeg = sums[of_worker], sums[of_ffmpeg]
        print(f"CPU a frame: worker {worker[0]:.2f} ms, ffmpeg {ffmpeg[0]:.2f} ms, ratio {worker[0] / ffmpeg[0]:.2f}")
        print(f"with the display server: worker {sum(worker):.2f} ms, ffmpeg {sum(ffmpeg):.2f} ms, "
              f"ratio {sum(worker) / sum(ffmpeg):.2f}")
        report_replay(stage, settings)
        for line in log.read_text().splitlines():
            if "finished" in line:
                print("worker:", line)
    finally:
        stage.close()


if __name__ == "__main__":
    main()
