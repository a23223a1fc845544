"""The host's other commands and its arguments."""

import hashlib
import xml.etree.ElementTree

from recordcase import RecordCase, main
from stage import WORKER

BAD_ARGUMENTS = 2
MANIFEST_UNREADABLE = 245
NO_SUCH_FILE = 246


class Commands(RecordCase):
    def setUp(self):
        super().setUp()
        self.manifest = self.stage.folder / "config" / "CheckFileIntergrity.xml"

    def entries(self):
        root = xml.etree.ElementTree.parse(self.manifest).getroot()
        return [(entry.tag, entry.get("Path"), entry.get("Sha256")) for entry in root]

    def digest(self, name):
        return hashlib.sha256((self.stage.folder / name).read_bytes()).hexdigest()

    def test_Manifest_NamesEachFileWithItsDigest(self):
        self.manifest.unlink()
        result = self.stage.run("manifest", WORKER, "Util.dll")
        self.expect_code(result, 0)
        self.assertEqual(self.entries(), [("FileAttributes", name, self.digest(name)) for name in (WORKER, "Util.dll")])
        self.assertEqual(result.output, f"{self.digest(WORKER)}  {WORKER}\n{self.digest('Util.dll')}  Util.dll\n")

    def test_ManifestWithEntries_KeepsOthersAndReplacesTheSamePath(self):
        self.manifest.write_text('<Files><Other Path="KXVCR.exe" Sha256="1"/>'
                                 '<FileAttributes Path="a.dll" Sha256="2"/><Extra Path="KXVCR.exe" Sha256="3"/>'
                                 '<FileAttributes Path="KXVCR.exe" Sha256="4"/></Files>')
        self.expect_code(self.stage.run("manifest", WORKER), 0)
        self.assertEqual(self.entries(), [("Other", WORKER, "1"), ("FileAttributes", "a.dll", "2"),
                                          ("Extra", WORKER, self.digest(WORKER))])

    def test_FileInAFolder_IsEnteredExactlyAsGiven(self):
        plugin = self.stage.folder / "plugins"
        plugin.mkdir(exist_ok=True)
        (plugin / "a.dll").write_bytes(b"abc")
        self.expect_code(self.stage.run("manifest", "plugins\\a.dll"), 0)
        self.assertIn(("FileAttributes", "plugins\\a.dll", hashlib.sha256(b"abc").hexdigest()), self.entries())

    def test_MissingFile_IsNamedAndNothingIsWritten(self):
        self.stage.trust(WORKER)
        before = self.manifest.read_bytes()
        result = self.stage.run("manifest", "Util.dll", "missing.dll")
        self.expect_code(result, NO_SUCH_FILE)
        self.assertIn('"missing.dll" is not a readable file', result.complaint)
        self.assertEqual(self.manifest.read_bytes(), before)
        self.assertEqual([path.name for path in self.manifest.parent.iterdir()], [self.manifest.name])

    def test_DamagedManifest_IsReportedAndStaysAsItIs(self):
        self.manifest.write_text("<Files><broken")
        result = self.stage.run("manifest", WORKER)
        self.expect_code(result, MANIFEST_UNREADABLE)
        self.assertIn("is not a readable XML file", result.complaint)
        self.assertEqual(self.manifest.read_text(), "<Files><broken")
        self.manifest.unlink()
        self.expect_code(self.stage.run("manifest", WORKER), 0)

    def test_BadArguments_EndWithTwoAndSayWhy(self):
        for arguments, word in (((), "subcommand"), (("record",), "FILE"), (("record", "a.mkv", "--fps", "0"), "--fps"),
                                (("record", "a.mkv", "--fps", "61"), "--fps"),
                                (("record", "a.mkv", "--region", "1,2,3"), "--region"),
                                (("record", "a.mkv", "--region", "0,0,0,5"), "--region"),
                                (("record", "a.mkv", "--quality", "101"), "--quality"),
                                (("record", "a.mkv", "--seconds", "-1"), "--seconds"),
                                (("record", "a.mkv", "--seconds", "x"), "--seconds"),
                                (("manifest",), "FILE"), (("paint",), "subcommand")):
            with self.subTest(arguments=arguments):
                result = self.stage.run(*arguments)
                self.expect_code(result, BAD_ARGUMENTS)
                self.assertIn(word, result.complaint)
                self.assertEqual(result.output, "")

    def test_HelpAndVersion_GoToStandardOutput(self):
        version = self.stage.run("--version")
        self.expect_code(version, 0)
        self.assertRegex(version.output, r"^kxrecord \d+\.\d+\.\d+\n$")
        for arguments, words in ((("--help",), ("record", "manifest", "191")),
                                 (("record", "--help"), ("--seconds", "--region", "Ctrl-C")),
                                 (("manifest", "--help"), ("CheckFileIntergrity.xml",))):
            with self.subTest(arguments=arguments):
                result = self.stage.run(*arguments)
                self.expect_code(result, 0)
                for word in words:
                    self.assertIn(word, result.output)
                self.assertEqual(result.complaint, "")


if __name__ == "__main__":
    main()
