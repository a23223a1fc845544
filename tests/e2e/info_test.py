"""What "kxrecord info" prints, for people, for scripts and for machines."""

import json
import re
import shutil
import subprocess

from recordcase import RecordCase, main
from stage import HOST, ROOT, START_LIMIT_S, WINE_RUN, WORKER
from terminal import Terminal

GROUPS = ["agreements", "settings", "Windows", "firmware", "product", "features", "display", "files"]
WRITERS = {"SetAgreeCache", "FixSmallCrashDump", "SetLogSwitch", "ApplyDpiSetting", "SaveLastestSystemDpi",
           "RestoreSystemDpi4Common", "RestoreSystemDpi"}
TEXT_HELPERS = {"TrimOemVersion"}
MAY_WRITE = {"IsAgreeClause", "IsAutoRepairEnabled", "GetOEMVersion", "GetSystemSkuCode", "GetDeviceId",
             "GetProductSeries", "GetLogPackageName", "GetLogPackageZipName"}

WINDOWS_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion"
BIOS_KEY = r"HKEY_LOCAL_MACHINE\HARDWARE\DESCRIPTION\System\BIOS"
POWER_KEY = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Control\Session Manager\Power"
MACHINE_GUIDE_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Calvora\KXLoginGuide"
USER_GUIDE_KEY = r"HKEY_CURRENT_USER\SOFTWARE\Calvora\KXLoginGuide"
USER_SETTING_KEY = r"HKEY_CURRENT_USER\SOFTWARE\Orvane\Calvora\setting"
EXPIRY_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Calvora\setting\expireLogin"
MONITORS_KEY = r"HKEY_CURRENT_USER\Control Panel\Desktop\PerMonitorSettings"
EXPORTED = (r"HKEY_LOCAL_MACHINE\HARDWARE\DESCRIPTION", r"HKEY_LOCAL_MACHINE\SOFTWARE\Calvora",
            r"HKEY_CURRENT_USER\SOFTWARE")

SWITCHES = '<Switches><Power><Saver support="SampleBook 14;">1</Saver><Off>0</Off></Power></Switches>'


def queries_of_the_headers():
    """The names of the public functions, as the headers declare them."""
    names = set()
    for header in ("agreementsign.h", "systemenvironment.h"):
        code = re.sub(r"/\*.*?\*/|//[^\n]*", "", (ROOT / "include" / header).read_text(encoding="utf-8"), flags=re.S)
        public = re.sub(r"private:.*?\n};", "", code, flags=re.S)
        names.update(re.findall(r"\bstatic [\w:]+ (\w+)\(", public))
        names.update(re.findall(r"^KXSCREENRECORD_API [\w:]+ (\w+)\(", public, flags=re.M))
    return names


def query_of(name):
    """The query that a printed name stands for: without an argument and without what part of the answer it is."""
    return re.split(r"[( ]", name)[0]


class Info(RecordCase):
    def set_value(self, key, name, kind, data):
        self.stage.wine("reg", "add", key, "/v", name, "/t", kind, "/d", data, "/f")
        self.addCleanup(self.stage.wine, "reg", "delete", key, "/v", name, "/f")

    def import_text(self, key, name, units):
        """A text of any UTF-16 units, which no command line could pass on."""
        data = ",".join(f"{byte:02x}" for unit in (*units, 0) for byte in unit.to_bytes(2, "little"))
        path = self.stage.new_path("value.reg")
        path.write_bytes(f'Windows Registry Editor Version 5.00\r\n\r\n[{key}]\r\n"{name}"=hex(1):{data}\r\n'
                         .encode("utf-16"))
        self.stage.wine("reg", "import", path)
        self.addCleanup(self.stage.wine, "reg", "delete", key, "/v", name, "/f")

    def configure(self, name, text):
        path = self.stage.folder / "config" / name
        path.write_text(text, encoding="utf-8")
        self.addCleanup(path.unlink)

    def registry(self):
        exports = []
        for key in EXPORTED:
            path = self.stage.new_path("export.reg")
            if subprocess.run([WINE_RUN, "reg", "export", key, path, "/y"], env=self.stage.environment, check=False,
                              timeout=START_LIMIT_S, capture_output=True).returncode == 0:
                exports.append(path.read_bytes())
        return exports

    def json(self, *arguments):
        result = self.stage.run("info", "--json", *arguments)
        self.expect_code(result, 0)
        self.assertEqual(result.complaint, "")
        document = json.loads(result.output)
        self.assertEqual(document["schema"], 2)
        groups = {}
        for answer in document["answers"]:
            self.assertEqual(list(answer)[:5], ["group", "function", "argument", "asked", "value"])
            group, function, argument = (answer.pop(key) for key in ("group", "function", "argument"))
            groups.setdefault(group, {})[function if argument is None else f"{function}({argument})"] = answer
        return groups

    def lines(self, *arguments):
        result = self.stage.run("info", *arguments)
        self.expect_code(result, 0)
        self.assertEqual(result.complaint, "")
        self.assertTrue(result.output.endswith("\n"))
        return result.output[:-1].split("\n")

    def on_a_terminal(self, *arguments, **environment):
        terminal = Terminal([WINE_RUN, self.stage.folder / HOST, "info", *arguments],
                            {**self.stage.environment, **environment})
        self.assertEqual(terminal.code, 0, terminal.text)
        return terminal

    def test_Json_NamesEveryQueryOfTheLibraryInItsGroup(self):
        answer = self.json()
        self.assertEqual(list(answer), GROUPS)
        named = {query_of(name) for group in answer.values() for name in group}
        offered = queries_of_the_headers()
        self.assertGreater(len(offered), 50)
        self.assertLessEqual(WRITERS | TEXT_HELPERS | MAY_WRITE, offered)
        self.assertEqual(named, offered - WRITERS - TEXT_HELPERS)

    def test_CleanPrefix_HasAnAnswerOrTheReasonWhyThereIsNone(self):
        answer = self.json()
        self.assertEqual(answer["agreements"]["JudgeAgreementSign"],
                         {"asked": True, "value": 2, "meaning": "agreement service not in use"})
        self.assertEqual(answer["firmware"]["GetVersionFromRegistry"],
                         {"asked": True, "value": None, "note": "Registry GetValue fail"})
        self.assertEqual(answer["product"]["GetDeviceTypeEx"],
                         {"asked": True, "value": None, "note": "fail to get product name. result:1"})
        self.assertEqual(answer["features"]["IsSupportNpsPop"],
                         {"asked": True, "value": False, "note": "result=1,GetSupportNpsPopStatus=0"})
        self.assertEqual(answer["settings"]["GetPowerManagerIntellMode"], {"asked": True, "value": "1"})
        self.assertEqual(answer["files"][f"CompareFileIntergrity({WORKER})"], {"asked": True, "value": True})
        self.assertEqual(answer["features"]["IsSupportDeviceFunc"],
                         {"asked": False, "value": None, "note": "give --function GROUP/NAME"})

    def test_QueriesThatMayWrite_AreAskedOnlyWithAll(self):
        for arguments, asked in (((), False), (("--all",), True)):
            with self.subTest(arguments=arguments):
                answer = self.json(*arguments)
                facts = {query_of(name): fact for group in answer.values() for name, fact in group.items()}
                self.assertEqual({name: facts[name]["asked"] for name in MAY_WRITE}, dict.fromkeys(MAY_WRITE, asked))

    def test_RegistryValues_AreTheAnswers(self):
        self.set_value(WINDOWS_KEY, "ReleaseId", "REG_SZ", "2009")
        self.set_value(WINDOWS_KEY, "BuildBranch", "REG_SZ", "vb_release")
        self.set_value(WINDOWS_KEY, "BuildLabEx", "REG_SZ", "19041.1.amd64fre")
        self.set_value(WINDOWS_KEY, "UBR", "REG_DWORD", "1237")
        self.set_value(BIOS_KEY, "BIOSVersion", "REG_SZ", "1.5.7")
        self.set_value(POWER_KEY, "HiberbootEnabled", "REG_DWORD", "1")
        self.set_value(MACHINE_GUIDE_KEY, "LogSwitch", "REG_SZ", "1")
        self.set_value(USER_GUIDE_KEY, "Capture", "REG_SZ", "ja ä 屏幕")
        self.set_value(USER_SETTING_KEY, "Volume", "REG_DWORD", "513")
        answer = self.json("--setting", "Volume", "--setting", "Missing")
        self.assertEqual({name: answer["Windows"][name]["value"]
                          for name in ("GetOSReleaseId", "GetOSBuildBranch", "GetOSBuildVersion")},
                         {"GetOSReleaseId": "2009", "GetOSBuildBranch": "vb_release",
                          "GetOSBuildVersion": "19041.1237"})
        self.assertEqual(answer["firmware"]["GetBIOSVersion"]["value"], "1.5")
        self.assertEqual(answer["firmware"]["ParseBIOSVersionOfPadLeft"]["value"], "01.05")
        settings = {name: fact["value"] for name, fact in answer["settings"].items()}
        self.assertEqual(settings["GetSessionPowerValue(HiberbootEnabled)"], 1)
        self.assertEqual(settings["GetLogSwitch"], "1")
        self.assertEqual(settings["GetCaptureSwitch"], "ja ä 屏幕")
        self.assertEqual(settings["ReadValue(Volume)"], 513)
        self.assertEqual(settings["ReadValue as bytes(Volume)"], "0102")
        self.assertEqual(settings["ReadValue(Missing)"], -1)
        self.assertIsNone(settings["ReadValue as bytes(Missing)"])
        self.assertIn("GetCaptureSwitch: ja ä 屏幕", self.lines())

    def test_ProductFiles_AnswerFeaturesAndFunctions(self):
        shutil.copy(ROOT / "suite" / "util" / "ProductProfile.sample.xml",
                    self.stage.folder / "config" / "ProductProfile.xml")
        self.addCleanup((self.stage.folder / "config" / "ProductProfile.xml").unlink)
        self.configure("DeviceFuncSwitchConf.xml", SWITCHES)
        lines = self.lines("--function", "Power/Saver", "--function", "Power/Off", "--function", "Power/None")
        for line in ("GetDeviceTypeEx: SampleBook 14", "GetProductNameForKxshare: SampleBook",
                     "IsSupportFingerPrint: yes", "IsSupportWifiGpio: no", "IsSupportTimeBack: yes",
                     "IsSupportDeviceFunc(Power/Saver): yes", "IsSupportDeviceFunc(Power/Off): no",
                     "IsProductInSupportList(Power/Saver): yes", "IsProductInSupportList(Power/None): not available"):
            self.assertIn(line, lines)

    def test_PlainRun_LeavesTheRegistryAsItIs(self):
        users = self.stage.wine("reg", "query", "HKEY_USERS").stdout.decode("utf-8", "replace")
        sid, = set(re.findall(r"S-1-5-21[-0-9]+", users))
        self.set_value(EXPIRY_KEY, sid, "REG_SZ", "1")
        self.set_value(USER_GUIDE_KEY, "Protocol", "REG_SZ", "1")
        before = self.registry()
        self.assertEqual(len(before), len(EXPORTED))
        self.lines()
        self.json("--dpi")
        self.assertEqual(self.registry(), before)
        clause = self.json("--all")["agreements"]["IsAgreeClause"]
        self.assertEqual(clause, {"asked": True, "value": "0", "note": f"current agreeClause is expired {sid}"})
        self.assertNotEqual(self.registry(), before)

    def test_TextThatIsNoUnicode_BecomesValidUtf8(self):
        self.import_text(USER_GUIDE_KEY, "Capture", (0xD800, ord("A"), 0x1B, ord("["), 0x0A))
        self.assertEqual(self.json()["settings"]["GetCaptureSwitch"]["value"], "\ufffdA\x1b[\n")
        self.assertIn("GetCaptureSwitch: \ufffdA\\x1b[\\x0a", self.lines())

    def test_PipedOutput_IsOneLineAQueryWithoutTabsAndEscapes(self):
        lines = self.lines()
        for line in lines:
            self.assertRegex(line, r"^\w[^:\t]*: [^\x00-\x1f\x7f]+$")
        names = [line.split(": ")[0] for line in lines]
        self.assertEqual(names, [name for group in self.json().values() for name in group])

    def test_Dpi_TellsOfTheDisplayAlone(self):
        answer = self.json("--dpi")
        self.assertEqual(list(answer), ["display"])
        self.assertEqual(list(answer["display"]), ["GetLastestSystemDpi", "GetLastestSystemDpi step"])
        self.assertEqual(answer["display"]["GetLastestSystemDpi"]["value"], 96)
        self.assertEqual(answer["display"]["GetLastestSystemDpi"]["meaning"], "100 %")
        self.addCleanup(self.stage.wine, "reg", "delete", MONITORS_KEY, "/f")
        self.stage.wine("reg", "add", MONITORS_KEY + r"\A", "/v", "DpiValue", "/t", "REG_DWORD", "/d", "2")
        self.assertEqual(self.json("--dpi")["display"]["GetLastestSystemDpi step"], {"asked": True, "value": 2})

    def test_Terminal_ShowsAnAlignedTableWithHeadingsInColour(self):
        terminal = self.on_a_terminal()
        self.assertTrue(terminal.is_coloured)
        lines = terminal.lines()
        headings = [line for line in lines if line and not line.startswith(" ")]
        self.assertEqual(headings, [group[0].upper() + group[1:] for group in GROUPS])
        facts = [line for line in lines if line.startswith("  ") and line[2] != " "]
        columns = {re.match(r"  .*?  +", line).end() for line in facts if " step" not in line and " as " not in line}
        self.assertEqual(len(columns), 1, lines)
        names = [line[2:columns.copy().pop()].rstrip() for line in facts]
        self.assertEqual(names, [name for group in self.json().values() for name in group])
        self.assertLessEqual(max(map(len, lines)), 119)

    def test_NarrowTerminal_KeepsLongAnswersInTheirColumn(self):
        terminal = Terminal([WINE_RUN, self.stage.folder / HOST, "info"], self.stage.environment, columns=80)
        lines = terminal.lines()
        self.assertLessEqual(max(map(len, lines)), 79)
        column = next(line.index("not available") for line in lines if line.startswith("  GetDeviceTypeEx"))
        continued = [line for line in lines if line.startswith("   ")]
        self.assertNotEqual(continued, [])
        for line in continued:
            self.assertEqual(len(line) - len(line.lstrip()), column, line)

    def test_NoColor_IsRespectedOnATerminal(self):
        self.assertFalse(self.on_a_terminal(NO_COLOR="1").is_coloured)
        self.assertTrue(self.on_a_terminal(NO_COLOR="").is_coloured)

    def test_BadArguments_EndWithTwo(self):
        for arguments, word in ((("--jason",), "--jason"), (("--log-type", "x"), "--log-type"),
                                (("--file",), "--file"), (("extra",), "extra")):
            with self.subTest(arguments=arguments):
                result = self.stage.run("info", *arguments)
                self.expect_code(result, 2)
                self.assertIn(word, result.complaint)
                self.assertEqual(result.output, "")


if __name__ == "__main__":
    main()
