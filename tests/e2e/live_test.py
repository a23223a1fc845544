"""The live picture as its viewers get it: a real browser, viewers that misbehave, and the ends of the server."""

import http.client
import json
import os
import pathlib
import re
import shutil
import socket
import subprocess
import threading
import time

from browser import Browser
from recordcase import RecordCase, main
from stage import RUN_LIMIT_S, SCREEN_HEIGHT, SCREEN_WIDTH, WINE_RUN, WORKER, wait_until
from stephost import StepHost
from video import (BLOCK_WIDTH, COLUMN_WIDTH, COLUMNS, COLUMNS_BOTTOM, COUNTER_BITS, COUNTER_HEIGHT, COUNTER_TOP,
                   expect_colour)

LIVE_HOST = "livehost.exe"
SHOWN_LIMIT_S = 30
WORKER_STOP_LIMIT_S = 1
LOST_HOST_LIMIT_S = 1
REPLAY_S = 3
CPU_SPAN_S = 4

# The number that the pattern shows, read from the page's own picture.
READ_COUNTER = f"""(() => {{
  const row = new OffscreenCanvas({SCREEN_WIDTH}, 1).getContext("2d");
  row.drawImage(document.getElementById("picture"), 0, {-COUNTER_TOP - COUNTER_HEIGHT // 2});
  const pixels = row.getImageData(0, 0, {SCREEN_WIDTH}, 1).data;
  let number = 0;
  for (let block = 0; block < {COUNTER_BITS}; ++block) {{
    const bit = pixels[(block * {BLOCK_WIDTH} + {BLOCK_WIDTH // 2}) * 4] >= 128 ? 1 : 0;
    number = number * 2 + (bit ^ (number & 1));
  }}
  return number;
}})()"""
PICTURE_PLACE = """(() => {
  const place = document.getElementById("picture").getBoundingClientRect();
  return [place.left, place.top, place.width, place.height];
})()"""

# The page's clock runs three times as fast, for shorter pauses; "tries" has the moments at which the stream is tried.
DECODER_TRIES = 3
BROKEN_DECODER = """
  window.isBroken = true;
  window.tries = [];
  const now = performance.now.bind(performance);
  performance.now = () => 3 * now();
  const add = MediaSource.prototype.addSourceBuffer;
  MediaSource.prototype.addSourceBuffer = function (type) { tries.push(now()); return add.call(this, type); };
  const append = SourceBuffer.prototype.appendBuffer;
  SourceBuffer.prototype.appendBuffer = function (bytes) {
    if (isBroken) throw new DOMException("broken", "QuotaExceededError");
    return append.call(this, bytes);
  };
"""


class LiveServer:
    """A live server as its clients reach it."""

    def __init__(self, port):
        self.port = port

    @property
    def url(self):
        return f"http://127.0.0.1:{self.port}/"

    def get(self, path, headers=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=SHOWN_LIMIT_S)
        try:
            connection.request("GET", path, headers=headers or {})
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()

    def status(self):
        return json.loads(self.get("/status")[1])

    def connect(self, request=b""):
        connection = socket.create_connection(("127.0.0.1", self.port), timeout=SHOWN_LIMIT_S)
        connection.sendall(request)
        return connection

    def stuck_viewer(self):
        """A viewer that asks for the stream and never reads a byte."""
        before = self.status()["clients"]
        connection = self.connect(b"GET /stream HTTP/1.1\r\nHost: localhost\r\n\r\n")
        wait_until(lambda: self.status()["clients"] > before, SHOWN_LIMIT_S, "the viewer's place")
        return connection


class LiveHost(LiveServer):
    """A host with a running live server, or one whose server did not start."""

    def __init__(self, stage, port=0, clients=0):
        self._stage = stage
        command = [WINE_RUN, stage.folder / LIVE_HOST, str(port), str(clients)]
        self._process = subprocess.Popen(command, env=stage.environment, text=True, stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE)
        self.first_line = self._process.stdout.readline().strip()
        started = re.fullmatch(r"port (\d+)", self.first_line)
        super().__init__(int(started.group(1)) if started else None)

    def stop(self):
        """Says stop; the worker's exit code and the milliseconds that it took to end."""
        output, _ = self._process.communicate(timeout=RUN_LIMIT_S)
        ended = re.search(r"ended (\d+) after (\d+) ms", output)
        return (int(ended.group(1)), int(ended.group(2))) if ended else None

    def end(self):
        """Ends what a failed case left behind."""
        if self._process.stdin.closed:
            return
        try:
            self._process.communicate(timeout=RUN_LIMIT_S)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.communicate()

    def kill(self):
        self._stage.kill(LIVE_HOST)
        self._process.communicate(timeout=RUN_LIMIT_S)


class VideoReader:
    """A viewer of the video stream that counts its fragments."""

    def __init__(self, server):
        self._connection = server.connect(b"GET /stream.mp4 HTTP/1.1\r\nHost: localhost\r\n\r\n")
        self._fragments = 0
        self._changed = threading.Condition()
        self._thread = threading.Thread(target=self._read)
        self._thread.start()

    def _read(self):
        try:
            while chunk := self._connection.recv(65536):
                with self._changed:
                    self._fragments += chunk.count(b"moof")
                    self._changed.notify_all()
        except OSError:
            pass

    def wait_for(self, fragments):
        with self._changed:
            return self._changed.wait_for(lambda: self._fragments >= fragments, SHOWN_LIMIT_S)

    def close(self):
        try:
            self._connection.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._thread.join()
        self._connection.close()


def cpu_share(process):
    """What a process of the build machine takes of a core, in percent, over some seconds."""
    def ticks():
        fields = pathlib.Path(f"/proc/{process}/stat").read_text(encoding="ascii").rsplit(")", 1)[1].split()
        return int(fields[11]) + int(fields[12])
    before = ticks()
    time.sleep(CPU_SPAN_S)
    return (ticks() - before) / os.sysconf("SC_CLK_TCK") / CPU_SPAN_S * 100


def read_everything(connection):
    received = b""
    try:
        while chunk := connection.recv(65536):
            received += chunk
    except ConnectionResetError:
        pass
    return received


class Screenshot:
    """A screenshot of the page, as a function from the shown screen's coordinates to colours."""

    def __init__(self, path, place):
        self._left, self._top, width, _ = place
        self._scale = width / SCREEN_WIDTH
        probe = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=width", "-of", "csv=p=0", path],
                               capture_output=True, text=True, check=True)
        self._row = int(probe.stdout) * 3
        self._pixels = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"],
                                      capture_output=True, check=True).stdout

    def colour(self, x, y):
        start = int(self._top + y * self._scale) * self._row + int(self._left + x * self._scale) * 3
        return tuple(self._pixels[start:start + 3])

    def counter(self):
        number = 0
        for block in range(COUNTER_BITS):
            bit = self.colour((block + 0.5) * BLOCK_WIDTH, COUNTER_TOP + COUNTER_HEIGHT // 2)[0] >= 128
            number = number << 1 | (bit ^ (number & 1))
        return number


class LiveCase(RecordCase):
    """What all tests of the live view have in common: hosts that serve, and browsers."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        shutil.copy(cls.settings.bin / LIVE_HOST, cls.stage.folder)

    def start(self, **options):
        host = LiveHost(self.stage, **options)
        self.addCleanup(host.end)
        self.assertIsNotNone(host.port, host.first_line)
        return host

    def new_browser(self, **options):
        browser = Browser(self.stage.new_path("profile"), **options)
        self.addCleanup(browser.close)
        return browser

    def open_browser(self, url, **options):
        browser = self.new_browser(**options)
        browser.open(url)
        wait_until(lambda: browser.ask("document.body?.dataset.state") == "live", SHOWN_LIMIT_S, "a live picture")
        return browser


class Live(LiveCase):
    def rate_shown(self, browser):
        return browser.ask("parseFloat(document.getElementById('rate').textContent) || 0")

    def expect_moving(self, browser):
        numbers = []
        for _ in range(3):
            wait_until(lambda: browser.ask(READ_COUNTER) > (numbers[-1] if numbers else 0), SHOWN_LIMIT_S,
                       "another picture")
            numbers.append(browser.ask(READ_COUNTER))
        self.assertEqual(numbers, sorted(set(numbers)))

    def expect_stop(self, host):
        code, milliseconds = host.stop()
        self.assertEqual(code, 0)
        self.assertLess(milliseconds / 1000, WORKER_STOP_LIMIT_S)

    def test_PageInABrowser_ShowsAMovingPictureBesideAViewerThatDoesNotRead(self):
        host = self.start()
        stuck = host.stuck_viewer()
        self.addCleanup(stuck.close)
        browser = self.open_browser(host.url)
        self.expect_moving(browser)
        wait_until(lambda: self.rate_shown(browser) > 0, SHOWN_LIMIT_S, "the stream's rate")
        self.assertRegex(browser.ask("document.title"), r"^\d+\.\d fps – Live screen$")

        place = browser.ask(PICTURE_PLACE)
        self.assertAlmostEqual(place[2] / place[3], SCREEN_WIDTH / SCREEN_HEIGHT, places=1)
        counters = []
        for name in ("live-first.png", "live-second.png"):
            path = self.stage.files / name
            browser.screenshot(path)
            picture = Screenshot(path, place)
            for column, colour in enumerate(COLUMNS):
                expect_colour(self, picture.colour((column + 0.5) * COLUMN_WIDTH, COLUMNS_BOTTOM - 20), colour,
                              f"column {column} of {name}")
            counters.append(picture.counter())
            self.expect_moving(browser)
        self.assertGreater(counters[1], counters[0])
        self.assertEqual(browser.complaints, [])
        self.expect_stop(host)

    def test_FullScreenButton_GivesThePictureTheWholeWindow(self):
        host = self.start()
        browser = self.open_browser(host.url)
        browser.ask("document.getElementById('full').click()")
        wait_until(lambda: browser.ask("document.fullscreenElement?.id") == "stage", SHOWN_LIMIT_S, "the full screen")
        left, top, width, height = browser.ask(PICTURE_PLACE)
        self.assertEqual((left, top), (0, 0))
        self.assertEqual([width, height], browser.ask("[innerWidth, innerHeight]"))
        self.expect_moving(browser)

    def test_PlainPictureElement_ShowsTheStreamToo(self):
        host = self.start()
        browser = self.open_browser(host.url)
        browser.ask("document.body.replaceChildren(Object.assign(new Image(), {src: '/stream', id: 'plain'}))")
        wait_until(lambda: browser.ask("document.getElementById('plain').naturalWidth") == SCREEN_WIDTH,
                   SHOWN_LIMIT_S, "the stream in a picture element")

    def test_PageWhoseServerHasNoVideo_ShowsPictures(self):
        host = self.start()
        browser = self.new_browser()
        browser.before_every_page("delete window.MediaSource; delete window.ManagedMediaSource;")
        browser.open(host.url)
        wait_until(lambda: browser.ask("document.body?.dataset.state") == "live", SHOWN_LIMIT_S, "a live picture")
        self.assertEqual(browser.ask("document.getElementById('still').naturalWidth"), SCREEN_WIDTH)
        self.assertTrue(browser.ask("document.getElementById('picture').hidden"))

    def test_DecoderThatFails_IsReplacedByPicturesAndTriedAgainAfterPausesThatGrow(self):
        host = self.start()
        browser = self.new_browser()
        browser.before_every_page(BROKEN_DECODER)
        browser.open(host.url)
        wait_until(lambda: browser.ask("tries.length") >= DECODER_TRIES + 1, SHOWN_LIMIT_S, "a try after a pause")
        wait_until(lambda: browser.ask("document.body.dataset.state") == "live", SHOWN_LIMIT_S, "pictures")
        self.assertEqual(browser.ask("document.getElementById('still').naturalWidth"), SCREEN_WIDTH)
        browser.ask("isBroken = false")
        wait_until(lambda: not browser.ask("document.getElementById('picture').hidden"), SHOWN_LIMIT_S, "the stream")
        self.expect_moving(browser)
        tries = browser.ask("tries")
        self.assertEqual(len(tries), DECODER_TRIES + 2)
        self.assertGreater(tries[-1] - tries[-2], tries[-2] - tries[-3])

    def test_Keyboard_SavesThePictureAndFillsTheScreen(self):
        host = self.start()
        browser = self.open_browser(host.url)
        browser.ask("document.getElementById('snapshot').addEventListener('click', (event) => {"
                    " event.preventDefault(); window.saved = event.currentTarget.download; })")
        browser.ask("document.dispatchEvent(new KeyboardEvent('keydown', {key: 's'}))")
        self.assertRegex(browser.ask("window.saved"), r"\Ascreen \d{4}-\d\d-\d\dT\d\d\.\d\d\.\d\d\.jpg\Z")
        browser.ask("document.dispatchEvent(new KeyboardEvent('keydown', {key: 'f'}))")
        wait_until(lambda: browser.ask("document.fullscreenElement?.id") == "stage", SHOWN_LIMIT_S, "the full screen")

    def test_KilledWorkerUnderAnOpenPage_IsReplacedByTheNext(self):
        host = self.start()
        browser = self.open_browser(host.url)
        self.stage.kill(WORKER)
        wait_until(lambda: browser.ask("document.body.dataset.state") == "lost", SHOWN_LIMIT_S, "the lost connection")
        self.assertRegex(browser.ask("document.getElementById('state').textContent"), r"\ATrying again: ")
        host.end()
        again = self.start(port=host.port)
        wait_until(lambda: browser.ask("document.body.dataset.state") == "live", SHOWN_LIMIT_S, "the next worker")
        self.expect_moving(browser)
        self.expect_stop(again)

    def test_ViewerThatComesAndGoesAHundredTimes_LeavesNothing(self):
        host = self.start(clients=2)
        for path in (b"/stream.mp4", b"/stream") * 50:
            viewer = host.connect(b"GET " + path + b" HTTP/1.1\r\nHost: localhost\r\n\r\n")
            while not (received := viewer.recv(4096)).startswith(b"HTTP/1.1 200"):
                self.assertTrue(received.startswith(b"HTTP/1.1 503"), received[:100])
                viewer.close()
                viewer = host.connect(b"GET " + path + b" HTTP/1.1\r\nHost: localhost\r\n\r\n")
            viewer.close()
        wait_until(lambda: host.status()["clients"] == 0, SHOWN_LIMIT_S, "the viewers' places")
        self.expect_moving(self.open_browser(host.url))
        self.expect_stop(host)

    def test_HalfOpenRequests_HoldUpNoGoodOne(self):
        host = self.start()
        for _ in range(300):
            self.addCleanup(host.connect(b"GET / HTTP/1.1\r\nHo").close)
        began = time.monotonic()
        self.assertEqual(host.get("/status")[0], 200)
        print(f"a request beside 300 half-open ones: {(time.monotonic() - began) * 1000:.0f} ms")
        self.expect_stop(host)

    def test_SixtyFourViewers_AreServedAlthoughHalfOfThemDoNotRead(self):
        host = self.start(clients=64)
        worker, = self.stage.processes(WORKER)
        readers = [VideoReader(host)]
        self.addCleanup(lambda: [reader.close() for reader in readers])
        self.assertTrue(readers[0].wait_for(1))
        alone = cpu_share(worker)
        stuck = [host.connect(b"GET /stream.mp4 HTTP/1.1\r\nHost: localhost\r\n\r\n") for _ in range(32)]
        self.addCleanup(lambda: [viewer.close() for viewer in stuck])
        readers += [VideoReader(host) for _ in range(31)]
        for reader in readers:
            self.assertTrue(reader.wait_for(10))
        self.assertEqual(host.status()["clients"], 64)
        together = cpu_share(worker)
        print(f"processor time of the worker: {alone:.1f} % of a core with one viewer, {together:.1f} % with 64")
        self.expect_stop(host)

    def test_PageOutlivingItsServer_SaysSoAndFindsTheNextOne(self):
        host = self.start()
        browser = self.open_browser(host.url)
        self.expect_stop(host)
        wait_until(lambda: browser.ask("document.body.dataset.state") == "lost", SHOWN_LIMIT_S, "the lost connection")
        again = self.start(port=host.port)
        wait_until(lambda: browser.ask("document.body.dataset.state") == "live", SHOWN_LIMIT_S, "the next server")
        self.expect_moving(browser)
        self.expect_stop(again)

    def test_ViewersAboveTheLimit_AreTurnedAway(self):
        host = self.start(clients=1)
        stuck = host.stuck_viewer()
        self.assertEqual(host.get("/stream")[0], 503)
        self.assertEqual(host.get("/snapshot.jpg")[1][:2], b"\xff\xd8")
        stuck.close()
        browser = self.open_browser(host.url)
        self.expect_moving(browser)

    def test_BadRequests_LeaveTheServerServing(self):
        host = self.start()
        for request, status in ((b"GET /nothing HTTP/1.1\r\nHost: localhost\r\n\r\n", b"404"),
                                (b"POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3\r\n\r\nabc", b"405"),
                                (b"GET / HTTP/1.1\r\nHost: example.org\r\n\r\n", b"403"),
                                (b"\x00\xff" * 5000 + b"\r\n\r\n", b"4"),
                                (b"GET / HTTP/1.1\r\nX: " + b"a" * 1000000, b"4"),
                                (b"GET / HTTP/1.1\r\nHost: localhost\r\n"
                                 b"Range: bytes=0-0" + b",1-1" * 1900 + b"\r\n\r\n", b"200")):
            with self.subTest(request=request[:40]):
                connection = host.connect()
                try:
                    connection.sendall(request)
                except ConnectionError:
                    pass
                self.assertTrue(read_everything(connection).startswith(b"HTTP/1.1 " + status))
                connection.close()
        self.assertEqual(host.get("/snapshot.jpg")[1][:2], b"\xff\xd8")
        self.expect_stop(host)

    def test_PortInUse_IsRefusedAndTheFirstServerGoesOn(self):
        first = self.start()
        second = LiveHost(self.stage, port=first.port)
        self.addCleanup(second.end)
        self.assertEqual(second.first_line, "starting the live server failed: 0")
        self.assertEqual(first.status()["clients"], 0)
        self.expect_stop(first)

    def test_KilledHost_TakesItsWorkerAlongDespiteViewers(self):
        host = self.start()
        stuck = host.stuck_viewer()
        self.addCleanup(stuck.close)
        browser = self.open_browser(host.url)
        host.kill()
        killed = time.monotonic()
        self.stage.expect_ended(WORKER)
        self.assertLess(time.monotonic() - killed, LOST_HOST_LIMIT_S)
        wait_until(lambda: browser.ask("document.body.dataset.state") == "lost", SHOWN_LIMIT_S, "the lost connection")

    def start_after_replay(self, host):
        """Gives the replay something to keep, then starts the live server instead of a recording."""
        host.prepare(REPLAY_S)
        time.sleep(REPLAY_S / 2)
        server = LiveServer(host.live())
        stuck = server.stuck_viewer()
        self.addCleanup(stuck.close)
        browser = self.open_browser(server.url)
        self.expect_moving(browser)
        wait_until(lambda: self.rate_shown(browser) > 0, SHOWN_LIMIT_S, "the stream's rate")
        return browser

    def test_LiveAfterReplay_IsStoppedInTimeDespiteViewers(self):
        with StepHost(self.stage, self.settings.bin) as host:
            browser = self.start_after_replay(host)
            stopped = time.monotonic()
            self.assertEqual(host.stop(), 0)
            self.assertLess(time.monotonic() - stopped, WORKER_STOP_LIMIT_S)
            wait_until(lambda: browser.ask("document.body.dataset.state") == "lost", SHOWN_LIMIT_S,
                       "the lost connection")

    def test_LiveAfterReplay_EndsInTimeWhenItsHostIsGone(self):
        with StepHost(self.stage, self.settings.bin) as host:
            browser = self.start_after_replay(host)
            left = time.monotonic()
            host.leave()
            self.stage.expect_ended(WORKER)
            self.assertLess(time.monotonic() - left, LOST_HOST_LIMIT_S)
            wait_until(lambda: browser.ask("document.body.dataset.state") == "lost", SHOWN_LIMIT_S,
                       "the lost connection")


if __name__ == "__main__":
    main()
