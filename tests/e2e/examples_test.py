"""The example host records with the real worker, and the example worker takes its place."""

import pathlib
import re
import shutil

from recordcase import RecordCase, main
from stage import ROOT, WORKER
from video import Video, expect_pattern

EXAMPLE_HOST = "minimal-host.exe"
EXAMPLE_WORKER = "minimal-worker.exe"


class Examples(RecordCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for program in (EXAMPLE_HOST, EXAMPLE_WORKER):
            shutil.copy(cls.settings.bin / program, cls.stage.folder)

    def record(self, path, seconds):
        return self.stage.run(path, seconds, program=EXAMPLE_HOST)

    def test_ExampleHost_RecordsTheScreen(self):
        path = self.stage.new_path("example.mp4")
        result = self.record(path, 2)
        self.expect_code(result, 0)
        video = Video(path)
        self.assertEqual(video.complaints, "")
        self.assertGreater(video.duration_s, 1.5)
        expect_pattern(self, video)

    def test_ExampleHostWithoutAFile_SaysSo(self):
        result = self.stage.run(program=EXAMPLE_HOST)
        self.expect_code(result, 1)
        self.assertEqual(result.complaint.strip(), "no file was named: the start failed, code 0")

    def test_ExampleWorker_TakesTheCommandsOfTheExampleHost(self):
        worker = self.stage.folder / WORKER
        original = worker.read_bytes()
        try:
            worker.unlink()
            shutil.copy(self.stage.folder / EXAMPLE_WORKER, worker)
            self.stage.trust(WORKER)
            path = self.stage.new_path("commands.mp4")
            self.expect_code(self.record(path, 1), 0)
            self.assertEqual(path.read_text(), "2 commands\n")
        finally:
            worker.write_bytes(original)
            self.stage.trust(WORKER)

    def test_GuidesListing_IsTheExample(self):
        guide = (ROOT / "docs" / "hosts-guide.md").read_text(encoding="utf-8")
        listing = re.search(r"^```cpp\n(.*?)^```$", guide, flags=re.M | re.S).group(1)
        self.assertEqual(listing, pathlib.Path(ROOT / "examples" / "minimal-host" / "main.cpp").read_text("utf-8"))

    def test_Examples_AreShort(self):
        for source in (ROOT / "examples").glob("*/main.cpp"):
            self.assertLess(len(source.read_text(encoding="utf-8").splitlines()), 100, source)


if __name__ == "__main__":
    main()
