"""The host's other commands and its arguments."""

import hashlib
import json
import subprocess
import xml.etree.ElementTree

from recordcase import RecordCase, main
from stage import START_LIMIT_S, WORKER

BAD_ARGUMENTS = 2
MANIFEST_UNREADABLE = 16
NO_SUCH_FILE = 17
NOT_A_RECORDING = 20


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

    def test_ManifestJson_IsOneObjectWithEachFile(self):
        result = self.stage.run("manifest", WORKER, "--json")
        self.expect_code(result, 0)
        self.assertEqual(json.loads(result.output),
                         {"schema": 2, "manifest": "Z:" + str(self.manifest).replace("/", "\\"),
                          "files": [{"file": WORKER, "sha256": self.digest(WORKER)}]})
        failed = self.stage.run("manifest", "missing.dll", "--json")
        self.expect_code(failed, NO_SUCH_FILE)
        error = json.loads(failed.output)
        self.assertEqual((error["event"], error["code"], error["exitCode"]), ("error", NO_SUCH_FILE, NO_SUCH_FILE))

    def test_FileThatIsNoRecording_IsReplacedOnlyWhenToldSo(self):
        path = self.stage.new_path("diary.mkv")
        path.write_text("Dear diary")
        result = self.stage.run("record", path, "--seconds", 0.5)
        self.expect_code(result, NOT_A_RECORDING)
        self.assertIn("exists and is not a recording", result.complaint)
        self.assertEqual(path.read_text(), "Dear diary")
        self.expect_code(self.stage.run("record", path, "--seconds", 0.5, "--overwrite"), 0)
        self.expect_code(self.stage.run("record", path, "--seconds", 0.5), 0)

    def test_FolderOfThatName_IsNotOfferedForReplacement(self):
        path = self.stage.new_path("folder.mkv")
        path.mkdir()
        for replace in ((), ("--overwrite",)):
            result = self.stage.run("record", path, "--seconds", 0.5, *replace)
            self.expect_code(result, NOT_A_RECORDING)
            self.assertRegex(result.complaint, r"^kxrecord: \S+\\\d+-folder\.mkv is a folder; give another name\n$")

    def test_Completion_IsAScriptThatTheShellTakes(self):
        result = self.stage.run("completion", "bash")
        self.expect_code(result, 0)
        answer = subprocess.run(["bash", "-c", result.output + 'COMP_WORDS=(kxrecord record --sec); COMP_CWORD=2; '
                                 '_kxrecord; echo "${COMPREPLY[@]}"'], capture_output=True, text=True, check=True,
                                timeout=START_LIMIT_S)
        self.assertEqual((answer.stdout, answer.stderr), ("--seconds\n", ""))

    def test_BadArguments_EndWithTwoAndSayWhy(self):
        for arguments, word in (((), "subcommand"), (("record",), "FILE"), (("record", "a.mkv", "--fps", "0"), "--fps"),
                                (("record", "a.mkv", "--fps", "61"), "--fps"),
                                (("record", "a.mkv", "--region", "1,2,3"), "--region"),
                                (("record", "a.mkv", "--region", "0,0,0,5"), "--region"),
                                (("record", "a.mkv", "--quality", "101"), "--quality"),
                                (("record", "a.mkv", "--seconds", "-1"), "--seconds"),
                                (("record", "a.mkv", "--seconds", "x"), "--seconds"),
                                (("manifest",), "FILE"), (("paint",), 'there is no command "paint"')):
            with self.subTest(arguments=arguments):
                result = self.stage.run(*arguments)
                self.expect_code(result, BAD_ARGUMENTS)
                self.assertIn(word, result.complaint)
                self.assertEqual(result.output, "")

    def test_HelpAndVersion_GoToStandardOutput(self):
        version = self.stage.run("--version")
        self.expect_code(version, 0)
        self.assertRegex(version.output, r"^kxrecord \d+\.\d+\.\d+\n"
                                         r"ScreenRecordProxy\.dll \d+\.\d+\.\d+\nKXVCR\.exe .*\n$")
        for arguments, words in ((("--help",), ("record", "manifest", "124")),
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
