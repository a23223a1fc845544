"""The command lines, options and codes that the pages show are those of the program."""

import re

from recordcase import RecordCase, main
from stage import ROOT

PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
COMMAND_LINE = re.compile(r"^(?:\$ |> )?kxrecord ([^#\n]*)", flags=re.M)
OPTION = re.compile(r"--[a-z][a-z-]*")


def blocks(page):
    """The preformatted blocks of a page."""
    return re.findall(r"^```\w*\n(.*?)^```$", page.read_text(encoding="utf-8"), flags=re.M | re.S)


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


if __name__ == "__main__":
    main()
