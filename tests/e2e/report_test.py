"""What a recording tells machines, line by line, and recordings that begin with what was kept."""

import json
import shutil
import subprocess

from recordcase import RecordCase, main
from stage import HOST, WINE_RUN, WORKER, wait_until
from terminal import Terminal
from video import Video, expect_pattern

BAD_ARGUMENTS = 2
VERIFICATION_FAILED = 11
START_REFUSED = 14
WORKER_GONE = 15
REPLAY_REFUSED = 19

DURATION_TOLERANCE_S = 0.6
BYTES_OF_SOME_PICTURES = 20000
WRITE_LIMIT_S = 20


def events(text):
    return [json.loads(line) for line in text.splitlines()]


class Reports(RecordCase):
    def setUp(self):
        super().setUp()
        self.path = self.stage.new_path("screen.mkv")
        self.windows_path = "Z:" + str(self.path).replace("/", "\\")

    def record(self, *arguments, **options):
        result = self.stage.run("record", self.path, "--json", *arguments, **options)
        self.assertEqual(result.complaint, "")
        return result, events(result.output)

    def test_Json_IsOneObjectALineFromStartToEnd(self):
        result, (started, *progress, finished) = self.record("--seconds", 3.5, "--fps", 10)
        self.expect_code(result, 0)
        self.assertEqual(started, {"schema": 2, "event": "started", "file": self.windows_path,
                                   "framesPerSecond": 10, "replaySeconds": 0})
        self.assertEqual([int(event["seconds"]) for event in progress], [1, 2, 3])
        sizes = [event["bytes"] for event in progress]
        self.assertEqual(sizes, sorted(sizes))
        free = shutil.disk_usage(self.path.parent).free
        for event in progress:
            self.assertEqual(list(event), ["schema", "event", "seconds", "framesDue", "pictures", "repeats", "dropped",
                                           "bytes", "diskFreeBytes"])
            self.assertEqual((event["event"], event["framesDue"]), ("progress", int(event["seconds"] * 10 + 1e-6)))
            self.assertGreater(event["bytes"], 0)
            self.assertAlmostEqual(event["diskFreeBytes"], free, delta=free / 2)
        self.assertAlmostEqual(finished["seconds"], 3.5, delta=DURATION_TOLERANCE_S)
        self.assertEqual(list(finished), ["schema", "event", "file", "seconds", "pictures", "repeats", "dropped",
                                          "fileSeconds", "liveStartSeconds", "bytes", "exitCode"])
        self.assertEqual((finished["event"], finished["file"], finished["bytes"], finished["exitCode"]),
                         ("finished", self.windows_path, self.path.stat().st_size, 0))
        self.assertGreater(finished["pictures"], 10)
        self.assertAlmostEqual(finished["pictures"] + finished["repeats"], 35, delta=4)
        self.assertAlmostEqual(finished["fileSeconds"], 3.5, delta=DURATION_TOLERANCE_S)
        self.assertEqual(finished["liveStartSeconds"], 0)

    def test_JsonWithAUnicodeName_IsValid(self):
        self.path = self.stage.new_path("Bild ä 屏幕.mkv")
        _, (started, finished) = self.record("--seconds", 0.5)
        for event in (started, finished):
            self.assertTrue(event["file"].endswith("Bild ä 屏幕.mkv"), event)

    def test_JsonOfARefusedFile_IsOneErrorWithTheExitCode(self):
        self.path = self.path / "screen.mkv"
        result, (error,) = self.record("--seconds", 1)
        self.expect_code(result, START_REFUSED)
        self.assertEqual((error["event"], error["code"]), ("error", -12))
        self.assertIn("see that its folder exists", error["message"])

    def test_JsonWithoutAManifest_IsOneErrorWithTheExitCode(self):
        (self.stage.folder / "config" / "CheckFileIntergrity.xml").unlink()
        self.addCleanup(self.stage.trust, WORKER)
        result, (error,) = self.record("--seconds", 1)
        self.expect_code(result, VERIFICATION_FAILED)
        self.assertEqual((error["event"], error["code"]), ("error", 191))

    def test_JsonOfAKilledWorker_HasTheErrorAndTheEnd(self):
        run = self.stage.start("record", self.path, "--json", "--seconds", 60)
        self.assertEqual(json.loads(run.first_line())["event"], "started")
        wait_until(lambda: self.path.exists() and self.path.stat().st_size > BYTES_OF_SOME_PICTURES, WRITE_LIMIT_S,
                   "pictures in the file")
        self.stage.kill(WORKER)
        result = run.finish()
        *_, error, finished = events(result.output)
        self.expect_code(result, WORKER_GONE)
        self.assertIn("ended by itself while it recorded", error["message"])
        self.assertEqual((error["event"], finished["event"]), ("error", "finished"))
        self.assertEqual(finished["exitCode"], result.code)
        self.assertEqual(finished["bytes"], self.path.stat().st_size)

    def test_ReplayWithoutAnInput_BeginsWhenTheBufferIsFull(self):
        result, (keeping, started, *_, finished) = self.record("--replay", 2, "--seconds", 1)
        self.expect_code(result, 0)
        self.assertEqual(keeping, {"schema": 2, "event": "keeping", "seconds": 2})
        self.assertEqual(started["event"], "started")
        self.assertAlmostEqual(started["replaySeconds"], 2, delta=DURATION_TOLERANCE_S)
        self.assertAlmostEqual(finished["liveStartSeconds"], started["replaySeconds"], delta=0.001)
        self.assertAlmostEqual(finished["seconds"], 1, delta=DURATION_TOLERANCE_S)
        video = Video(self.path)
        self.assertEqual(video.complaints, "")
        self.assertAlmostEqual(video.duration_s, 3, delta=DURATION_TOLERANCE_S)
        expect_pattern(self, video)
        counters = video.counters()
        self.assertEqual(counters, sorted(counters))

    def test_ReplayWithALine_BeginsAtOnce(self):
        run = self.stage.start("record", self.path, "--replay", 300, "--seconds", 1, stdin=subprocess.PIPE)
        self.assertEqual(run.first_line(), "Keeping the last 300 s of the screen (Enter begins the recording with "
                                           "them, Ctrl-C ends)\n")
        self.assertFalse(self.path.exists())
        run.type("\n")
        result = run.finish()
        self.expect_code(result, 0)
        first, last = result.output.splitlines()
        self.assertEqual(first, f"Recording to {self.windows_path} (Ctrl-C stops)")
        self.assertRegex(last, r"^Recorded 00:00:01\.\d to ")
        self.assertGreaterEqual(Video(self.path).duration_s, 1)

    def test_CtrlCWhileKeeping_EndsWithoutAFile(self):
        terminal = Terminal([WINE_RUN, self.stage.folder / HOST, "record", str(self.path), "--replay", "60"],
                            self.stage.environment, when=b"Keeping", answer=b"\x03")
        self.assertEqual(terminal.code, 0, terminal.text)
        self.assertIn("Nothing was recorded", terminal.text)
        self.assertFalse(self.path.exists())

    def test_CtrlCWhileTheWorkerStarts_LeavesAnOlderRecordingAlone(self):
        older = b"\0\0\0\x18ftypisom, a recording"
        self.path.write_bytes(older)
        terminal = Terminal([WINE_RUN, self.stage.folder / HOST, "record", str(self.path), "--window", "pattern"],
                            self.stage.environment, when=b"The window is", answer=b"\x03")
        self.assertEqual(terminal.code, 0, terminal.text)
        self.assertIn("Nothing was recorded", terminal.text)
        self.assertEqual(self.path.read_bytes(), older)

    def test_EnterOnATerminal_BeginsTheRecordingAndShowsItsProgress(self):
        terminal = Terminal([WINE_RUN, self.stage.folder / HOST, "record", str(self.path), "--replay", "60",
                             "--seconds", "2"], self.stage.environment, columns=200, when=b"Keeping", answer=b"\r")
        self.assertEqual(terminal.code, 0, terminal.text)
        self.assertRegex(terminal.text, r"00:00:01\.\d  \d+ (frames due|pictures)  \d+\.\d MB  \d+\.\d [MG]B free")
        self.assertRegex("\n".join(terminal.lines()), r"\nRecorded 00:00:02\.\d to \S+ ")
        self.assertGreater(Video(self.path).duration_s, 1.5)

    def test_RefusedReplay_IsSaidInOneSentence(self):
        result = self.stage.run("record", self.path, "--replay", 5, "--region", "5000,5000,10,10")
        self.expect_code(result, REPLAY_REFUSED)
        self.assertRegex(result.complaint, r"^kxrecord: the region 5000,5000,10,10 is not wholly on the screen, "
                                           r"which is 1280x720 .*\n$")
        self.assertEqual(result.output, "")

    def test_BadReplay_EndsWithTwo(self):
        for seconds in ("0", "1801", "x", "-1"):
            with self.subTest(seconds=seconds):
                result = self.stage.run("record", self.path, "--replay", seconds)
                self.expect_code(result, BAD_ARGUMENTS)
                self.assertIn("--replay", result.complaint)
                self.assertEqual(result.output, "")


if __name__ == "__main__":
    main()
