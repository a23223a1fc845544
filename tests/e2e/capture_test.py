"""What is on the pictures: the pointer, a part of the screen, and a screen whose size changes while it is recorded.

The programs run on a Wine desktop of their own, the one kind whose size can be changed on a virtual display.
"""

import subprocess
import time

from recordcase import RecordCase, main
from stage import SCREEN_HEIGHT, SCREEN_WIDTH, START_LIMIT_S, WINE_RUN, Stage
from stephost import StepHost
from video import COLUMN_WIDTH, COLUMNS, Video, expect_colour, expect_pattern

RATE = 30
BLACK = (0, 0, 0)
POINTER = (240, 100)  # in the middle of the green column
POINTER_COLUMN = 1
POINTER_REACH = 32
VISIBLE_DIFFERENCE = 80

SMALL_SCREEN = (800, 600)
SETTLE_S = 1.0


class DesktopStage(Stage):
    def _start(self):
        self._ask_for_a_desktop()
        super()._start()

    def _ask_for_a_desktop(self):
        """Must be over before a program opens a window: the first one decides."""
        environment = {name: value for name, value in self.environment.items() if name != "DISPLAY"}
        key = "HKCU\\Software\\Wine\\Explorer"
        for name, value, where in (("Desktop", "Default", key),
                                   ("Default", f"{SCREEN_WIDTH}x{SCREEN_HEIGHT}", key + "\\Desktops")):
            subprocess.run([WINE_RUN, "reg", "add", where, "/v", name, "/d", value, "/f"], check=True,
                           env=environment, stdout=subprocess.DEVNULL, timeout=START_LIMIT_S)
        server = subprocess.check_output([WINE_RUN, "--wineserver"], text=True).strip()
        subprocess.run([server, "-w"], check=True, timeout=START_LIMIT_S,
                       env={**environment, "WINEPREFIX": environment["KX_WINEPREFIX"]})


class Capture(RecordCase):
    @classmethod
    def setUpClass(cls):
        cls.stage = DesktopStage(cls.settings.bin, cls.settings.work / cls.__name__.lower())

    def host(self):
        return StepHost(self.stage, self.settings.bin)

    def record_pointer(self, cursor):
        path = self.stage.new_path(f"pointer{cursor}.mp4")
        with self.host() as host:
            host.pointer(*POINTER)
            host.prepare(0, RATE, cursor)
            host.start(path)
            time.sleep(0.5)
            self.assertEqual(host.stop(), 0)
        video = Video(path)
        return video.picture(video.frames - 1)

    @staticmethod
    def pixels_that_differ(picture, left, top, right, bottom):
        wanted = COLUMNS[POINTER_COLUMN]
        return sum(1 for x in range(left, right) for y in range(top, bottom)
                   if max(abs(a - b) for a, b in zip(picture(x, y), wanted)) > VISIBLE_DIFFERENCE)

    def test_Pointer_IsDrawnWhenAskedAndOnlyThere(self):
        x, y = POINTER
        around = (x - POINTER_REACH, y - POINTER_REACH, x + POINTER_REACH, y + POINTER_REACH)
        below = (x - POINTER_REACH, y + POINTER_REACH, x + POINTER_REACH, y + 3 * POINTER_REACH)
        with_pointer = self.record_pointer(1)
        without = self.record_pointer(0)
        self.assertGreater(self.pixels_that_differ(with_pointer, *around), 20)
        self.assertEqual(self.pixels_that_differ(with_pointer, *below), 0)
        self.assertEqual(self.pixels_that_differ(without, *around), 0)

    def test_SystemThatDuplicatesNoScreen_IsNamedOnceInTheLog(self):
        before = self.stage.worker_log() if (self.stage.folder / "KXVCR.log").exists() else ""
        path = self.stage.new_path("fallback.mp4")
        with self.host() as host:
            host.prepare(0, RATE)
            host.start(path)
            time.sleep(0.5)
            self.assertEqual(host.stop(), 0)
        lines = [line for line in self.stage.worker_log()[len(before):].splitlines() if "GDI" in line]
        self.assertEqual(len(lines), 1, lines)
        self.assertRegex(lines[0], "The screen is captured with GDI, because the system does not duplicate it: "
                                   "DuplicateOutput says 0x80004001, ")
        expect_pattern(self, Video(path))

    def record_while_the_screen_changes(self, region=(0, 0, 0, 0), replay_s=0):
        """A recording with the large, the small and again the large screen; returns the video and a picture of each."""
        path = self.stage.new_path("display.mp4")
        with self.host() as host:
            host.prepare(replay_s, RATE, 0, region)
            host.start(path)
            began = time.monotonic()
            moments = []
            for size in (None, SMALL_SCREEN, (SCREEN_WIDTH, SCREEN_HEIGHT)):
                if size:
                    host.display(*size)
                time.sleep(SETTLE_S)
                moments.append(time.monotonic() - began - 0.1)
                time.sleep(0.3)
            lasted = time.monotonic() - began
            self.assertEqual(host.stop(), 0)
        video = Video(path)
        self.assertEqual(video.complaints, "")
        self.assertAlmostEqual(video.duration_s, lasted, delta=1.5)
        return video, [video.picture_at(moment) for moment in moments]

    def test_ScreenThatShrinks_IsScaledBetweenBlackBordersUntilItGrowsBack(self):
        video, (large, small, again) = self.record_while_the_screen_changes()
        self.assertEqual(video.size, (SCREEN_WIDTH, SCREEN_HEIGHT))
        scale = SCREEN_HEIGHT / SMALL_SCREEN[1]
        border = (SCREEN_WIDTH - SMALL_SCREEN[0] * scale) / 2
        for x in (border / 2, SCREEN_WIDTH - border / 2):
            for y in (5, SCREEN_HEIGHT // 2, SCREEN_HEIGHT - 5):
                expect_colour(self, small(int(x), y), BLACK, f"the border at {x}, {y}")
        for column in range(SMALL_SCREEN[0] // COLUMN_WIDTH):
            x = int(border + (column + 0.5) * COLUMN_WIDTH * scale)
            expect_colour(self, small(x, int(100 * scale)), COLUMNS[column], f"column {column}")
        for picture in (large, again):
            for column, colour in enumerate(COLUMNS):
                expect_colour(self, picture(int((column + 0.5) * COLUMN_WIDTH), 100), colour, f"column {column}")
        expect_pattern(self, video)

    def test_RegionPartlyOffTheShrunkenScreen_IsBlackThere(self):
        left, top, width, height = 560, 60, 480, 240
        video, (large, small, again) = self.record_while_the_screen_changes((left, top, width, height))
        self.assertEqual(video.size, (width, height))
        for column in range(left // COLUMN_WIDTH + 1, (left + width) // COLUMN_WIDTH):
            x = int((column + 0.5) * COLUMN_WIDTH) - left
            for picture in (large, again):
                expect_colour(self, picture(x, 100), COLUMNS[column], f"column {column}")
            on_screen = x + left < SMALL_SCREEN[0]
            expect_colour(self, small(x, 100), COLUMNS[column] if on_screen else BLACK, f"column {column}")


if __name__ == "__main__":
    main()
