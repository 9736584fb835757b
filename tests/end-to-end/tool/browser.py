#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Opens the page of a recording in headless Chromium and uses it; prints what it saw as one JSON object.

usage: browser.py PAGE [SCREENSHOTS]: the directory gets light.png, dark.png and zoomed.png, of the whole page."""
import base64
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import urllib.request


class Browser:
    """A session of chromedriver, which speaks the WebDriver protocol."""

    def __init__(self, profile):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        for line in self.driver.stdout:
            if match := re.search(r"started successfully on port (\d+)", line):
                self.base = f"http://127.0.0.1:{match[1]}/session"
                break
        else:
            sys.exit("chromedriver did not start")
        options = {
            "args": ["--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                     "--disable-dev-shm-usage", "--window-size=1100,900", f"--user-data-dir={profile}"]
        }
        always = {"browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        self.base += "/" + self.post("", {"capabilities": {"alwaysMatch": always}})["sessionId"]

    def close(self):
        try:
            self.send("DELETE", "", None)
        finally:
            self.driver.terminate()
            self.driver.wait()

    def send(self, method, path, body):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        # Never by way of a proxy: the driver is on this machine.
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with opener.open(request, timeout=120) as answer:
            return json.load(answer)["value"]

    def post(self, path, body):
        return self.send("POST", path, body)

    def run(self, script):
        return self.post("/execute/sync", {"script": script, "args": []})

    def wait(self, condition):
        """Until the condition holds, for at most a minute; the browser itself waits."""
        script = """const [condition, done] = [new Function('return ' + arguments[0]), arguments[1]];
          const end = Date.now() + 20000;
          const look = () => condition() || Date.now() > end ? done(condition()) : requestAnimationFrame(look);
          look();"""
        if not self.post("/execute/async", {"script": script, "args": [condition]}):
            sys.exit("in vain waited for: " + condition)

    def element(self, selector):
        found = self.post("/element", {"using": "css selector", "value": selector})
        return "/element/" + next(iter(found.values()))

    def click(self, selector):
        self.post(self.element(selector) + "/click", {})

    def type(self, selector, text):
        self.post(self.element(selector) + "/clear", {})
        self.post(self.element(selector) + "/value", {"text": text})

    def drag(self, selector, begin, end):
        """Across an element, from one part of its width to another."""
        box = self.run(f"document.querySelector('{selector}').scrollIntoView({{block: 'center'}});"
                       f"return document.querySelector('{selector}').getBoundingClientRect().toJSON()")
        y = round(box["y"] + box["height"] / 2)
        moves = [{"type": "pointerMove", "x": round(box["x"] + box["width"] * part), "y": y, "duration": 0}
                 for part in (begin, end)]
        actions = [moves[0], {"type": "pointerDown", "button": 0}, moves[1], {"type": "pointerUp", "button": 0}]
        self.post("/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": actions}]})

    def devtools(self, command, **parameters):
        return self.post("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def theme(self, name):
        self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name}])

    def screenshot(self, path):
        height = min(self.run("return document.documentElement.scrollHeight"), 3000)
        clip = {"x": 0, "y": 0, "width": 1100, "height": height, "scale": 1}
        shot = self.devtools("Page.captureScreenshot", captureBeyondViewport=True, clip=clip)
        pathlib.Path(path).write_bytes(base64.b64decode(shot["data"]))

    def console(self):
        return [entry["message"] for entry in self.post("/se/log", {"type": "browser"})]


CHARTS = "[...document.querySelectorAll('.line, .bar')].map((path) => path.getAttribute('d')).join()"
STATE = """return {window: document.getElementById('window').textContent,
  found: document.getElementById('found').textContent,
  rows: document.getElementById('rows').tBodies[0].rows.length,
  firstRow: document.getElementById('rows').tBodies[0].rows[0]?.innerText ?? '',
  charts: """ + CHARTS + """,
  background: getComputedStyle(document.body).backgroundColor}"""


def use(browser, screenshots):
    shoot = (lambda name: browser.screenshot(pathlib.Path(screenshots, name))) if screenshots else lambda name: None
    seen = {"title": browser.run("return document.title"), "heading": browser.run("return document.querySelector('h1').textContent")}
    browser.theme("light")
    seen["light"] = browser.run(STATE)
    shoot("light.png")
    browser.theme("dark")
    seen["dark"] = browser.run(STATE)
    shoot("dark.png")
    browser.theme("light")
    browser.click("#in")
    browser.click("#in")
    seen["zoomed"] = browser.run(STATE)
    browser.click("#later")
    seen["later"] = browser.run(STATE)
    browser.click("#all")
    seen["whole"] = browser.run(STATE)
    if browser.run("return document.querySelector('svg.zooms') !== null"):
        browser.drag("svg.zooms", 0.4, 0.6)
        seen["dragged"] = browser.run(STATE)
        shoot("zoomed.png")
        browser.click("#all")
    seen["bytes"] = browser.run("return document.getElementById('rows').tBodies[0].rows[0]?.lastChild.textContent.trim() ?? ''")
    browser.type("#pattern", seen["bytes"])
    seen["filtered"] = browser.run(STATE)
    browser.type("#pattern", "nonsense")
    seen["refused"] = browser.run(STATE)
    browser.type("#pattern", " ")
    browser.click("#changes")
    seen["changes"] = browser.run(STATE)
    seen["requests"] = browser.run("return performance.getEntriesByType('resource').map((entry) => entry.name)")
    seen["hacked"] = browser.run("return window.hacked ?? null")
    return seen


def main():
    page = pathlib.Path(sys.argv[1]).resolve().as_uri()
    with tempfile.TemporaryDirectory() as profile:
        browser = Browser(profile)
        try:
            browser.post("/url", {"url": page})
            browser.wait("document.documentElement.dataset.ready === 'yes'")
            seen = use(browser, sys.argv[2] if len(sys.argv) > 2 else None)
            seen["console"] = browser.console()
        finally:
            browser.close()
    json.dump(seen, sys.stdout)


main()
