"""The command lines, options and codes that the pages show are those of the program."""

import json
import re
import shutil

from recordcase import RecordCase, main
from stage import ROOT

PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
COMMAND_LINE = re.compile(r"^(?:\$ |> )?kxrecord ([^#\n]*)", flags=re.M)
OPTION = re.compile(r"--[a-z][a-z-]*")


def blocks(page):
    """The preformatted blocks of a page."""
    return re.findall(r"^```\w*\n(.*?)^```$", page.read_text(encoding="utf-8"), flags=re.M | re.S)


def code_of(*folders):
    """The text of all sources of these folders, without comments."""
    sources = [path for folder in folders for ending in ("h", "cpp") for path in (ROOT / folder).rglob(f"*.{ending}")]
    text = "\n".join(path.read_text(encoding="utf-8") for path in sorted(sources))
    return re.sub(r"/\*.*?\*/|^\s*//[^\n]*", "", text, flags=re.S | re.M)


def page_text(name):
    return (ROOT / "docs" / name).read_text(encoding="utf-8")


class Documents(RecordCase):
    def options_of(self, command):
        result = self.stage.run(command, "--help")
        self.expect_code(result, 0)
        return set(OPTION.findall(result.output))

    def test_CommandLinesOfThePages_HaveCommandsAndOptionsOfTheProgram(self):
        lines = [(page.name, line.split()) for page in PAGES for block in blocks(page)
                 for line in COMMAND_LINE.findall(block)]
        self.assertGreater(len(lines), 8)
        known = {}
        for page, (command, *words) in lines:
            if command.startswith("-"):
                continue
            options = known.setdefault(command, self.options_of(command))
            for word in words:
                if word.startswith("--"):
                    self.assertIn(word, options, f"{page}: kxrecord {command}")

    def test_OptionsOfTheCommandLinePage_AreThoseOfAnyCommand(self):
        text = (ROOT / "docs" / "kxrecord.md").read_text(encoding="utf-8")
        known = set().union(*(self.options_of(command) for command in ("record", "live", "info", "manifest")))
        self.assertEqual(set(OPTION.findall(text)) - known, set())

    def test_TableOfExitCodes_IsTheProgramsOwn(self):
        page = (ROOT / "docs" / "kxrecord.md").read_text(encoding="utf-8")
        section = page.split("## Exit codes")[1].split("## ")[0]
        told = re.findall(r"^\| (\d+) \| (.*) \|$", section, flags=re.M)
        result = self.stage.run("--help")
        self.expect_code(result, 0)
        printed = re.findall(r"^ +(\d+)  (.*)$", result.output.split("Exit codes:")[1], flags=re.M)
        self.assertEqual(told, printed)
        self.assertGreater(len(told), 10)

    def events_of(self, *arguments):
        return [json.loads(line) for line in self.stage.run(*arguments, "--json").output.splitlines()]

    def test_KeysOfTheJson_AreThoseOfTheCommandLinePage(self):
        page = page_text("kxrecord.md").split("## JSON")[1]
        rows = re.findall(r"^\| `(\w+)`( of a (?:recording|live view))?[^|]*\| (.*) \|$", page, flags=re.M)
        told = {event + of: set(re.findall(r"`(\w+)`", keys)) - {"null"} for event, of, keys in rows}
        recorded = self.events_of("record", self.stage.new_path("keys.mkv"), "--replay", 1, "--seconds", 2)
        served = self.events_of("live", "--seconds", 2)
        (refused,) = self.events_of("record", self.stage.new_path("none.mkv"), "--monitor", 99)
        seen = {}
        for of, events in ((" of a recording", recorded), (" of a live view", served), ("", [refused])):
            for event in events:
                kind = event["event"] + of if event["event"] + of in told else event["event"]
                self.assertEqual(event["schema"], 2)
                seen.setdefault(kind, set()).update(event.keys() - {"schema", "event"})
        self.assertEqual(seen, {kind: keys for kind, keys in told.items() if kind not in ("warning", "window")})

    def test_FilesOfTheConfigurationPage_AreThoseThatTheCodeNames(self):
        code = code_of("libraries", "systemenvironment", "agreement", "suite", "common", "worker")
        named = {name.replace("\\\\", "\\").lstrip("\\")
                 for name in re.findall(r'"([^"\n]*config\\\\[^"\n]*)"', code)}
        named |= set(re.findall(r'R"\((c:[^"]*)\)"', code))
        page = page_text("configuration.md").split("## Logs")[0]
        rows = re.findall(r"^\| `([^`]+)` \| [^|]*\| (?:`([^`]+)`)?", page, flags=re.M)
        self.assertEqual({name for name, _ in rows}, named)
        self.assertGreater(len(named), 4)
        for name, sample in rows:
            if sample:
                self.assertEqual(sample.replace(".sample", ""), name.rpartition("\\")[2])
                self.assertEqual(len(list((ROOT / "samples").glob(sample)) + list((ROOT / "suite/util").glob(sample))),
                                 1, sample)

    def test_LogSample_LetsHostAndWorkerWriteOneLog(self):
        config = self.stage.folder / "config" / "log4cplus.properties"
        shutil.copy(ROOT / "samples" / "log4cplus.sample.properties", config)
        self.addCleanup(config.unlink)
        self.expect_code(self.stage.run("record", self.stage.new_path("logged-\u00e9\u4e2d.mkv"), "--seconds", 1), 0)
        self.expect_code(self.stage.run("record", self.stage.new_path("none.mkv"), "--monitor", 99), 13)
        logs = list(self.stage.drive.glob("users/*/AppData/Local/screenrecord.log"))
        self.assertEqual(len(logs), 1)
        lines = logs[0].read_text(encoding="utf-8").splitlines()
        for line in lines:
            self.assertRegex(line, r"^20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} (INFO |WARN |ERROR) \[\d+:\d+\] ")
        for part in (" INFO .*Recording to .*logged-\u00e9\u4e2d\\.mkv.*recorder\\.cpp",
                     " WARN .*Refused prepare with result -9 .*commands\\.cpp",
                     " ERROR .*err=-9.*screenrecordproxy\\.cpp"):
            self.assertTrue([line for line in lines if re.search(part, line)], f"{part} in {lines}")

    def test_MessagesOfTheLaunch_AreInTheHostsGuide(self):
        proxy = (ROOT / "libraries/screenrecordproxy/screenrecordproxy.cpp").read_text(encoding="utf-8")
        launch = proxy.split("// ---- Launch")[1].split("// ---- Supervision")[0].split("::OnRecordProcessIPCReady")[0]
        logged = re.findall(r'Log(?:Warn|Error)\(kHere, "([^"]*)"', launch)
        manifest = (ROOT / "systemenvironment/integritymanifest.cpp").read_text(encoding="utf-8")
        sent = re.findall(r'debugline::Write\(kFunction, "([^"]*)"', manifest)
        guide = page_text("hosts-guide.md")
        self.assertGreater(len(logged), 6)
        self.assertGreater(len(sent), 5)
        for message in (*logged, *sent):
            self.assertIn(f"| `{message.rstrip() if message in logged else message}` |", guide)


if __name__ == "__main__":
    main()
