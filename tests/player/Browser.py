"""Browser.py - a headless Chromium, driven through chromedriver's plain HTTP."""
import json
import os
import re
import shutil
import subprocess
import tempfile
import time
import urllib.error
import urllib.request


def missing():
    """Names what isn't installed, or ""."""
    lacking = [name for name in ("chromium", "chromedriver") if shutil.which(name) is None]
    return " and ".join(lacking)


class Browser:
    def __init__(self, width=1200, height=900):
        self.folder = tempfile.mkdtemp(prefix="vorn-browser-")
        self.log = open(os.path.join(self.folder, "driver.log"), "w+")
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=self.log, stderr=subprocess.STDOUT)
        self.session = ""
        self.base = "http://127.0.0.1:%s" % self.wait_for_port()
        flags = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--user-data-dir=" + os.path.join(self.folder, "profile"),
                 "--window-size=%d,%d" % (width, height)]
        wanted = {"capabilities": {"alwaysMatch": {"browserName": "chrome", "goog:loggingPrefs": {"browser": "ALL"},
                                                   "goog:chromeOptions": {"args": flags, "binary": shutil.which("chromium")}}}}
        self.session = "/session/" + self.call("POST", "/session", wanted)["sessionId"]

    def wait_for_port(self):
        for _ in range(300):
            with open(self.log.name) as log:
                found = re.search(r"started successfully on port (\d+)", log.read())
            if found:
                return found.group(1)
            time.sleep(0.1)
        raise RuntimeError("chromedriver does not start")

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def open(self, page):
        """A file, or an address that begins with http:."""
        address = page if page.startswith("http:") else "file://" + os.path.abspath(page)
        self.call("POST", self.session + "/url", {"url": address})

    def run(self, script, *arguments):
        return self.call("POST", self.session + "/execute/sync", {"script": script, "args": list(arguments)})

    def find(self, selector):
        element = self.call("POST", self.session + "/element", {"using": "css selector", "value": selector})
        return self.session + "/element/" + next(iter(element.values()))

    def click(self, selector):
        self.call("POST", self.find(selector) + "/click", {})

    def type(self, selector, text):
        self.call("POST", self.find(selector) + "/value", {"text": text})

    def wait(self, script, seconds=20):
        """Waits until the script returns something true, and returns it."""
        end = time.monotonic() + seconds
        while True:
            result = self.run(script)
            if result or time.monotonic() > end:
                return result
            time.sleep(0.05)

    def complaints(self):
        """Warnings and errors on the console since the last call."""
        entries = self.call("POST", self.session + "/se/log", {"type": "browser"})
        return [entry["message"] for entry in entries if entry["level"] in ("WARNING", "SEVERE")]

    def developer(self, command, **arguments):
        return self.call("POST", self.session + "/goog/cdp/execute", {"cmd": command, "params": arguments})

    def close(self):
        try:
            if self.session:
                self.call("DELETE", self.session)
        finally:
            self.driver.terminate()
            self.driver.wait()
            self.log.close()
            shutil.rmtree(self.folder, ignore_errors=True)
