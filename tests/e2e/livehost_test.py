"""The host's live view: its address answers while it runs and is gone afterwards."""

import http.client
import json
import random
import re
import socket
import urllib.error
import urllib.request

from recordcase import RecordCase, main
from stage import HOST, SCREEN_HEIGHT, SCREEN_WIDTH, WINE_RUN, WORKER, wait_until
from terminal import Terminal

BAD_ARGUMENTS = 2
LIVE_REFUSED = 18
ANSWER_LIMIT_S = 20
OPEN_LIMIT_S = 20

PORTS = range(20000, 30000)  # which the system gives to nobody who does not ask for them

BROWSER_KEY = r"HKEY_CLASSES_ROOT\http\shell\open\command"


def free_port():
    while True:
        with socket.socket() as free:
            port = random.choice(PORTS)
            if free.connect_ex(("127.0.0.1", port)) != 0:
                return port


def ask(url):
    with urllib.request.urlopen(url, timeout=ANSWER_LIMIT_S) as answer:
        return answer.status, answer.read()


class LiveView(RecordCase):
    def start(self, *arguments):
        """A host that serves, and the object that it said first."""
        run = self.stage.start("live", "--json", *arguments)
        line = run.first_line()
        self.assertNotEqual(line, "")
        return run, json.loads(line)

    def expect_nobody_listens(self, port):
        with socket.socket() as client:
            self.assertNotEqual(client.connect_ex(("127.0.0.1", port)), 0)

    def test_Address_AnswersUntilTheTimeIsOver(self):
        run, started = self.start("--seconds", 4)
        port = started["port"]
        url = started["url"]
        self.assertEqual(started, {"schema": 2, "event": "started", "url": url, "networkUrl": None, "port": port})
        self.assertRegex(url, rf"\Ahttp://127\.0\.0\.1:{port}/[0-9a-f]{{32}}/\Z")
        with self.assertRaises(urllib.error.HTTPError) as refused:
            ask(f"http://127.0.0.1:{port}/")
        self.assertEqual(refused.exception.code, 404)
        self.assertEqual(ask(started["url"])[0], 200)
        status = json.loads(ask(started["url"] + "status")[1])
        self.assertEqual((status["width"], status["height"]), (SCREEN_WIDTH, SCREEN_HEIGHT))
        result = run.finish()
        self.expect_code(result, 0)
        *progress, finished = map(json.loads, result.output.splitlines())
        self.assertEqual([int(event["seconds"]) for event in progress][:3], [1, 2, 3])
        self.assertEqual((finished["event"], finished["exitCode"]), ("finished", 0))
        self.assertAlmostEqual(finished["seconds"], 4, delta=0.6)
        self.expect_nobody_listens(port)

    def test_Options_ReachTheWorker(self):
        port = free_port()
        run, started = self.start("--seconds", 3, "--port", port, "--clients", 3, "--region", "10,20,320,200")
        self.assertEqual(started["port"], port)
        status = json.loads(ask(started["url"] + "status")[1])
        self.assertEqual((status["width"], status["height"], status["maxClients"]), (320, 200, 3))
        self.expect_code(run.finish(), 0)

    def test_PlainOutput_IsTheAddressAndTheTime(self):
        result = self.stage.run("live", "--seconds", 1)
        self.expect_code(result, 0)
        self.assertEqual(result.complaint, "")
        self.assertRegex(result.output, r"\AServing the screen at http://127\.0\.0\.1:\d+/[0-9a-f]{32}/ "
                                        r"\(Ctrl-C stops\)\nServed for 00:00:01\.\d\n\Z")

    def test_Key_IsNewInEachRun(self):
        keys = {re.search("/([0-9a-f]{32})/", self.stage.run("live", "--seconds", 1).output).group(1) for _ in range(2)}
        self.assertEqual(len(keys), 2)

    def test_AllInterfaces_NamesTheMachineAndWarns(self):
        for options, key, warning in (
                ((), "[0-9a-f]{32}/", "the screen travels unencrypted: whoever can listen to the network can see it"),
                (("--no-key",), "", "everybody who reaches this machine can see its screen: there is no key")):
            with self.subTest(options=options):
                result = self.stage.run("live", "--seconds", 1, "--all-interfaces", *options)
                self.expect_code(result, 0)
                self.assertRegex(result.output, rf"\nFor other machines: http://[^/:]+:\d+/{key}\n")
                self.assertEqual(result.complaint, f"kxrecord: {warning}\n")

    def test_NoKey_IsAnOpenAddressAndWarns(self):
        run, started = self.start("--seconds", 2, "--no-key")
        self.assertEqual(started["url"], f"http://127.0.0.1:{started['port']}/")
        self.assertEqual(ask(started["url"])[0], 200)
        self.expect_code(run.finish(), 0)
        plain = self.stage.run("live", "--seconds", 1, "--no-key")
        self.assertEqual(plain.complaint, "kxrecord: every account of this machine can see the screen: there is no "
                                          "key\n")

    def test_PortInUse_IsRefusedInOneSentence(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            port = taken.getsockname()[1]
            plain = self.stage.run("live", "--seconds", 1, "--port", port)
            self.expect_code(plain, LIVE_REFUSED)
            self.assertRegex(plain.complaint, r"\Akxrecord: the worker refused to serve the live view: .*\n\Z")
            machine = self.stage.run("live", "--seconds", 1, "--port", port, "--json")
            self.expect_code(machine, LIVE_REFUSED)
            error = json.loads(machine.output)
            self.assertEqual((error["event"], error["code"]), ("error", LIVE_REFUSED))
            self.assertEqual(machine.complaint, "")
        self.expect_code(self.stage.run("live", "--seconds", 1), 0)

    def test_CtrlCOnATerminal_EndsTheView(self):
        terminal = Terminal([WINE_RUN, self.stage.folder / HOST, "live"], self.stage.environment, when=b"00:00:01",
                            answer=b"\x03")
        self.assertEqual(terminal.code, 0, terminal.text)
        port = int(re.search(r"http://127\.0\.0\.1:(\d+)/", terminal.text).group(1))
        self.assertRegex("\n".join(terminal.lines()), r"Served for 00:00:0\d\.\d\n")
        self.expect_nobody_listens(port)

    def test_KilledWorker_IsReported(self):
        run, started = self.start("--seconds", 60)
        self.assertEqual(ask(started["url"])[0], 200)
        self.stage.kill(WORKER)
        result = run.finish()
        *_, error, finished = map(json.loads, result.output.splitlines())
        self.assertNotEqual(result.code, 0)
        self.assertIn("ended by itself while it served the live view", error["message"])
        self.assertEqual(finished["exitCode"], result.code)
        with self.assertRaises((urllib.error.URLError, http.client.HTTPException, OSError)):
            ask(started["url"])

    def test_Open_HandsTheAddressToTheBrowser(self):
        opened = self.stage.new_path("opened.txt")
        command = f'cmd.exe /c echo %1>Z:{str(opened).replace("/", chr(92))}'
        self.stage.wine("reg", "add", BROWSER_KEY, "/ve", "/d", command, "/f")
        self.addCleanup(self.stage.wine, "reg", "delete", BROWSER_KEY, "/f")
        run, started = self.start("--seconds", 5, "--open")
        wait_until(lambda: opened.exists() and opened.read_bytes().endswith(b"\n"), OPEN_LIMIT_S,
                   "the browser's command")
        self.assertEqual(opened.read_text(encoding="utf-8").strip().strip('"'), started["url"])
        self.expect_code(run.finish(), 0)

    def test_BadArguments_EndWithTwo(self):
        for arguments, word in ((("--port", "65536"), "--port"), (("--port", "-1"), "--port"),
                                (("--clients", "0"), "--clients"), (("--clients", "65"), "--clients"),
                                (("--fps", "61"), "--fps"), (("--region", "1,2,3"), "--region"),
                                (("--region", "0,0,0,5"), "--region"), (("screen.mkv",), "screen.mkv")):
            with self.subTest(arguments=arguments):
                result = self.stage.run("live", *arguments)
                self.expect_code(result, BAD_ARGUMENTS)
                self.assertIn(word, result.complaint)
                self.assertEqual(result.output, "")


if __name__ == "__main__":
    main()
