"""The installed package, moved away from where it was installed: other projects and the examples build against it alone
and record, and so does the installed host."""

import argparse
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parents[1] / "examples"
WINE_RUN = HERE.parents[1] / "scripts" / "wine-run.sh"
LIMIT_S = 120
NO_CHANNEL = 3  # the low byte of the worker's exit code, which is what a shell of the build machine sees
ON_A_SCREEN = ["xvfb-run", "--auto-servernum", "--server-args=-screen 0 640x480x24", WINE_RUN]


def run(*command, **options):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=LIMIT_S, check=False,
                          **options)


class Package(unittest.TestCase):
    settings: argparse.Namespace

    @classmethod
    def setUpClass(cls):
        cls.work = cls.settings.work.resolve()
        shutil.rmtree(cls.work, ignore_errors=True)
        cls.package = cls.work / "moved"
        shutil.copytree(cls.settings.package, cls.package)
        cls.bin = cls.package / "bin"

    def expect_done(self, result, code=0):
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)

    def expect_recording(self, path):
        facts = run("ffprobe", "-v", "error", "-count_frames", "-show_entries", "stream=codec_type,nb_read_frames",
                    "-of", "json", path)
        self.expect_done(facts)
        pictures = [stream for stream in json.loads(facts.stdout)["streams"] if stream["codec_type"] == "video"]
        self.assertGreater(int(pictures[0]["nb_read_frames"]), 0)

    def test_1_Manifest_NamesTheInstalledWorkerAndNothingElse(self):
        manifest = (self.bin / "config" / "CheckFileIntergrity.xml").read_text(encoding="utf-8")
        digest = hashlib.sha256((self.bin / "KXVCR.exe").read_bytes()).hexdigest()
        self.assertEqual(re.findall(r'Path="([^"]*)" Sha256="([^"]*)"', manifest), [("KXVCR.exe", digest)])
        self.assertEqual([path.name for path in (self.bin / "config").iterdir()], ["CheckFileIntergrity.xml"])

    def build(self, project, *options):
        """Builds a project outside the tree against the package; the folder with its programs."""
        build = self.work / project.name
        self.expect_done(run("cmake", "-S", project, "-B", build, "-G", "Ninja", "-DCMAKE_SYSTEM_NAME=Windows",
                             f"-DCMAKE_CXX_COMPILER={self.settings.compiler}", "-DCMAKE_BUILD_TYPE=Release",
                             f"-DScreenRecordProxy_DIR={self.package / 'lib/cmake/ScreenRecordProxy'}", *options))
        self.expect_done(run("cmake", "--build", build))
        return build

    def test_2_ProjectOutsideTheTree_BuildsAndRecords(self):
        build = self.build(HERE / "consumer")
        for program in ("otherhost.exe", "otherworker.exe"):
            shutil.copy(build / program, self.bin)
        path = self.work / "otherhost.mkv"
        self.expect_done(run(*ON_A_SCREEN, self.bin / "otherhost.exe", f"Z:{path}"))
        self.expect_recording(path)
        self.expect_done(run(WINE_RUN, self.bin / "otherworker.exe"), NO_CHANNEL)

    def test_4_Examples_BuildOutsideTheTreeAndTheHostRecords(self):
        shutil.copy(self.build(EXAMPLES / "minimal-host") / "minimal-host.exe", self.bin)
        path = self.work / "example.mp4"
        self.expect_done(run(*ON_A_SCREEN, self.bin / "minimal-host.exe", f"Z:{path}", 1))
        self.expect_recording(path)
        worker = self.build(EXAMPLES / "minimal-worker") / "minimal-worker.exe"
        shutil.copy(worker, self.bin)
        self.expect_done(run(WINE_RUN, self.bin / worker.name), NO_CHANNEL)

    def test_5_ProjectThatOnlyLogs_BuildsAndWritesItsLog(self):
        build = self.build(HERE / "logger", f"-DCMAKE_PREFIX_PATH={self.settings.prefix_path}")
        shutil.copy(build / "onlylogs.exe", self.bin)
        self.expect_done(run(WINE_RUN, self.bin / "onlylogs.exe"))
        log = (self.bin / "onlylogs.log").read_text(encoding="utf-8")
        self.assertRegex(log, r"^20\d\d-\S+ \S+ WARN  \[\d+:\d+\] three is 3\(LogWarnFun\) \[")

    def test_3_InstalledHost_Records(self):
        path = self.work / "kxrecord.mkv"
        self.expect_done(run(*ON_A_SCREEN, self.bin / "kxrecord.exe", "record", path, "--seconds", 1))
        self.expect_recording(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--package", type=pathlib.Path, required=True, help="where the package was installed")
    parser.add_argument("--work", type=pathlib.Path, required=True, help="folder for the test's files")
    parser.add_argument("--compiler", required=True, help="the C++ compiler")
    parser.add_argument("--prefix-path", required=True, help="where log4cplus is, for the part that needs it")
    Package.settings, rest = parser.parse_known_args()
    os.environ.pop("KX_WINEPREFIX", None)
    unittest.main(argv=[sys.argv[0], "--verbose", *rest])


if __name__ == "__main__":
    main()
