"""The live view's delay from glass to glass: the recorded display and the display that a browser's window fills are
both read from memory, and each number that the pattern shows is waited for on both."""

import mmap
import os
import struct
import subprocess
import time

from live_test import SHOWN_LIMIT_S, LiveCase
from recordcase import main
from stage import SCREEN_HEIGHT, SCREEN_WIDTH, wait_until
from video import BLOCK_WIDTH, COUNTER_BITS, COUNTER_HEIGHT, COUNTER_TOP

SETTLE_S = 2
SPAN_S = 6
POLL_S = 0.0005
FEWEST_NUMBERS = 5  # on a machine that is busy with other builds
LONGEST_DELAY_S = 5  # above it, a number is an earlier round's
PICTURES = """(() => {
  const image = new Image();
  image.src = "stream";
  image.style = "position: fixed; inset: 0; width: 100vw; height: 100vh; max-width: none; max-height: none; opacity: 1";
  document.body.replaceChildren(image);
})()"""
VIDEO = """document.getElementById("full").click()"""


class Screen:
    """What a virtual display shows: its file, in which each pixel has four bytes."""

    def __init__(self, folder):
        with open(folder / "Xvfb_screen0", "rb") as file:
            self._memory = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
        header = struct.unpack(">25I", self._memory[:100])
        row, first = header[12], header[0] + header[19] * 12
        y = COUNTER_TOP + COUNTER_HEIGHT // 2
        self._places = [first + y * row + (block * BLOCK_WIDTH + BLOCK_WIDTH // 2) * 4 for block in range(COUNTER_BITS)]

    def counter(self):
        number = 0
        for place in self._places:
            bit = self._memory[place] >= 128
            number = number << 1 | (bit ^ (number & 1))
        return number


class Delay(LiveCase):
    def open_window(self):
        """A browser whose window fills a display of its own, and that display."""
        folder = self.stage.new_path("display")
        folder.mkdir()
        reader, writer = os.pipe()
        xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-fbdir", str(folder), "-screen", "0",
                                 f"{SCREEN_WIDTH}x{SCREEN_HEIGHT}x24", "-nolisten", "tcp"],
                                pass_fds=[writer], stderr=subprocess.DEVNULL)
        self.addCleanup(xvfb.communicate)
        self.addCleanup(xvfb.kill)
        os.close(writer)
        with os.fdopen(reader) as answer:
            display = answer.readline().strip()
        return self.new_browser(display=f":{display}", size=(SCREEN_WIDTH, SCREEN_HEIGHT)), Screen(folder)

    def measure(self, shown):
        """The delays, in milliseconds, of all the numbers that come to the browser's display."""
        source = Screen(self.stage.display_memory)
        drawn, seen, delays = {}, set(), []
        end = time.monotonic() + SPAN_S
        while (now := time.monotonic()) < end:
            drawn.setdefault(source.counter(), now)
            number = shown.counter()
            if number in drawn and number not in seen and now - drawn[number] < LONGEST_DELAY_S:
                seen.add(number)
                delays.append((now - drawn[number]) * 1000)
            time.sleep(POLL_S)
        return sorted(delays[1:])  # the first was there when the look began

    def test_VideoAndPictures_AreMeasuredInTheSameRun(self):
        host = self.start()
        browser, shown = self.open_window()
        for name, begin in (("video", VIDEO), ("pictures", PICTURES)):
            with self.subTest(name=name):
                browser.open(host.url)
                wait_until(lambda: browser.ask("document.body?.dataset.state") == "live", SHOWN_LIMIT_S, "the picture")
                browser.ask(begin)
                time.sleep(SETTLE_S)
                delays = self.measure(shown)
                self.assertGreater(len(delays), FEWEST_NUMBERS)
                print(f"{name}: {len(delays)} numbers in {SPAN_S} s, delay median {delays[len(delays) // 2]:.1f} ms, "
                      f"95 % {delays[len(delays) * 95 // 100]:.1f} ms; load {os.getloadavg()[0]:.1f}; "
                      f"{host.status()['bitsPerSecond'] / 8000:.0f} kB/s of video")


if __name__ == "__main__":
    main()
