"""A Chromium, driven over its debugging pipe: one page to look at and to ask."""

import base64
import fcntl
import json
import os
import select
import signal
import shutil
import subprocess
import time

ANSWER_LIMIT_S = 60
END_LIMIT_S = 10
FIRST_FREE_DESCRIPTOR = 10  # above the two that the browser expects its pipe at
WIDTH = 1280
HEIGHT = 800

FLAGS = ("--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
         "--window-position=0,0", "--remote-debugging-pipe")


def _away_from_the_pipe(descriptor):
    moved = fcntl.fcntl(descriptor, fcntl.F_DUPFD_CLOEXEC, FIRST_FREE_DESCRIPTOR)
    os.close(descriptor)
    return moved


class Browser:
    """One browser with one page; its profile is empty and is removed when the browser is closed. Headless, or with a
    window of a size on a display."""

    def __init__(self, profile, display=None, size=(WIDTH, HEIGHT), flags=()):
        self._profile = profile
        self._held = b""
        self._last_id = 0
        self.complaints = []
        theirs_in, self._to_browser = map(_away_from_the_pipe, os.pipe())
        self._from_browser, theirs_out = map(_away_from_the_pipe, os.pipe())
        flags = [*flags, f"--window-size={size[0]},{size[1]}", "--headless" if display is None else "--kiosk"]
        environment = os.environ if display is None else {**os.environ, "DISPLAY": display}
        command = ["bash", "-c", f'exec "$@" 3<&{theirs_in} 4>&{theirs_out}', "bash",
                   "chromium", *FLAGS, *flags, f"--user-data-dir={profile}", "about:blank"]
        self._process = subprocess.Popen(command, pass_fds=[theirs_in, theirs_out], env=environment,
                                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                         stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(theirs_in)
        os.close(theirs_out)
        try:
            pages = [target for target in self._call("Target.getTargets")["targetInfos"] if target["type"] == "page"]
            target = (pages[0] if pages else self._call("Target.createTarget", url="about:blank"))["targetId"]
            self._session = self._call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
            for domain in ("Page", "Runtime", "Log"):
                self._call(f"{domain}.enable", session=self._session)
        except BaseException:
            self.close()
            raise

    def close(self):
        """Ends the browser's own process group: the browser is the first process of its session."""
        if self._process.poll() is None:
            os.killpg(self._process.pid, signal.SIGTERM)
            try:
                self._process.wait(timeout=END_LIMIT_S)
            except subprocess.TimeoutExpired:
                os.killpg(self._process.pid, signal.SIGKILL)
                self._process.wait()
        os.close(self._to_browser)
        os.close(self._from_browser)
        shutil.rmtree(self._profile, ignore_errors=True)

    def before_every_page(self, script):
        """Has a script run in each new page before its own."""
        self._call("Page.addScriptToEvaluateOnNewDocument", session=self._session, source=script)

    def prefer(self, feature, value):
        """Says what a media query of the page finds, e.g. that the system is dark."""
        self._call("Emulation.setEmulatedMedia", session=self._session, features=[{"name": feature, "value": value}])

    def pretend_phone(self, width, height):
        self._call("Emulation.setDeviceMetricsOverride", session=self._session, width=width, height=height,
                   deviceScaleFactor=2, mobile=True)

    def open(self, url):
        answer = self._call("Page.navigate", session=self._session, url=url)
        if "errorText" in answer:
            raise AssertionError(f"{url} does not open: {answer['errorText']}")

    def ask(self, expression):
        """The value of a script's expression in the page."""
        answer = self._call("Runtime.evaluate", session=self._session, expression=expression, returnByValue=True,
                            awaitPromise=True, userGesture=True)
        if "exceptionDetails" in answer:
            raise AssertionError(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def screenshot(self, path):
        answer = self._call("Page.captureScreenshot", session=self._session, format="png")
        path.write_bytes(base64.b64decode(answer["data"]))

    def _call(self, method, session=None, **parameters):
        self._last_id += 1
        request = {"id": self._last_id, "method": method, "params": parameters}
        if session is not None:
            request["sessionId"] = session
        os.write(self._to_browser, json.dumps(request).encode() + b"\0")
        deadline = time.monotonic() + ANSWER_LIMIT_S
        while True:
            message = self._receive(deadline, method)
            if message.get("id") == self._last_id:
                if "error" in message:
                    raise AssertionError(f"{method}: {message['error']}")
                return message["result"]
            self._note(message)

    def _note(self, event):
        """Keeps what the page's own log or scripts complain about."""
        if event.get("method") == "Log.entryAdded" and event["params"]["entry"]["level"] == "error":
            self.complaints.append(event["params"]["entry"]["text"])
        if event.get("method") == "Runtime.exceptionThrown":
            self.complaints.append(event["params"]["exceptionDetails"]["text"])

    def _receive(self, deadline, method):
        while b"\0" not in self._held:
            if not select.select([self._from_browser], [], [], max(deadline - time.monotonic(), 0))[0]:
                raise AssertionError(f"{method}: no answer from the browser within {ANSWER_LIMIT_S} s")
            chunk = os.read(self._from_browser, 1 << 20)
            if not chunk:
                raise AssertionError(f"{method}: the browser has ended")
            self._held += chunk
        message, self._held = self._held.split(b"\0", 1)
        return json.loads(message)
