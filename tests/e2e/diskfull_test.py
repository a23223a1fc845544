"""A recording on a small disk: the disk is a memory file system, mounted in a name space of this process's own, so
that it vanishes with the process. Where the system allows no name space, the test fails."""

import os
import subprocess
import sys

from recordcase import RecordCase, main
from video import Video, expect_pattern

DISK_SIZE = "48k"
ENDLESS_S = 600  # the worker must end by itself long before
FILE_CUT_SHORT = 21  # the host's exit code
SYSTEM_DISK_FULL = 112
IN_NAME_SPACE = "KX_IN_NAME_SPACE"


class DiskFull(RecordCase):
    def test_FullDisk_EndsTheRecordingWithAMessageAndAFileThatPlays(self):
        for suffix in (".mp4", ".mkv", ".webm"):
            with self.subTest(suffix):
                self.record_until_the_disk_is_full(suffix)
        path = self.stage.new_path("afterwards.mp4")
        self.expect_code(self.stage.run("record", path, "--seconds", 1), 0)
        expect_pattern(self, Video(path))

    def record_until_the_disk_is_full(self, suffix):
        disk = self.stage.new_path("disk")
        disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={DISK_SIZE}", "tmpfs", disk], check=True)
        path = disk / f"screen{suffix}"
        result = self.stage.run("record", path, "--seconds", ENDLESS_S, "--quality", 95)
        self.expect_code(result, FILE_CUT_SHORT)
        warning, failure = result.complaint.splitlines()
        self.assertRegex(warning, r"^kxrecord: only \d\.\d MB are left on the disk; make room, ")
        self.assertRegex(failure, r"^kxrecord: the disk is full, ")
        self.assertIn(f"Cannot write the recording further: error {SYSTEM_DISK_FULL};", self.stage.worker_log())
        video = Video(path)
        self.assertGreater(video.frames, 10)
        self.assertEqual(video.complaints, "")
        expect_pattern(self, video)


if __name__ == "__main__":
    if IN_NAME_SPACE not in os.environ:
        os.environ[IN_NAME_SPACE] = "1"
        identity = [] if os.geteuid() == 0 else ["--map-root-user"]
        os.execvp("unshare", ["unshare", "--mount", *identity, sys.executable, *sys.argv])
    main()
