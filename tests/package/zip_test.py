"""The two zips that cpack makes: what is in them, stripped and accounted for; and the first one unpacked and run."""

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
import zipfile

WINE_RUN = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "wine-run.sh"
ON_A_SCREEN = ("xvfb-run", "--auto-servernum", "--server-args=-screen 0 640x480x24", WINE_RUN)
LIMIT_S = 120
OWN = ("IPCMessage.dll", "KXVCR.exe", "LogTool.dll", "ScreenRecordProxy.dll", "Util.dll", "kxrecord.exe")
DOCUMENTS = ("CHANGELOG.md", "LICENSE", "README.md", "SECURITY.md", "docs/configuration.md", "docs/hosts-guide.md",
             "include/screenrecordproxy/screenrecordproxy.h")


def sections(image):
    """The names in the section table of a program or DLL; a number after a slash stands for a long name."""
    start = int.from_bytes(image[0x3C:0x40], "little")
    count = int.from_bytes(image[start + 6:start + 8], "little")
    table = start + 24 + int.from_bytes(image[start + 20:start + 22], "little")
    return [image[table + 40 * i:table + 40 * i + 8].rstrip(b"\0").decode() for i in range(count)]


class Zips(unittest.TestCase):
    settings: argparse.Namespace

    @classmethod
    def setUpClass(cls):
        work = cls.settings.work.resolve()
        shutil.rmtree(work, ignore_errors=True)
        work.mkdir(parents=True)
        made = cls.settings.zips or work
        if cls.settings.zips is None:
            subprocess.run(["cpack", "--config", cls.settings.build / "CPackConfig.cmake", "-B", work], check=True,
                           stdout=subprocess.DEVNULL, timeout=LIMIT_S)
        by_kind = {path.stem.endswith("-symbols"): path for path in made.glob("*.zip")}
        cls.package, cls.symbols = (cls.content(by_kind[kind]) for kind in (False, True))
        cls.zip, cls.work = by_kind[False], work

    @staticmethod
    def content(path):
        """File name below the zip's own folder -> bytes."""
        with zipfile.ZipFile(path) as archive:
            return {name.partition("/")[2]: archive.read(name) for name in archive.namelist() if name[-1] != "/"}

    def test_Package_HasProgramsAndDocuments(self):
        wanted = {f"bin/{name}" for name in OWN} | {"bin/config/CheckFileIntergrity.xml"} | set(DOCUMENTS)
        self.assertEqual(wanted - self.package.keys(), set())

    def test_Package_IsStripped(self):
        images = {name: content for name, content in self.package.items() if name.endswith((".exe", ".dll"))}
        self.assertGreaterEqual(len(images), len(OWN))
        long_names = {name: [section for section in sections(content) if section.startswith("/")]
                      for name, content in images.items()}
        self.assertEqual({name: found for name, found in long_names.items() if found}, {})

    def test_BillOfMaterials_NamesEveryFileOfBinWithItsDigest(self):
        bill = json.loads(self.package["sbom.spdx.json"])
        told = {file["fileName"]: file["checksums"][1]["checksumValue"] for file in bill["files"]}
        shipped = {f"./{name}": hashlib.sha256(content).hexdigest() for name, content in self.package.items()
                   if name.startswith("bin/") and name.count("/") == 1}
        self.assertEqual(told, shipped)

    def test_BillOfMaterials_HasTheProductsVerificationCode(self):
        bill = json.loads(self.package["sbom.spdx.json"])
        digests = sorted(hashlib.sha1(content).hexdigest() for name, content in self.package.items()
                         if name.startswith("bin/") and name.count("/") == 1)
        product = next(part for part in bill["packages"] if part["name"] == "ScreenRecordProxy")
        self.assertEqual(product["packageVerificationCode"]["packageVerificationCodeValue"],
                         hashlib.sha1("".join(digests).encode()).hexdigest())

    def test_Licences_AreThereForEveryPart(self):
        bill = json.loads(self.package["sbom.spdx.json"])
        parts = {f"licences/{part['name']}.txt" for part in bill["packages"] if part["name"] != "ScreenRecordProxy"}
        self.assertGreater(len(parts), 1)
        self.assertEqual({name for name in self.package if name.startswith("licences/")}, parts)

    def test_UnpackedPackage_RecordsInAFreshSystem(self):
        folder = self.work / "unpacked"
        with zipfile.ZipFile(self.zip) as archive:
            archive.extractall(folder)
        program = next(folder.glob("*/bin/kxrecord.exe"))
        recording = self.work / "screen.mp4"
        result = subprocess.run([*ON_A_SCREEN, program, "record", recording, "--seconds", "2"], capture_output=True,
                                text=True, check=False, timeout=LIMIT_S)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        facts = json.loads(subprocess.check_output(["ffprobe", "-v", "error", "-of", "json", "-show_entries",
                                                    "stream=codec_name,width:format=duration", recording]))
        pictures = [stream for stream in facts["streams"] if stream["codec_name"] == "h264"]
        self.assertEqual([stream["width"] for stream in pictures], [640])
        self.assertGreater(float(facts["format"]["duration"]), 1.5)

    def test_EverySampleOfTheConfigurationPage_IsShipped(self):
        page = self.package["docs/configuration.md"].decode("utf-8")
        samples = {f"share/screenrecordproxy/{name}" for name in re.findall(r"`(\w+\.sample\.\w+)`", page)}
        self.assertGreater(len(samples), 4)
        self.assertEqual({name for name in self.package if name.startswith("share/")}, samples)

    def test_LinksOfThePages_LeadToFilesOfThePackage(self):
        pages = {name: content.decode("utf-8") for name, content in self.package.items() if name.endswith(".md")}
        self.assertGreater(len(pages), 8)
        for name, text in pages.items():
            folder = pathlib.PurePosixPath(name).parent
            for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", text):
                self.assertIn((folder / link).as_posix(), list(self.package), name)

    def test_Symbols_AreThoseOfTheOwnFiles(self):
        self.assertEqual(self.symbols.keys(), {f"symbols/{name}.debug" for name in OWN})


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    zips = parser.add_mutually_exclusive_group(required=True)
    zips.add_argument("--build", type=pathlib.Path, help="the folder of the build that the zips are made of")
    zips.add_argument("--zips", type=pathlib.Path, help="the folder with zips that are there already")
    parser.add_argument("--work", type=pathlib.Path, required=True, help="folder for the test's files")
    Zips.settings, rest = parser.parse_known_args()
    os.environ.pop("KX_WINEPREFIX", None)
    unittest.main(argv=[sys.argv[0], "--verbose", *rest])


if __name__ == "__main__":
    main()
