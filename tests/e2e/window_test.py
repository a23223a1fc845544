"""A window that is recorded wherever it moves, until it is closed; and which window is meant by a title."""

import json
import shutil
import subprocess
import time
import urllib.request

from recordcase import RecordCase, main
from stage import END_LIMIT_S, SCREEN_HEIGHT, SCREEN_WIDTH, WINE_RUN
from stephost import StepFailed, StepHost
from video import Video, expect_colour

PROGRAM = "actor.exe"
RED, GREEN, BLUE, WHITE = (255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 255)
BLACK = (0, 0, 0)
PLACE = (40, 40, 640, 360)  # of a new window
SIZE = PLACE[2:]

PREPARE_REFUSED = 13
NO_WINDOW = 24
WINDOW_CLOSED = 25
CLOSED_SENTENCE = "the recorded window was closed: the file is finished and holds everything until then (code 5)"

SETTLE_S = 0.8
MOST_LOOKS = 30  # one a second
POINTER_REACH = 24
VISIBLE_DIFFERENCE = 80


class Actor:
    """A window that does what it is told; used with "with", so that none is left over."""

    def __init__(self, case, title):
        program = case.stage.folder / PROGRAM
        if not program.exists():
            shutil.copy(case.settings.bin / PROGRAM, program)
        self._process = subprocess.Popen([WINE_RUN, program, title], env=case.stage.environment, text=True,
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.handle = int(self._process.stdout.readline())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.stdin.close()
        self._process.stdout.close()
        self._process.wait(timeout=END_LIMIT_S)

    def do(self, *step):
        self._process.stdin.write(" ".join(map(str, step)) + "\n")
        self._process.stdin.flush()
        answer = self._process.stdout.readline().strip()
        assert answer == "ok", f"{step}: {answer}"


def events(text):
    return [json.loads(line) for line in text.splitlines()]


def quarters(left, top, width, height):
    """Where the middles of the window's quarters are, and their colours."""
    return [((left + width * x // 4, top + height * y // 4), colour)
            for (x, y), colour in (((1, 1), RED), ((3, 1), GREEN), ((1, 3), BLUE), ((3, 3), WHITE))]


class Windows(RecordCase):
    def expect_window(self, picture, place, where):
        for (x, y), colour in quarters(*place):
            expect_colour(self, picture(x, y), colour, f"{x}, {y} {where}")

    def expect_edges(self, picture, where):
        """The borders between the quarters must lie at their pixel."""
        width, height = SIZE
        expect_colour(self, picture(width // 2 - 9, 60), RED, f"left of the middle {where}")
        expect_colour(self, picture(width // 2 + 9, 60), GREEN, f"right of the middle {where}")
        expect_colour(self, picture(60, height // 2 - 9), RED, f"above the middle {where}")
        expect_colour(self, picture(60, height // 2 + 9), BLUE, f"below the middle {where}")
        for x, y, colour in ((2, 2, RED), (width - 3, 2, GREEN), (2, height - 3, BLUE), (width - 3, height - 3, WHITE)):
            expect_colour(self, picture(x, y), colour, f"the corner {x}, {y} {where}")

    @staticmethod
    def pictures_when_it_rests(host, least):
        """How many pictures the file has, at least so many, when no more have come for a second."""
        before = None
        for _ in range(MOST_LOOKS):
            pictures = json.loads(host.first_line())["pictures"]
            if pictures == before and pictures >= least:
                return pictures
            before = pictures
        raise AssertionError(f"the window does not rest: {before} pictures, expected {least}")

    def test_WindowThatMovesShrinksHidesAndCloses_IsFollowedToItsEnd(self):
        path = self.stage.new_path("window.mp4")
        steps = (("at first", True, ()),
                 ("moved", False, (("place", 600, 300, *SIZE),)),
                 ("half as wide", True, (("place", 100, 200, SIZE[0] // 2, SIZE[1]),)),
                 ("minimised", False, (("minimise",),)),
                 ("restored and twice as large", True, (("restore",), ("place", 0, 0, 2 * SIZE[0], 2 * SIZE[1]))),
                 ("partly off the screen", True, (("place", SCREEN_WIDTH - 320, SCREEN_HEIGHT - 180, *SIZE),)))
        counts = {}
        begins = time.monotonic()
        with Actor(self, "Acting window") as actor:
            host = self.stage.start("record", path, "--window", "ACTING", "--json")
            window = json.loads(host.first_line())
            self.assertEqual(window, {"schema": 2, "event": "window", "handle": actor.handle, "title": "Acting window",
                                      "program": PROGRAM, "minimized": False, "left": PLACE[0], "top": PLACE[1],
                                      "width": SIZE[0], "height": SIZE[1]})
            self.assertEqual(json.loads(host.first_line())["event"], "started")
            began = time.monotonic()
            pictures = 0
            for name, is_new, orders in steps:
                for order in orders:
                    actor.do(*order)
                pictures = self.pictures_when_it_rests(host, pictures + is_new)
                counts[name] = pictures
            lasted = time.monotonic() - began
            actor.do("close")
            result = host.finish()
        self.expect_code(result, WINDOW_CLOSED)
        error, finished = events(result.output)[-2:]
        self.assertEqual(error, {"schema": 2, "event": "error", "code": 5, "exitCode": WINDOW_CLOSED,
                                 "message": CLOSED_SENTENCE})
        self.assertEqual((finished["event"], finished["exitCode"]), ("finished", WINDOW_CLOSED))

        video = Video(path)
        self.assertEqual(video.complaints, "")
        self.assertEqual(video.size, SIZE)
        self.assertGreaterEqual(video.duration_s, lasted)
        self.assertLess(video.duration_s, time.monotonic() - begins)
        pictures = {name: video.picture(count - 1) for name, count in counts.items()}
        for name in ("at first", "moved", "restored and twice as large"):
            self.expect_window(pictures[name], (0, 0, *SIZE), name)
            self.expect_edges(pictures[name], name)
        for name in ("half as wide", "minimised"):
            self.expect_window(pictures[name], (SIZE[0] // 4, 0, SIZE[0] // 2, SIZE[1]), name)
            for x in (20, SIZE[0] // 4 - 10, 3 * SIZE[0] // 4 + 10, SIZE[0] - 20):
                expect_colour(self, pictures[name](x, SIZE[1] // 2), BLACK, f"the border at {x} {name}")
        off = pictures["partly off the screen"]
        expect_colour(self, off(160, 90), RED, "the part on the screen")
        for x, y in ((480, 90), (160, 270), (480, 270)):
            expect_colour(self, off(x, y), BLACK, f"{x}, {y} off the screen")

    def test_PointerOverAMovedWindow_IsDrawnAtItsPlaceInTheWindow(self):
        path = self.stage.new_path("pointer.mp4")
        left, top, x, y = 300, 200, 160, 90  # in the middle of the red quarter
        with Actor(self, "Acting window") as actor, StepHost(self.stage, self.settings.bin) as host:
            host.prepare(cursor=1, window=actor.handle)
            actor.do("place", left, top, *SIZE)
            host.pointer(left + x, top + y)
            host.start(path)
            time.sleep(SETTLE_S)
            self.assertEqual(host.stop(), 0)
        video = Video(path)
        picture = video.picture(video.frames - 1)

        def drawn(from_x, from_y):
            return sum(1 for dx in range(POINTER_REACH) for dy in range(POINTER_REACH)
                       if max(abs(a - b) for a, b in zip(picture(from_x + dx, from_y + dy), RED)) > VISIBLE_DIFFERENCE)
        self.assertGreater(drawn(x, y), 20)
        self.assertEqual(drawn(x - 2 * POINTER_REACH, y - 2 * POINTER_REACH), 0)

    def test_WindowThatIsClosedUnderALiveView_EndsIt(self):
        with Actor(self, "Acting window") as actor:
            host = self.stage.start("live", "--window", "Acting window", "--json")
            window, started = (json.loads(host.first_line()) for _ in range(2))
            self.assertEqual(window["handle"], actor.handle)
            with urllib.request.urlopen(started["url"] + "status", timeout=END_LIMIT_S) as answer:
                status = json.load(answer)
            self.assertEqual((status["width"], status["height"]), SIZE)
            actor.do("close")
            result = host.finish()
        self.expect_code(result, WINDOW_CLOSED)
        self.assertIn("the live view has ended with it", result.output)

    def test_WindowThatIsClosedWhileAReplayIsKept_LeavesTheReplay(self):
        path = self.stage.new_path("crashed.mkv")
        with Actor(self, "Acting window") as actor:
            host = self.stage.start("record", path, "--window", "Acting", "--replay", 20, "--json",
                                    stdin=subprocess.PIPE)
            self.assertEqual([json.loads(host.first_line())["event"] for _ in range(2)], ["window", "keeping"])
            time.sleep(SETTLE_S)
            actor.do("place", 300, 100, SIZE[0] // 2, SIZE[1])
            time.sleep(SETTLE_S)
            actor.do("close")
        time.sleep(SETTLE_S)
        host.type("\n")
        result = host.finish()
        self.expect_code(result, WINDOW_CLOSED)
        video = Video(path)
        self.assertGreater(video.duration_s, 2 * SETTLE_S)
        self.expect_window(video.first_picture(), (0, 0, *SIZE), "at first")
        self.expect_window(video.picture(video.frames - 1), (SIZE[0] // 4, 0, SIZE[0] // 2, SIZE[1]), "at last")

    def test_TitleThatNamesNoOneWindow_IsRefusedWithWhatItNames(self):
        path = self.stage.new_path("none.mp4")
        with Actor(self, "Letter to a friend") as first, Actor(self, "letter") as second:
            result = self.stage.run("record", path, "--window", "lett")
            self.expect_code(result, NO_WINDOW)
            self.assertEqual(result.complaint, f'kxrecord: 2 windows go with "lett": "letter" (0x{second.handle:08x}), '
                             f'"Letter to a friend" (0x{first.handle:08x}); give more of the title, or the handle\n')
            result = self.stage.run("record", path, "--window", "Letter", "--seconds", 0.5)
            self.expect_code(result, 0)
            self.assertEqual(result.output.split("\n")[0],
                             f'The window is "letter" of {PROGRAM} (0x{second.handle:08x})')
            second.do("minimise")
            result = self.stage.run("record", path, "--window", f"0x{second.handle:x}")
            self.expect_code(result, NO_WINDOW)
            self.assertIn("is minimised; restore it first", result.complaint)
        result = self.stage.run("live", "--window", "letter", "--json")
        self.expect_code(result, NO_WINDOW)
        error, = events(result.output)
        self.assertEqual(error["message"],
                         'no window\'s title has "letter" in it; "kxrecord windows" lists what can be recorded')

    def test_HandleThatIsNoWindow_IsRefusedByTheWorkerWithASentenceInItsLog(self):
        with StepHost(self.stage, self.settings.bin) as host:
            with self.assertRaises(StepFailed):
                host.prepare(window=12345)
            host.stop()
        self.assertIn("The field window, 12345, names nothing to record: there is no such window",
                      self.stage.worker_log())

    def test_ListOfWindows_HasThemFromFrontToBack(self):
        with Actor(self, "In the back"), Actor(self, "In front") as front:
            lines = self.stage.run("windows").output.splitlines()
            listed = json.loads(self.stage.run("windows", "--json").output)
        self.assertEqual(listed["schema"], 2)
        ours = [window for window in listed["windows"] if window["title"].startswith("In ")]
        self.assertEqual([window["title"] for window in ours], ["In front", "In the back"])
        self.assertEqual(ours[0], {"handle": front.handle, "title": "In front", "program": PROGRAM, "minimized": False,
                                   "left": PLACE[0], "top": PLACE[1], "width": SIZE[0], "height": SIZE[1]})
        self.assertIn(f"0x{front.handle:08x}", lines[0])
        self.assertTrue(lines[0].endswith(f"{SIZE[0]}x{SIZE[1]} from {PLACE[0]},{PLACE[1]} on  {PROGRAM}    In front"),
                        lines[0])

    def test_ListOfDisplays_HasTheOneMonitor(self):
        listed = json.loads(self.stage.run("displays", "--json").output)
        self.assertEqual(listed["schema"], 2)
        display, = listed["displays"]
        self.assertEqual({key: display[key] for key in ("monitor", "left", "top", "width", "height", "primary")},
                         {"monitor": 1, "left": 0, "top": 0, "width": SCREEN_WIDTH, "height": SCREEN_HEIGHT,
                          "primary": True})
        self.assertEqual(display["scalingPercent"], 100)
        self.assertEqual(display["name"], "\\\\.\\DISPLAY1")
        line, = self.stage.run("displays").output.splitlines()
        self.assertTrue(line.startswith(f"1  {SCREEN_WIDTH}x{SCREEN_HEIGHT} from 0,0 on  primary  100 %  "), line)


if __name__ == "__main__":
    main()
