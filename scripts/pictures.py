#!/usr/bin/env python3
"""Makes the pictures of the pages, in docs/: the live page, a recording that a browser plays, and "kxrecord info".

Records and serves a scene of benchmarks/sceneplayer on a virtual display, in a throw-away Wine prefix, and takes
pictures of a headless Chromium. Needs the build (scripts/build.sh) and what scripts/bootstrap.sh installs.
"""

import argparse
import html
import json
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
DOCS = ROOT / "docs"
sys.path.insert(0, str(ROOT / "tests" / "e2e"))
from browser import Browser  # noqa: E402
from stage import RUN_LIMIT_S, Stage, WINE_RUN, wait_until  # noqa: E402

SCENE = "windows"
SCENE_S = 120
RECORDED_S = 4
SHOWN_AT_S = 2.5
LIVE_S = 15
LIVE_BEFORE_PICTURE_S = 3  # for figures that have settled
COLOURS = 96
INFO_LINES = 32
INFO_TITLE = "kxrecord info"
INFO_PAGE = """<title>kxrecord info</title>
<body style="margin:0;background:#1b1e24;overflow:hidden">
<pre style="color:#d8dee9;font:14px/1.35 monospace;margin:1em"><span style="color:#8fbcbb">&gt; kxrecord info</span>
{text}</pre></body>"""


def shrink(path):
    """A palette and no dither: pictures of screens get small and stay sharp."""
    small = path.with_suffix(".small.png")
    graph = f"split[a][b];[a]palettegen=max_colors={COLOURS}:reserve_transparent=0[p];[b][p]paletteuse=dither=none"
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", path, "-vf", graph, small], check=True)
    small.replace(path)
    print(f"{path.relative_to(ROOT)}: {path.stat().st_size} bytes")


def expect_success(result):
    if result.code != 0:
        raise RuntimeError(f"kxrecord ended with {result.code}: {result.complaint}")
    return result


def picture_of_live_page(stage, browser, path):
    run = stage.start("live", "--seconds", LIVE_S, "--json", limit_s=RUN_LIMIT_S + LIVE_S)
    browser.open(json.loads(run.first_line())["url"])
    wait_until(lambda: browser.ask("document.getElementById('picture')?.videoWidth"), LIVE_S, "the live picture")
    time.sleep(LIVE_BEFORE_PICTURE_S)
    browser.screenshot(path)
    expect_success(run.finish())


def picture_of_recording(stage, browser, path):
    recording = stage.new_path("recording.mp4")
    expect_success(stage.run("record", recording, "--seconds", RECORDED_S))
    browser.open(recording.as_uri())
    wait_until(lambda: browser.ask("document.querySelector('video')?.readyState") == 4, RUN_LIMIT_S, "the recording")
    browser.ask("(async () => { const v = document.querySelector('video'); v.pause(); v.controls = true;"
                f"await new Promise(done => {{ v.onseeked = done; v.currentTime = {SHOWN_AT_S}; }}); }})()")
    time.sleep(1)  # the player's controls fade in
    browser.screenshot(path)


def picture_of_info(stage, browser, path):
    lines = expect_success(stage.run("info")).output.splitlines()
    text = "\n".join(lines[:INFO_LINES] + (["..."] if len(lines) > INFO_LINES else []))
    page = stage.new_path("info.html")
    page.write_text(INFO_PAGE.format(text=html.escape(text)), encoding="utf-8")
    browser.open(page.as_uri())
    wait_until(lambda: browser.ask("document.fonts.ready.then(() => document.title)") == INFO_TITLE, RUN_LIMIT_S,
               "the answers")
    browser.screenshot(path)


PICTURES = {"kxrecord-info": picture_of_info, "live-page": picture_of_live_page,
            "recording-in-browser": picture_of_recording}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/mingw-release/bin",
                        help="folder with the built programs")
    parser.add_argument("names", nargs="*", metavar="PICTURE", help=f"only these: {', '.join(PICTURES)}")
    arguments = parser.parse_args()
    if unknown := set(arguments.names) - PICTURES.keys():
        parser.error(f"there is no picture {', '.join(sorted(unknown))}")
    with tempfile.TemporaryDirectory(dir=ROOT / "build") as work:
        stage = Stage(arguments.bin, pathlib.Path(work) / "stage")
        scene = subprocess.Popen([WINE_RUN, arguments.bin / "sceneplayer.exe", "show", SCENE, str(SCENE_S)],
                                 env=stage.environment, stdout=subprocess.DEVNULL)
        browser = Browser(pathlib.Path(work) / "profile")
        try:
            for name in arguments.names or PICTURES:
                PICTURES[name](stage, browser, DOCS / f"{name}.png")
                shrink(DOCS / f"{name}.png")
        finally:
            browser.close()
            scene.kill()
            scene.wait()
            stage.close()


if __name__ == "__main__":
    sys.exit(main())
