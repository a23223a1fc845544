"""What the end-to-end tests have in common: the stage that their file's programs run on, and how they are started."""

import argparse
import pathlib
import sys
import unittest

from stage import HOST, WORKER, Stage


class RecordCase(unittest.TestCase):
    """One stage for all the cases of a file; each case must leave no worker and no host behind."""

    stage: Stage
    settings: argparse.Namespace

    @classmethod
    def setUpClass(cls):
        cls.stage = Stage(cls.settings.bin, cls.settings.work / cls.__name__.lower())

    @classmethod
    def tearDownClass(cls):
        cls.stage.close()

    def setUp(self):
        self.addCleanup(self._expect_nothing_runs)

    def _expect_nothing_runs(self):
        for program in (HOST, WORKER):
            self.stage.expect_ended(program)

    def expect_code(self, result, code):
        self.assertEqual(result.code, code, result.complaint)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="folder with the built programs and DLLs")
    parser.add_argument("--work", type=pathlib.Path, required=True, help="folder for the runs' files")
    RecordCase.settings, rest = parser.parse_known_args()
    unittest.main(module="__main__", argv=[sys.argv[0], "--verbose", *rest])
