"""A recording on a small disk: the disk is a memory file system, mounted in a name space of this process's own, so
that it vanishes with the process. Where the system allows no name space, the test fails."""

import os
import subprocess
import sys

from recordcase import RecordCase, main
from video import Video, expect_pattern

DISK_SIZE = "1m"
FILE_CUT_SHORT = 4  # the worker's exit code
IN_NAME_SPACE = "KX_IN_NAME_SPACE"


class DiskFull(RecordCase):
    def test_FullDisk_EndsTheRecordingWithAMessageAndAFileThatPlays(self):
        disk = self.stage.new_path("disk")
        disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={DISK_SIZE}", "tmpfs", disk], check=True)
        path = disk / "screen.mkv"
        result = self.stage.run("record", path, "--seconds", 8, "--quality", 95)
        self.expect_code(result, FILE_CUT_SHORT)
        self.assertTrue(result.complaint.startswith("kxrecord: "), result.complaint)
        self.assertIn("the disk is full", result.complaint)
        video = Video(path)
        self.assertGreater(video.frames, 10)
        self.assertEqual(video.complaints, "")
        expect_pattern(self, video)

        path = self.stage.new_path("afterwards.mkv")
        self.expect_code(self.stage.run("record", path, "--seconds", 1), 0)
        expect_pattern(self, Video(path))


if __name__ == "__main__":
    if IN_NAME_SPACE not in os.environ:
        os.environ[IN_NAME_SPACE] = "1"
        identity = [] if os.geteuid() == 0 else ["--map-root-user"]
        os.execvp("unshare", ["unshare", "--mount", *identity, sys.executable, *sys.argv])
    main()
