"""The live page in a real browser: what is seen, heard and said there, and whom it is not shown to."""

import json

from live_test import SHOWN_LIMIT_S, LiveCase, VideoReader
from recordcase import main
from sound_test import MONITOR, TONE, TONE_HZ, Clapper, Sounds
from stage import HOST, RUN_LIMIT_S, wait_until

VIEW_S = 120  # of a view that a test ends as soon as it is done
FOREIGN_NAME = "screen.example.org"
PHONE = (360, 640)
SMALLEST_BUTTON = 40  # for a thumb
TONE_WIDTH_HZ = 12
LOWEST_TONE = TONE / 4
SLOWEST = 0.97
FASTEST = 1.08
MOST_BEHIND_S = 0.3
BACK_S = 0.8

# Listens to the page's sound in place of the loudspeaker.
LISTEN = """(() => {
  const context = new AudioContext();
  window.ear = context.createAnalyser();
  ear.fftSize = 8192;
  context.createMediaElementSource(document.getElementById("heard")).connect(ear);
  return context.resume();
})()"""
HEARD = """(() => {
  const wave = new Float32Array(ear.fftSize), levels = new Float32Array(ear.frequencyBinCount);
  ear.getFloatTimeDomainData(wave);
  ear.getFloatFrequencyData(levels);
  const loudest = levels.indexOf(Math.max(...levels));
  return [Math.max(...wave), loudest * ear.context.sampleRate / ear.fftSize];
})()"""

NOTICE = "document.getElementById('notice').checkVisibility() ? document.getElementById('notice').innerText : ''"

# With the page's own name for its picture.
WATCH_THE_EDGE = """
  window.jumps = 0;
  window.rates = [];
  video.addEventListener("seeking", () => { jumps += 1; });
  video.addEventListener("ratechange", () => { rates.push(video.playbackRate); });
"""
GO_BACK = f"video.currentTime = video.buffered.end(0) - {BACK_S}"
BEHIND = "video.buffered.end(0) - video.currentTime"


def state_of(browser):
    return browser.ask("document.body?.dataset.state")


def words_of(browser):
    return browser.ask("document.getElementById('state')?.textContent")


class PageCase(LiveCase):
    def start_view(self, *options):
        """The address that the command-line host prints, while its view runs."""
        run = self.stage.start("live", "--json", "--seconds", VIEW_S, *options, limit_s=RUN_LIMIT_S + VIEW_S)
        self.addCleanup(run.abandon)
        self.addCleanup(self.stage.kill, HOST)
        return json.loads(run.first_line())["url"]


class LivePage(PageCase):
    def test_DelayAndSize_AreShown(self):
        browser = self.open_browser(self.start().url)
        wait_until(lambda: browser.ask("document.getElementById('delay').textContent") != "\u2013", SHOWN_LIMIT_S,
                   "the delay")
        self.assertRegex(browser.ask("document.getElementById('delay').textContent"), r"\A\d+ ms\Z")
        self.assertEqual(browser.ask("document.getElementById('size').textContent"), "1280 \u00d7 720")

    def test_PictureThatFellBehind_JumpsToTheNewest(self):
        browser = self.open_browser(self.start().url)
        browser.ask(WATCH_THE_EDGE)
        wait_until(lambda: browser.ask("video.currentTime") > 2 * BACK_S, SHOWN_LIMIT_S,
                   "enough to go back to")
        browser.ask(GO_BACK)
        wait_until(lambda: browser.ask("jumps") > 1, SHOWN_LIMIT_S, "the jump")
        wait_until(lambda: browser.ask(BEHIND) < MOST_BEHIND_S, SHOWN_LIMIT_S, "the newest picture")
        for rate in browser.ask("rates"):
            self.assertTrue(SLOWEST <= rate <= FASTEST, rate)

    def test_AllPlacesTaken_IsSaidUntilOneIsFree(self):
        host = self.start(clients=1)
        viewer = VideoReader(host)
        self.addCleanup(viewer.close)
        self.assertTrue(viewer.wait_for(1))
        browser = self.new_browser()
        browser.open(host.url)
        wait_until(lambda: state_of(browser) == "lost", SHOWN_LIMIT_S, "the refusal")
        self.assertEqual(words_of(browser), "Trying again: all viewers' places are taken")
        self.assertEqual(browser.ask(NOTICE), "Trying again: all viewers' places are taken")
        viewer.close()
        wait_until(lambda: state_of(browser) == "live", SHOWN_LIMIT_S, "the picture")
        self.assertEqual(browser.ask(NOTICE), "")

    def test_EndOfTheRecording_IsSaid(self):
        host = self.start()
        browser = self.open_browser(host.url)
        host.stop()
        wait_until(lambda: words_of(browser) == "Trying again: no connection", SHOWN_LIMIT_S, "the words")

    def test_KeyWrongByABit_ShowsNothing(self):
        url = self.start_view()
        self.open_browser(url)
        digit = url.rstrip("/")[-1]
        wrong = url.rstrip("/")[:-1] + f"{int(digit, 16) ^ 1:x}/"
        browser = self.new_browser()
        browser.open(wrong)
        wait_until(lambda: browser.ask("document.readyState") == "complete", SHOWN_LIMIT_S, "the answer")
        self.assertEqual(browser.ask("document.body.innerText.trim()"), "There is nothing here.")
        self.assertEqual(browser.ask("fetch('stream.mp4').then((answer) => answer.status)"), 404)

    def test_PageWhoseNamePointsHere_SeesNothing(self):
        host = self.start()
        browser = self.new_browser(flags=[f"--host-resolver-rules=MAP {FOREIGN_NAME} 127.0.0.1"])
        browser.open(f"http://{FOREIGN_NAME}:{host.port}/")
        wait_until(lambda: browser.ask("document.readyState") == "complete", SHOWN_LIMIT_S, "the answer")
        self.assertEqual(browser.ask("location.hostname"), FOREIGN_NAME)
        self.assertEqual(browser.ask("document.body.innerText.trim()"), "This server does not answer to this name.")
        for path in ("status", "snapshot.jpg", "stream", "stream.mp4"):
            self.assertEqual(browser.ask(f"fetch('/{path}').then((answer) => answer.status)"), 403, path)

    def test_Page_FollowsTheSystemsColours(self):
        browser = self.open_browser(self.start().url)
        colours = []
        for scheme in ("light", "dark"):
            browser.prefer("prefers-color-scheme", scheme)
            colours.append(browser.ask("getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)"))
        self.assertGreater(min(colours[0]), 200)
        self.assertLess(max(colours[1]), 60)

    def test_Phone_ShowsEverythingWithoutScrolling(self):
        host = self.start()
        browser = self.new_browser()
        browser.pretend_phone(*PHONE)
        browser.open(host.url)
        wait_until(lambda: state_of(browser) == "live", SHOWN_LIMIT_S, "a live picture")
        self.assertEqual(browser.ask("[innerWidth, document.documentElement.scrollWidth,"
                                     " document.documentElement.scrollHeight]"), [PHONE[0], *PHONE])
        heights = browser.ask("[...document.querySelectorAll('nav > *')].filter((part) => !part.hidden)"
                              ".map((part) => part.getBoundingClientRect().height)")
        self.assertGreaterEqual(min(heights), SMALLEST_BUTTON)


class LivePageSound(PageCase):
    @classmethod
    def setUpClass(cls):
        cls.sounds = Sounds()
        cls.addClassCleanup(cls.sounds.close)
        super().setUpClass()
        cls.clapper = Clapper(cls.settings.bin, cls.stage)

    @classmethod
    def tearDownClass(cls):
        cls.clapper.close()
        super().tearDownClass()

    def test_Sound_IsOffUntilTheButtonIsPressedAndThenHeard(self):
        browser = self.open_browser(self.start_view("--sound", "microphone", "--sound-device", MONITOR))
        wait_until(lambda: not browser.ask("document.getElementById('sound').hidden"), SHOWN_LIMIT_S, "the button")
        self.assertEqual(browser.ask("document.getElementById('sound').getAttribute('aria-pressed')"), "false")
        browser.ask(LISTEN)
        self.assertEqual(browser.ask(HEARD)[0], 0)

        browser.ask("document.getElementById('sound').click()")
        self.assertEqual(browser.ask("document.getElementById('sound').getAttribute('aria-pressed')"), "true")
        wait_until(lambda: browser.ask(HEARD)[0] > LOWEST_TONE, SHOWN_LIMIT_S, "the sound")
        wait_until(lambda: abs(browser.ask(HEARD)[1] - TONE_HZ) < TONE_WIDTH_HZ, SHOWN_LIMIT_S, "the tone")

        browser.ask("document.dispatchEvent(new KeyboardEvent('keydown', {key: 'm'}))")
        wait_until(lambda: browser.ask(HEARD)[0] == 0, SHOWN_LIMIT_S, "the silence")


if __name__ == "__main__":
    main()
