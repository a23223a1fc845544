"""Recordings whose worker, host or machine ends in the middle: what was recorded plays, and nobody stays behind."""

import json
import os
import random
import subprocess
import time

from recordcase import RecordCase, main
from stage import WORKER
from stephost import PROGRAM, StepHost
from video import READ_LIMIT_S, Video, expect_pattern

RATE = 30
REPLAY_S = 3
MOST_LOST_S = 0.5
LATE_S = 0.3  # what a busy machine may add between the kill and the file
LONGEST_WITHOUT_HOST_S = 1
CUTS = 60
KILLS = 20
KILL_AFTER_S = (0.3, 2.0)
FORMATS = (".mp4", ".mkv", ".webm")

STILL_REGION = (0, 0, 1280, 350)  # of the pattern, which moves below it

SEGMENT_ID = b"\x18\x53\x80\x67"
UNKNOWN_SIZE = b"\x01\xff\xff\xff\xff\xff\xff\xff"


def is_finished(path):
    """Whether what is written last is there: in MP4 the head of the one box of media data, else the whole size."""
    head = path.read_bytes()[:200]
    if path.suffix == ".mp4":
        behind_type = int.from_bytes(head[:4], "big")
        return head[behind_type + 4:behind_type + 8] == b"mdat"
    at = head.index(SEGMENT_ID) + len(SEGMENT_ID)
    size = int.from_bytes(head[at:at + 8], "big") & ~(1 << 56)
    return head[at:at + 8] != UNKNOWN_SIZE and at + 8 + size == path.stat().st_size


def packets(path):
    """Where each frame of the file begins and ends; an element torn at the end is left out or reported as it is."""
    answer = subprocess.run(["ffprobe", "-v", "quiet", "-show_entries", "packet=pos,size", "-of", "json", str(path)],
                            capture_output=True, text=True, timeout=READ_LIMIT_S, check=True)
    return [(int(packet["pos"]), int(packet["size"])) for packet in json.loads(answer.stdout)["packets"]]


class Survive(RecordCase):
    def host(self):
        return StepHost(self.stage, self.settings.bin)

    def expect_played(self, path, seconds):
        video = Video(path)
        self.assertGreaterEqual(video.duration_s, seconds - MOST_LOST_S - LATE_S)
        self.assertGreater(video.frames, 0)
        counters = video.counters()
        self.assertEqual(counters, sorted(counters))
        expect_pattern(self, video)
        return video

    def test_KilledWorker_LosesLessThanTheLastHalfSecond(self):
        moments = random.Random(os.urandom(8))
        for kill in range(KILLS):
            delay = moments.uniform(*KILL_AFTER_S)
            with self.subTest(delay=delay):
                path = self.stage.new_path("killed" + FORMATS[kill % len(FORMATS)])
                with self.host() as host:
                    host.prepare(0, RATE)
                    began = time.monotonic()
                    host.start(path)
                    time.sleep(delay)
                    self.stage.kill(WORKER)
                    killed_after = time.monotonic() - began
                    self.stage.expect_ended(WORKER)
                video = self.expect_played(path, delay)
                print(f"{path.suffix} killed after {killed_after:.2f} s: {video.duration_s:.2f} s play")

    def test_KilledWhileNothingMoves_TheFileHasItsLength(self):
        for suffix in FORMATS:
            with self.subTest(suffix):
                path = self.stage.new_path("still" + suffix)
                with self.host() as host:
                    host.prepare(0, RATE, 0, STILL_REGION)
                    host.start(path)
                    time.sleep(3)
                    self.stage.kill(WORKER)
                    self.stage.expect_ended(WORKER)
                video = Video(path)
                self.assertGreaterEqual(video.duration_s, 3 - MOST_LOST_S - LATE_S)
                self.assertEqual(video.frames, 1)

    def test_WorkerKilledRightAfterTheStart_HasWrittenTheReplay(self):
        for suffix in (".mp4", ".mkv"):
            with self.subTest(suffix):
                path = self.stage.new_path("replay" + suffix)
                with self.host() as host:
                    host.prepare(REPLAY_S, RATE)
                    time.sleep(REPLAY_S + 1)
                    host.start(path)
                    time.sleep(0.5)
                    self.stage.kill(WORKER)
                    self.stage.expect_ended(WORKER)
                self.expect_played(path, REPLAY_S + 0.5)

    def test_FileCutAnywhereInItsLastTwoSeconds_PlaysUpToTheCut(self):
        path = self.stage.new_path("whole.mkv")
        with self.host() as host:
            host.prepare(0, RATE)
            host.start(path)
            time.sleep(4)
            self.assertEqual(host.stop(), 0)
        content = path.read_bytes()
        frames = packets(path)
        last_end = frames[-1][0] + frames[-1][1] + 16
        late = min(2 * RATE, len(frames) // 2)  # frames of the last two seconds; a busy machine has fewer
        first_cut = frames[-late][0] + 16
        cut_path = self.stage.new_path("cut.mkv")
        for cut in range(last_end, first_cut, -((last_end - first_cut) // CUTS)):
            with self.subTest(cut=cut):
                cut_path.write_bytes(content[:cut])
                # A frame's bytes end at most sixteen bytes of element head behind its position and size.
                whole = sum(1 for position, size in frames if position + size + 16 <= cut)
                self.assertGreaterEqual(len(packets(cut_path)), whole)
                self.assertGreaterEqual(whole, len(frames) - late)

    def expect_end_without_host(self, host):
        self.assertEqual(len(self.stage.processes(WORKER)), 1)
        self.stage.kill(PROGRAM)
        self.stage.expect_ended(WORKER, LONGEST_WITHOUT_HOST_S)
        host.leave()

    def test_LostHost_EndsTheWorkerWithinASecondWhateverItDoes(self):
        with self.subTest("prepared"), self.host() as host:
            host.prepare(0, RATE)
            self.expect_end_without_host(host)
        with self.subTest("keeping a replay"), self.host() as host:
            host.prepare(REPLAY_S, RATE)
            time.sleep(1)
            self.expect_end_without_host(host)
        with self.subTest("recording"), self.host() as host:
            path = self.stage.new_path("recording.mp4")
            host.prepare(0, RATE)
            host.start(path)
            time.sleep(1)
            self.expect_end_without_host(host)
            self.assertTrue(is_finished(path))
            self.expect_played(path, 1)
        with self.subTest("writing a replay"), self.host() as host:
            path = self.stage.new_path("writing.mp4")
            host.prepare(REPLAY_S, RATE)
            time.sleep(REPLAY_S)
            host.start(path)
            self.expect_end_without_host(host)
            self.assertTrue(is_finished(path))
            self.expect_played(path, REPLAY_S)

    def test_EveryRecording_TouchesItsOwnFileAlone(self):
        path = self.stage.new_path("alone.mp4")
        logs = {self.stage.folder / "KXVCR.log", self.stage.folder / "stephost.log"}
        before = self.everything()
        with self.host() as host:
            host.prepare(REPLAY_S, RATE)
            host.start(path)
            time.sleep(1)
            self.assertEqual(host.stop(), 0)
        after = self.everything()
        changed = {name for name in before.keys() | after.keys() if before.get(name) != after.get(name)}
        self.assertEqual(changed - logs - {self.stage.folder / PROGRAM}, {path})
        self.assertTrue(is_finished(path))

    def everything(self):
        """Size and time of every file that a program of the stage can be expected to reach."""
        found = {}
        for root in (self.stage.files, self.stage.folder, self.stage.drive):
            for entry in root.rglob("*"):
                if entry.is_file() and not entry.is_symlink():
                    facts = entry.stat()
                    found[entry] = (facts.st_size, facts.st_mtime_ns)
        return found


if __name__ == "__main__":
    main()
