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
LATE_STEPS = 2  # one at the boundary, one that the pattern painted late
FRAME_TOLERANCE = 2  # a slot at each end
LONGEST_REPLAY_S = 1800


class Replay(RecordCase):
    def host(self):
        return StepHost(self.stage, self.settings.bin)

    def expect_one_continuous_recording(self, video):
        """Counts without a step back, and without a jump that the time between two different pictures leaves open."""
        counters = video.counters()
        self.assertEqual(video.complaints, "")
        self.assertEqual(len(counters), video.frames)
        repeats = 0
        for before, after in zip(counters, counters[1:]):
            self.assertGreaterEqual(after, before, "the counter went backwards")
            if after == before:
                repeats += 1
                continue
            # A capture may be late by almost a slot before its picture is repeated.
            longest = (repeats + 2) * STEPS_PER_FRAME + LATE_STEPS
            self.assertLessEqual(after - before, longest, f"a gap behind counter {before}")
            repeats = 0
        self.assertGreater(len(set(counters)), len(counters) // 2, "too few pictures of their own")
        return counters

    def expect_age(self, counters, counter_at_start, age_s):
        before = sum(1 for counter in counters if counter < counter_at_start)
        self.assertAlmostEqual(before / RATE, age_s, delta=AGE_TOLERANCE_S)

    def expect_even_times(self, video):
        times = video.frame_times_ms()
        self.assertEqual(times[0], 0)
        self.assertEqual(times, [slot * 1000 // RATE for slot in range(len(times))])

    def test_FullReplay_BeginsThreeSecondsBeforeTheStartAndGoesOn(self):
        path = self.stage.new_path("replay.mkv")
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            time.sleep(REPLAY_S + 1.5)
            started_ms, counter = host.start(path)
            time.sleep(3)
            self.assertEqual(host.stop(), 0)
        self.assertLess(started_ms, 1000)
        video = Video(path)
        counters = self.expect_one_continuous_recording(video)
        self.expect_age(counters, counter, REPLAY_S)
        self.assertGreaterEqual(video.frames, (REPLAY_S + 3) * RATE - FRAME_TOLERANCE)
        self.expect_even_times(video)
        expect_pattern(self, video)

    def test_StopRightAfterTheStart_KeepsTheWholeReplay(self):
        path = self.stage.new_path("atonce.mkv")
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            time.sleep(REPLAY_S + 1)
            _, counter = host.start(path)
            self.assertEqual(host.stop(), 0)
        video = Video(path)
        counters = self.expect_one_continuous_recording(video)
        self.expect_age(counters, counter, REPLAY_S)
        self.assertGreaterEqual(video.frames, REPLAY_S * RATE - FRAME_TOLERANCE)

    def test_StartBeforeTheReplayIsFull_BeginsWithWhatThereIs(self):
        path = self.stage.new_path("early.mkv")
        with self.host() as host:
            host.prepare(60, RATE)
            time.sleep(1)
            _, counter = host.start(path)
            time.sleep(1)
            self.assertEqual(host.stop(), 0)
        counters = self.expect_one_continuous_recording(Video(path))
        self.expect_age(counters, counter, 1)

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
        path = self.stage.new_path("later.mkv")
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            with self.assertRaises(StepFailed):
                host.start(self.stage.files / "missing" / "a.mkv")
            host.stop()
            self.stage.expect_ended(WORKER)
            host.prepare(REPLAY_S, RATE)
            time.sleep(1)
            host.start(path)
            self.assertEqual(host.stop(), 0)
        self.expect_one_continuous_recording(Video(path))


if __name__ == "__main__":
    main()
