"""Recordings as a user makes them: what is asked for must be in the file."""

import os
import pty
import signal
import subprocess

from recordcase import RecordCase, main
from stage import HOST, RUN_LIMIT_S, WINE_RUN
from video import Video, expect_edge, expect_pattern

DURATION_TOLERANCE_S = 0.6
CODECS = {".mp4": "h264", ".mkv": "h264", ".webm": "vp9"}
STILL_S = 10
STILL_BYTES = 150_000
SCREEN = (1280, 720)


class Recording(RecordCase):
    def expect_length(self, video, seconds, rate):
        asked = seconds * rate
        self.assertEqual(video.codec, CODECS[video.path.suffix])
        self.assertEqual(video.complaints, "")
        self.assertLessEqual(video.frames, asked + DURATION_TOLERANCE_S * rate)
        self.assertAlmostEqual(video.duration_s, seconds, delta=DURATION_TOLERANCE_S)
        self.expect_times_of_slots(video, seconds, rate)

    def expect_times_of_slots(self, video, seconds, rate):
        """Every picture is shown in a slot of its own of the frame clock, the first at 0, and each second has some."""
        times = video.frame_times_ms()
        self.assertEqual(times[0], 0)
        self.assertLessEqual(set(range(seconds)), {time // 1000 for time in times}, "a second without a picture")
        for time in times:
            slot = (time * rate + 500) // 1000
            self.assertAlmostEqual(time, slot * 1000 / rate, delta=1.01)
        self.assertEqual(len(times), len({(time * rate + 500) // 1000 for time in times}))

    def expect_moving(self, video):
        counters = video.counters()
        self.assertEqual(len(counters), video.frames)
        self.assertEqual(counters, sorted(counters), "the counter went backwards")
        self.assertGreater(len(set(counters)), len(counters) // 2, "too few pictures of their own")

    def test_WholeScreen_HasSizeLengthColoursAndMotionInEveryFormat(self):
        for name in ("screen.mp4", "screen.webm", "screen.mkv", "CAPITALS.MP4"):
            with self.subTest(name):
                path = self.stage.new_path(name)
                result = self.stage.run("record", path, "--seconds", 4)
                self.expect_code(result, 0)
                self.assertEqual(result.complaint, "")
                video = Video(path.rename(path.with_suffix(path.suffix.lower())))
                self.assertEqual(video.size, SCREEN)
                self.expect_length(video, 4, 30)
                expect_pattern(self, video)
                expect_edge(self, video, 0, 0)
                self.expect_moving(video)

    def test_ScreenThatStandsStill_TakesNoRoomAndKeepsItsLength(self):
        for name in ("still.mp4", "still.webm", "still.mkv"):
            with self.subTest(name):
                path = self.stage.new_path(name)
                self.expect_code(self.stage.run("record", path, "--seconds", STILL_S, "--region", "0,0,1280,350"), 0)
                video = Video(path)
                self.assertEqual(video.frames, 1)
                self.assertAlmostEqual(video.duration_s, STILL_S, delta=DURATION_TOLERANCE_S)
                self.assertLess(path.stat().st_size, STILL_BYTES)

    def test_PipedOutput_IsOneLineAtStartAndOneAtEnd(self):
        path = self.stage.new_path("lines.mp4")
        result = self.stage.run("record", path, "--seconds", 1)
        self.expect_code(result, 0)
        windows_path = "Z:" + str(path).replace("/", "\\")
        first, last, rest = result.output.split("\n")
        self.assertEqual(first, f"Recording to {windows_path} (Ctrl-C stops)")
        self.assertRegex(last, r"^Recorded 00:00:01\.\d to ")
        self.assertIn(f" to {windows_path}", last)
        self.assertEqual(rest, "")

    def test_Region_HasItsSizeAndItsPlaceOnTheScreen(self):
        path = self.stage.new_path("region.mp4")
        self.expect_code(self.stage.run("record", path, "--seconds", 2, "--region", "100,200,640,320"), 0)
        video = Video(path)
        self.assertEqual(video.size, (640, 320))
        self.expect_length(video, 2, 30)
        expect_pattern(self, video, 100, 200)
        expect_edge(self, video, 100, 200)

    def test_TenFramesPerSecond_HasTenFramesPerSecond(self):
        path = self.stage.new_path("slow.mkv")
        self.expect_code(self.stage.run("record", path, "--seconds", 3, "--fps", 10), 0)
        video = Video(path)
        self.expect_length(video, 3, 10)
        self.expect_moving(video)

    def test_LowerQuality_MakesASmallerFile(self):
        sizes = []
        for quality in (95, 20):
            path = self.stage.new_path(f"quality{quality}.mp4")
            region = "0,0,1280,350"  # the part that does not move: one picture
            result = self.stage.run("record", path, "--seconds", 1, "--quality", quality, "--region", region)
            self.expect_code(result, 0)
            self.assertEqual(Video(path).frames, 1)
            sizes.append(path.stat().st_size)
        self.assertGreater(sizes[0], sizes[1])

    def test_RelativeUnicodeName_IsWrittenInTheCurrentFolder(self):
        folder = self.stage.new_path("Ordner ö")
        folder.mkdir()
        name = "Bildschirm ä 屏幕.mp4"
        result = self.stage.run("record", name, "--seconds", 1, cwd=folder)
        self.expect_code(result, 0)
        self.assertIn(name, result.output)
        self.assertEqual([path.name for path in folder.iterdir()], [name])
        self.assertEqual(Video(folder / name).size, SCREEN)

    def test_ExistingFile_IsReplaced(self):
        path = self.stage.new_path("again.mkv")
        self.expect_code(self.stage.run("record", path, "--seconds", 3, "--fps", 10), 0)
        self.expect_code(self.stage.run("record", path, "--seconds", 1, "--fps", 10), 0)
        self.expect_length(Video(path), 1, 10)

    def test_TwoRecordingsAtTheSameTime_BothHaveTheirFile(self):
        paths = [self.stage.new_path("first.mkv"), self.stage.new_path("second.mkv")]
        first = self.stage.start("record", paths[0], "--seconds", 4, "--fps", 10)
        self.assertIn("first.mkv", first.first_line())
        self.expect_code(self.stage.run("record", paths[1], "--seconds", 1, "--fps", 10), 0)
        self.expect_code(first.finish(), 0)
        self.expect_length(Video(paths[0]), 4, 10)
        self.expect_length(Video(paths[1]), 1, 10)

    def test_CtrlCOnATerminal_RedrawsUntilItStopsAndKeepsTheFile(self):
        path = self.stage.new_path("interrupted.mp4")
        terminal, other_end = pty.openpty()
        host = subprocess.Popen([WINE_RUN, self.stage.folder / HOST, "record", str(path)], env=self.stage.environment,
                                stdin=other_end, stdout=other_end, stderr=other_end, start_new_session=True)
        os.close(other_end)
        shown = b""
        interrupted = False
        try:
            while True:
                chunk = read_terminal(terminal)
                if not chunk:
                    break
                shown += chunk
                if not interrupted and b"00:00:02" in shown:
                    os.write(terminal, b"\x03")
                    interrupted = True
            code = host.wait(timeout=RUN_LIMIT_S)
        finally:
            if host.poll() is None:
                host.send_signal(signal.SIGKILL)
                host.wait()
            os.close(terminal)
        text = shown.decode("utf-8", "replace")
        self.assertEqual(code, 0, text)
        self.assertIn("Recorded 00:00:0", text)
        self.assertIn("00:00:01", text)
        self.assertGreater(Video(path).duration_s, 1.5)


def read_terminal(terminal):
    """What the terminal shows next; nothing when the other end is closed, which Linux reports as an error."""
    try:
        return os.read(terminal, 4096)
    except OSError:
        return b""


if __name__ == "__main__":
    main()
