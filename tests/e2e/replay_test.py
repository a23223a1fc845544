"""Recordings that begin before they were started: the screen counts, and every frame of the file is read."""

import time

from recordcase import RecordCase, main
from stage import WORKER
from stephost import StepFailed, StepHost
from video import Video, expect_pattern

RATE = 30
REPLAY_S = 3
STEPS_PER_FRAME = 50 / RATE  # the pattern counts fifty times a second at most
AGE_TOLERANCE_S = 0.25
LATE_REPLY_S = 0.5  # of the worker, which captures already when it answers prepare
LATE_STEPS = 2  # one at the boundary, one that the pattern painted late
TICKS_PER_SECOND = 10_000_000
LONGEST_REPLAY_S = 1800


class Replay(RecordCase):
    def host(self):
        return StepHost(self.stage, self.settings.bin)

    def expect_one_continuous_recording(self, video):
        """Counts without a step back, and without a jump that the time between two different pictures leaves open."""
        counters = video.counters_of_slots(RATE)
        self.assertEqual(video.complaints, "")
        self.assertIsNotNone(counters[0], "the file does not begin with a picture")
        repeats = 0
        for before, after in zip(counters, counters[1:]):
            self.assertGreaterEqual(after, before, "the counter went backwards")
            if after == before:
                repeats += 1
                continue
            # A look may be late by almost a slot before its picture is another one.
            longest = (repeats + 2) * STEPS_PER_FRAME + LATE_STEPS
            self.assertLessEqual(after - before, longest, f"a gap behind counter {before}")
            repeats = 0
        for second in range(len(counters) // RATE):
            shown = counters[second * RATE:(second + 1) * RATE]
            self.assertGreater(len(set(shown)), 1, f"nothing moves in second {second}")
        return counters

    def expect_age(self, counters, counter_at_start, age_s, tolerance_s=AGE_TOLERANCE_S):
        before = sum(1 for counter in counters if counter < counter_at_start)
        self.assertAlmostEqual(before / RATE, age_s, delta=tolerance_s)

    def test_FullReplay_BeginsThreeSecondsBeforeTheStartAndGoesOn(self):
        for name, vp9 in (("replay.mp4", False), ("replay.mkv", False), ("replay.webm", True)):
            with self.subTest(name):
                path = self.stage.new_path(name)
                with self.host() as host:
                    host.prepare(REPLAY_S, RATE, vp9=vp9)
                    time.sleep(REPLAY_S + 1.5)
                    started_ms, counter = host.start(path)
                    time.sleep(3)
                    self.assertEqual(host.stop(), 0)
                self.assertLess(started_ms, 1000)
                video = Video(path)
                counters = self.expect_one_continuous_recording(video)
                self.expect_age(counters, counter, REPLAY_S)
                self.assertGreaterEqual(video.duration_s, REPLAY_S + 3)
                expect_pattern(self, video)

    def test_ReplayOfAnotherFormatThanTheFileName_IsRefused(self):
        for name, vp9 in (("replay.webm", False), ("replay.mp4", True)):
            with self.subTest(name), self.host() as host:
                path = self.stage.new_path(name)
                host.prepare(REPLAY_S, RATE, vp9=vp9)
                with self.assertRaises(StepFailed):
                    host.start(path)
                host.stop()
                self.stage.expect_ended(WORKER)
                self.assertFalse(path.exists())

    def test_Status_TellsWhereTheLivePartBeginsAndOutlivesTheWorker(self):
        path = self.stage.new_path("status.mp4")
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            time.sleep(REPLAY_S + 1)
            host.start(path)
            time.sleep(1)
            running = host.status()
            self.assertEqual(host.stop(), 0)
            self.stage.expect_ended(WORKER)
            finished = host.status()
        video = Video(path)
        self.assertEqual(running["finished"], 0)
        self.assertEqual(finished["finished"], 1)
        self.assertEqual(finished["liveStart"], REPLAY_S * TICKS_PER_SECOND)
        self.assertEqual(finished["bytes"], path.stat().st_size)
        self.assertEqual(finished["pictures"], video.frames)
        self.assertAlmostEqual(finished["length"] / TICKS_PER_SECOND, video.duration_s, delta=0.01)
        slots = round(finished["length"] * RATE / TICKS_PER_SECOND)
        self.assertEqual(finished["pictures"] + finished["repeats"], slots)
        self.assertLessEqual(running["length"], finished["length"])

    def test_StopRightAfterTheStart_KeepsTheWholeReplay(self):
        path = self.stage.new_path("atonce.mp4")
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            time.sleep(REPLAY_S + 1)
            _, counter = host.start(path)
            self.assertEqual(host.stop(), 0)
        video = Video(path)
        counters = self.expect_one_continuous_recording(video)
        self.expect_age(counters, counter, REPLAY_S)
        self.assertGreaterEqual(video.duration_s, REPLAY_S)

    def test_StartBeforeTheReplayIsFull_BeginsWithWhatThereIs(self):
        path = self.stage.new_path("early.mp4")
        with self.host() as host:
            host.prepare(60, RATE)
            time.sleep(1)
            _, counter = host.start(path)
            time.sleep(1)
            self.assertEqual(host.stop(), 0)
        counters = self.expect_one_continuous_recording(Video(path))
        self.expect_age(counters, counter, 1, AGE_TOLERANCE_S + LATE_REPLY_S)

    def test_ReplayThatIsNeverUsed_LeavesNoFile(self):
        before = set(self.stage.files.iterdir())
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            self.assertEqual(host.stop(), 0)
        self.assertEqual(set(self.stage.files.iterdir()), before)

    def test_TimeThatIsTooLong_IsRefused(self):
        with self.host() as host:
            with self.assertRaises(StepFailed):
                host.prepare(LONGEST_REPLAY_S + 1, RATE)
            host.stop()
            self.stage.expect_ended(WORKER)
            host.prepare(LONGEST_REPLAY_S, RATE)
            self.assertEqual(host.stop(), 0)

    def test_FileThatCannotBeCreated_LeavesTheReplayForTheNextRun(self):
        path = self.stage.new_path("later.mp4")
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            with self.assertRaises(StepFailed):
                host.start(self.stage.files / "missing" / "a.mp4")
            host.stop()
            self.stage.expect_ended(WORKER)
            host.prepare(REPLAY_S, RATE)
            time.sleep(1)
            host.start(path)
            self.assertEqual(host.stop(), 0)
        self.expect_one_continuous_recording(Video(path))


if __name__ == "__main__":
    main()
