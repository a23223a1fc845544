"""A library with a system library's name in the worker's folder: the worker does not load it."""

import shutil

from recordcase import RecordCase, main
from stage import WORKER
from video import Video, expect_pattern

PLANTED = "winmm.dll"
PLAIN_PROGRAM = "plainimport.exe"


class Planted(RecordCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Windows takes the file that the search finds. Wine prefers its own unless it is told to do the same.
        cls.stage.environment["WINEDLLOVERRIDES"] = "mscoree,mshtml=;winmm=n,b"

    def setUp(self):
        super().setUp()
        shutil.copy(self.settings.bin.parent / "planted" / PLANTED, self.stage.folder)
        shutil.copy(self.settings.bin / PLAIN_PROGRAM, self.stage.folder)

    def loads_planted(self, program):
        return (self.stage.folder / f"{program}.planted").exists()

    def test_ProgramWithPlainImport_LoadsIt(self):
        self.expect_code(self.stage.run(program=PLAIN_PROGRAM), 0)
        self.assertTrue(self.loads_planted(PLAIN_PROGRAM))

    def test_Worker_RecordsWithTheSystemsOwn(self):
        path = self.stage.new_path("screen.mkv")
        self.expect_code(self.stage.run("record", path, "--seconds", 1), 0)
        expect_pattern(self, Video(path))
        self.assertFalse(self.loads_planted(WORKER))


if __name__ == "__main__":
    main()
