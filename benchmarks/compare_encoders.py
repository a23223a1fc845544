"""Compares the worker's encoders with ffmpeg's on the same pictures, without a screen between.

Each kind of content is drawn once and encoded by every encoder at several qualities, by one thread where it can be told
and with a key picture every two seconds, because a recording must be joined and searched. For each of the worker's
encoders, the table says at its usual quality the bytes and the processor time for a changed picture, and both as
multiples of what the other encoders take for the same likeness of brightness.
"""

import argparse
import json
import os
import pathlib
import subprocess
import sys

from quality import RATE, at, ssim

ROOT = pathlib.Path(__file__).resolve().parents[1]
WINE_RUN = ROOT / "scripts" / "wine-run.sh"
SCENES = {"terminal": (1280, 720), "web": (1280, 720), "windows": (1280, 720), "typing": (1280, 720),
          "mix": (1920, 1080), "motion": (1280, 720)}
OURS = {"H.264": "mp4", "VP9": "webm"}
QUALITIES = (60, 80, 92)
USUAL_QUALITY = 80
LIKE_OURS = ["-threads", "1", "-g", str(2 * RATE)]
PEERS = {
    "veryfast": [["-c:v", "libx264", "-preset", "veryfast", "-crf", str(crf)] for crf in (29, 23, 17)],
    "ultrafast": [["-c:v", "libx264", "-preset", "ultrafast", "-crf", str(crf)] for crf in (29, 23, 17)],
    "libvpx": [["-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-b:v", "0", "-crf", str(crf)]
               for crf in (44, 34, 22)],
}
LIMIT_S = 300


class Pictures:
    """One kind of content: the pictures as they were drawn, and as the reference."""

    def __init__(self, player, folder, scene, count):
        self.scene, self.count, self._player, self._folder = scene, count, player, folder
        width, height = SCENES[scene]
        self._raw = folder / f"{scene}.raw"
        self.reference = folder / f"{scene}.mkv"
        self._input = ["-f", "rawvideo", "-pix_fmt", "bgr0", "-s", f"{width}x{height}", "-r", str(RATE),
                       "-i", self._raw]
        self._play("write", self._raw)
        self._convert = ["-vf", "scale=out_color_matrix=bt709:out_range=tv,format=yuv420p"]
        self._ffmpeg(self._convert + ["-c:v", "ffv1", self.reference])
        self._reading_s = self._ffmpeg(["-c:v", "copy", "-f", "null", "-"])

    def remove(self):
        self._raw.unlink()
        self.reference.unlink()

    def _play(self, command, path, *more):
        return subprocess.check_output([WINE_RUN, self._player, command, self.scene, str(self.count), path, *more],
                                       text=True, timeout=LIMIT_S, env={**os.environ, "WINEDEBUG": "-all"})

    def _ffmpeg(self, arguments):
        """Seconds of processor time that a run took."""
        before = os.times()
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *self._input, *arguments], check=True,
                       timeout=LIMIT_S)
        after = os.times()
        return after.children_user + after.children_system - before.children_user - before.children_system

    def by_us(self, ending, quality):
        path = self._folder / f"{self.scene}-{quality}.{ending}"
        facts = json.loads(self._play("encode", "Z:" + str(path).replace("/", "\\"), str(quality)))
        return self._point(path, facts["cpu_ms"] / facts["changed"], facts["changed"]), facts

    def by_ffmpeg(self, arguments, changed):
        path = self._folder / f"{self.scene}-peer.mkv"
        seconds = self._ffmpeg(self._convert + arguments + LIKE_OURS + [path])
        return self._point(path, 1000 * (seconds - self._reading_s) / changed, changed)

    def _point(self, path, cpu_ms, changed):
        point = {"bytes": path.stat().st_size, "cpu": max(cpu_ms, 0.01), "ssim": ssim(path, self.reference),
                 "changed": changed}
        path.unlink()
        return point


def compare(pictures):
    ours = {}
    changed = 0
    for name, ending in OURS.items():
        ours[name] = {}
        for quality in QUALITIES:
            ours[name][quality], facts = pictures.by_us(ending, quality)
            changed = facts["changed"]
    peers = {name: [pictures.by_ffmpeg(arguments, changed) for arguments in settings]
             for name, settings in PEERS.items()}
    for name, points in ours.items():
        usual = points[USUAL_QUALITY]
        line = (f"{pictures.scene:9} {name:6} {usual['bytes'] * 8 * RATE / pictures.count / 1000:8.0f} kbit/s "
                f"{usual['cpu']:6.2f} ms  SSIM {usual['ssim']:.4f}")
        for peer, peer_points in peers.items():
            line += (f" | {peer} x{usual['bytes'] / at(peer_points, usual['ssim'], 'bytes'):.2f} bytes "
                     f"x{usual['cpu'] / at(peer_points, usual['ssim'], 'cpu'):.2f} CPU")
        print(line, flush=True)
    return {"ours": ours, "peers": peers}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/mingw-release/bin",
                        help="folder with the built programs and DLLs")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build/benchmarks", help="folder for the files")
    parser.add_argument("--pictures", type=int, default=150, help="of each kind of content, 30 a second (%(default)s)")
    parser.add_argument("--json", type=pathlib.Path, help="file for every measured point")
    parser.add_argument("scenes", nargs="*", metavar="SCENE", default=list(SCENES), help=", ".join(SCENES))
    settings = parser.parse_args()
    settings.work.mkdir(parents=True, exist_ok=True)
    results = {}
    for scene in settings.scenes:
        pictures = Pictures(settings.bin / "sceneplayer.exe", settings.work.resolve(), scene, settings.pictures)
        try:
            results[scene] = compare(pictures)
        finally:
            pictures.remove()
    if settings.json:
        settings.json.write_text(json.dumps(results, indent=1))


if __name__ == "__main__":
    sys.exit(main())
