"""The formats of recordings in other programs' players: ffmpeg and a browser, for whole files and for ones whose end
is missing."""

import functools
import http.server
import os
import random
import pathlib
import re
import shutil
import threading
import unittest

from browser import Browser
from packets import HEIGHT, WIDTH, Material, Probe, Recording, Writes, numbers_in
from recordcase import RecordCase, main

COUNT = 90
RATE = 30
LENGTH_S = COUNT / RATE
KEY = 30  # pictures from one key picture to the next
START = 45  # of the replay: between two key pictures
STOPS = 40
CUTS = 10
LENGTH_TOLERANCE_S = 0.07  # an unfinished file's sound begins with its decoder's delay
FORMATS = (("mp4", "h264", "aac"), ("webm", "vp9", "opus"), ("mkv", "h264", "aac"))

# Opens a file in the page, waits for its head and gives what it says.
OPEN = """new Promise((done, refuse) => {
  document.body.innerHTML = "<video muted></video>";
  const video = document.querySelector("video");
  video.onerror = () => refuse(new Error(video.error.message));
  video.onloadeddata = () => done([video.videoWidth, video.videoHeight, video.duration]);
  video.src = %r;
})"""
# Seeks, and reads the number in the picture of that time once it is on the page: the player may tell that it has sought
# while the picture before is still the one that is painted.
SEEK = """new Promise((done, refuse) => {
  const video = document.querySelector("video");
  const place = %f;
  let hasSought = false;
  let shown = -1;
  const readIfThere = () => {
    if (!hasSought || shown > place || shown + %f <= place) return;
    const canvas = document.createElement("canvas");
    canvas.width = video.videoWidth;
    canvas.height = video.videoHeight;
    const context = canvas.getContext("2d");
    context.drawImage(video, 0, 0);
    const row = context.getImageData(0, video.videoHeight / 2, video.videoWidth, 1).data;
    let number = 0;
    for (let bit = 0; bit < 8; ++bit) number = number * 2 + (row[(bit * 40 + 20) * 4] >= 128 ? 1 : 0);
    done(number);
  };
  const notePicture = (_, picture) => {
    shown = picture.mediaTime;
    video.requestVideoFrameCallback(notePicture);
    readIfThere();
  };
  video.requestVideoFrameCallback(notePicture);
  video.onerror = () => refuse(new Error(video.error.message));
  video.onseeked = () => {
    hasSought = true;
    readIfThere();
  };
  video.currentTime = place;
})"""
PLAY = """new Promise((done, refuse) => {
  const video = document.querySelector("video");
  video.onerror = () => refuse(new Error(video.error.message));
  video.onended = () => done(video.currentTime);
  video.playbackRate = 4;
  video.currentTime = 0;
  video.play().catch(refuse);
})"""


class _Handler(http.server.SimpleHTTPRequestHandler):
    """Files with byte ranges, which a browser's player seeks with."""

    def log_message(self, *_):
        pass

    def do_GET(self):
        try:
            content = pathlib.Path(self.translate_path(self.path)).read_bytes()
        except OSError:
            content = b"<!doctype html><title>player</title><body>"
            return self._answer(200, "text/html", content, {})
        kind = {"mp4": "video/mp4", "webm": "video/webm", "mkv": "video/x-matroska"}[self.path.rsplit(".", 1)[1]]
        asked = re.fullmatch(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
        if asked is None:
            return self._answer(200, kind, content, {"Accept-Ranges": "bytes"})
        first, last = int(asked[1]), min(int(asked[2] or len(content)), len(content) - 1)
        return self._answer(206, kind, content[first:last + 1],
                            {"Accept-Ranges": "bytes", "Content-Range": f"bytes {first}-{last}/{len(content)}"})

    def _answer(self, status, kind, content, headers):
        self.send_response(status)
        for name, value in {"Content-Type": kind, "Content-Length": str(len(content)), **headers}.items():
            self.send_header(name, value)
        self.end_headers()
        try:
            self.wfile.write(content)
        except ConnectionError:
            pass


class Formats(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        settings = RecordCase.settings
        cls.files = settings.work.resolve() / "formats"
        shutil.rmtree(cls.files, ignore_errors=True)
        cls.files.mkdir(parents=True)
        cls.writer = settings.bin / "filewriter.exe"
        cls.environment = {**os.environ, "KX_WINEPREFIX": str(cls.files / "prefix")}
        cls.material = Material(cls.files, COUNT, RATE)

    def write(self, recording, name):
        return recording.write(self.writer, self.files / name, self.environment)

    def record(self, picture, sound=None, start=0.0):
        return Recording(self.material, picture, sound, start)

    def test_FinishedFile_HasEveryPictureAndItsLength(self):
        for extension, picture, sound in FORMATS:
            with self.subTest(extension):
                path = self.write(self.record(picture, sound).pictures(0, COUNT).finish(LENGTH_S), f"a.{extension}")
                facts = Probe(path)
                self.assertEqual(facts.complaints, "")
                self.assertEqual(numbers_in(path), list(range(COUNT)))
                self.assertAlmostEqual(facts.duration_s, LENGTH_S, places=3)
                self.assertEqual(facts.codecs, [picture, sound])
                self.assertEqual(facts.size, (WIDTH, HEIGHT))

    def test_UnchangedPicture_LastsUntilTheNextOne(self):
        for extension, picture, _ in FORMATS:
            with self.subTest(extension):
                recording = self.record(picture).picture(0, 0).picture(1, 0.1).picture(2, 7.5).finish(20.25)
                path = self.write(recording, f"b.{extension}")
                facts = Probe(path)
                self.assertEqual(facts.complaints, "")
                self.assertEqual([round(time, 3) for time in facts.times_s], [0, 0.1, 7.5])
                self.assertAlmostEqual(facts.duration_s, 20.25, places=3)

    def test_FileWithoutItsEnd_PlaysUpToTheFlush(self):
        for extension, picture, sound in FORMATS:
            with self.subTest(extension):
                path = self.write(self.record(picture, sound).pictures(0, 80).flush(2.75), f"c.{extension}")
                facts = Probe(path)
                self.assertEqual(facts.complaints, "")
                self.assertEqual(numbers_in(path), list(range(80)))
                self.assertAlmostEqual(facts.duration_s, 2.75, delta=0.05)

    def test_WritingThatStopsAtAnyByte_LeavesWhatWasThere(self):
        chance = random.Random(25)
        for extension, picture, _ in FORMATS:
            with self.subTest(extension):
                recording = self.record(picture)
                for first in range(0, COUNT, 10):
                    recording.pictures(first, first + 10).flush((first + 10) / RATE)
                path = self.write(recording.finish(LENGTH_S), f"d.{extension}")
                first_picture = self.material.of(picture).packets[0][1]
                writes = Writes(path)
                self.assertEqual(writes.file(writes.total), path.read_bytes())
                begin = next(size for size in range(0, writes.total, 50) if first_picture in writes.file(size)) + 100
                counts = []
                for stop in sorted(chance.randrange(begin, writes.total) for _ in range(STOPS)):
                    cut = self.files / f"stopped.{extension}"
                    cut.write_bytes(writes.file(stop))
                    seen = numbers_in(cut, may_complain=True)
                    self.assertEqual(seen, list(range(len(seen))), f"stopped after {stop} of {writes.total} bytes")
                    counts.append(len(seen))
                self.assertEqual(counts, sorted(counts))
                self.assertGreaterEqual(counts[0], 1)
                self.assertGreater(counts[-1], COUNT // 2)

    def test_FinishedFileThatWasCut_PlaysWhatIsLeft(self):
        chance = random.Random(4)
        for extension, picture, _ in FORMATS[1:]:
            with self.subTest(extension):
                recording = self.record(picture).pictures(0, COUNT).finish(LENGTH_S)
                whole = self.write(recording, f"f.{extension}").read_bytes()
                for _ in range(CUTS):
                    cut = self.files / f"cut.{extension}"
                    cut.write_bytes(whole[:chance.randrange(len(whole) // 4, len(whole))])
                    seen = numbers_in(cut, may_complain=True)
                    self.assertEqual(seen, list(range(len(seen))))
                    self.assertGreaterEqual(len(seen), COUNT // 8)

    def test_StartBetweenKeyPictures_InMp4IsExact(self):
        recording = self.record("h264", "aac", start=START / RATE).pictures(KEY, COUNT).finish(LENGTH_S)
        path = self.write(recording, "e.mp4")
        self.assertEqual(numbers_in(path), list(range(START, COUNT)))
        self.assertAlmostEqual(Probe(path).duration_s, LENGTH_S - START / RATE, places=3)

    def test_Browser_OpensSeeksAndPlaysEveryFormat(self):
        browser, site = self._player()
        for extension, picture, sound in FORMATS:
            for name, start, finished in (("whole", 0, True), ("unfinished", 0, False), ("replay", START, True)):
                with self.subTest(f"{name}.{extension}"):
                    recording = self.record(picture, sound, start / RATE).pictures(KEY if start else 0, COUNT)
                    recording = recording.finish(LENGTH_S) if finished else recording.flush(LENGTH_S)
                    path = self.write(recording, f"{name}.{extension}")
                    width, height, duration = browser.ask(OPEN % f"{site}/{path.name}")
                    self.assertEqual((width, height), (WIDTH, HEIGHT))
                    self.assertAlmostEqual(duration, LENGTH_S - start / RATE, delta=LENGTH_TOLERANCE_S)
                    # Matroska cannot say that pictures before a replay's start are not to be shown.
                    places = (1.2, 0.5) if start and extension != "mp4" else (1.2, 0.5, 0)
                    for place in places:
                        shown = browser.ask(SEEK % (place + 0.5 / RATE, 1 / RATE))
                        self.assertEqual(shown, start + round(place * RATE))
                    self.assertAlmostEqual(browser.ask(PLAY), duration, delta=LENGTH_TOLERANCE_S)

    def _player(self):
        server = http.server.ThreadingHTTPServer(
            ("127.0.0.1", 0), functools.partial(_Handler, directory=os.fspath(self.files)))
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        browser = Browser(self.files / "browser")
        self.addCleanup(browser.close)
        site = f"http://127.0.0.1:{server.server_port}"
        browser.open(site + "/player.html")
        return browser, site


if __name__ == "__main__":
    main()
