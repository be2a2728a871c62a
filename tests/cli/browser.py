"""Drives a headless Chromium through its driver, with nothing but what Python brings along."""

import json
import shutil
import subprocess
import tempfile
import urllib.request

# Seconds for one answer of the browser; a busy machine is slow, a browser that hangs hangs for ever.
PATIENCE = 60


def missing():
    """The program that is not there, or None."""
    for program in ("chromium", "chromedriver"):
        if shutil.which(program) is None:
            return program
    return None


class Browser:
    def __init__(self):
        self.profile = tempfile.TemporaryDirectory(prefix="vesk-browser-")
        self.driver = subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            text=True)
        try:
            self._begin()
        except BaseException:
            self._end_driver()
            raise

    def _begin(self):
        self.address = f"http://127.0.0.1:{self._port()}"
        options = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                   "--window-size=1280,900", f"--user-data-dir={self.profile.name}"]
        wanted = {"browserName": "chrome",
                  "goog:chromeOptions": {"args": options, "binary": shutil.which("chromium")},
                  "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
        answer = self._ask("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
        self.session = f"/session/{answer['sessionId']}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self._ask("DELETE", self.session)
        finally:
            self._end_driver()

    def _end_driver(self):
        self.driver.terminate()
        self.driver.wait(PATIENCE)
        self.driver.stdout.close()
        self.profile.cleanup()

    def _port(self):
        # "ChromeDriver was started successfully on port 34567."
        for line in self.driver.stdout:
            if "successfully on port" in line:
                return line.rsplit("port", 1)[1].strip(" .\n")
        raise RuntimeError("chromedriver does not start")

    def _ask(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.address + path, data, method=method,
                                         headers={"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
            return json.load(answer)["value"]

    def open(self, address):
        self._ask("POST", self.session + "/url", {"url": address})

    def run(self, script, *arguments):
        """What the script returns."""
        return self._ask("POST", self.session + "/execute/sync",
                         {"script": script, "args": list(arguments)})

    def command(self, name, **parameters):
        """A command of the browser's own protocol."""
        return self._ask("POST", self.session + "/goog/cdp/execute",
                         {"cmd": name, "params": parameters})

    def press(self, key, shift=False):
        down = {"type": "keyDown", "key": key, "modifiers": 8 if shift else 0}
        if len(key) == 1:
            down["text"] = key
        if key == "Enter":
            down.update(text="\r", windowsVirtualKeyCode=13)
        self.command("Input.dispatchKeyEvent", **down)
        self.command("Input.dispatchKeyEvent", type="keyUp", key=key)
        self.settle()

    def mouse(self, kind, x, y):
        self.command("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left",
                     buttons=0 if kind == "mouseReleased" else 1, clickCount=1)

    def settle(self):
        """Waits until what was asked for has been drawn."""
        self._ask("POST", self.session + "/execute/async", {"args": [], "script":
                  "const done = arguments[0];"
                  "requestAnimationFrame(() => requestAnimationFrame(() => setTimeout(done, 0)));"})

    def log(self, kind):
        return self._ask("POST", self.session + "/se/log", {"type": kind})

    def requests(self):
        """The addresses that were asked for since the last call."""
        found = []
        for entry in self.log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                found.append(message["params"]["request"]["url"])
        return found
