# SPDX-License-Identifier: Apache-2.0
"""Headless Chromium, for programs that use a page and print what they saw as one JSON object."""
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

    def press(self, selector, key):
        """A key on an element; on a list "Home" and "End" choose, as a person does: a click of the driver's is none."""
        self.post(self.element(selector) + "/value", {"text": {"Home": "\ue011", "End": "\ue010"}[key]})

    def moves_to(self, selector, parts):
        """A move of the pointer for each part of an element's width."""
        box = self.run(f"document.querySelector('{selector}').scrollIntoView({{block: 'center'}});"
                       f"return document.querySelector('{selector}').getBoundingClientRect().toJSON()")
        y = round(box["y"] + box["height"] / 2)
        return [{"type": "pointerMove", "x": round(box["x"] + box["width"] * part), "y": y, "duration": 0}
                for part in parts]

    def point(self, actions):
        self.post("/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": actions}]})

    def drag(self, selector, begin, end):
        """Across an element, from one part of its width to another."""
        first, last = self.moves_to(selector, (begin, end))
        self.point([first, {"type": "pointerDown", "button": 0}, last, {"type": "pointerUp", "button": 0}])

    def double_click(self, selector):
        click = [{"type": "pointerDown", "button": 0}, {"type": "pointerUp", "button": 0}]
        self.point(self.moves_to(selector, [0.5]) + click + click)

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


def visit(use, ready="document.readyState === 'complete'"):
    """usage of the program: PROGRAM PAGE [SCREENSHOTS]. `use(browser, shoot)` returns what was seen; `shoot(name)` keeps a
    picture of the whole page in the directory, if one is named."""
    page = pathlib.Path(sys.argv[1]).resolve().as_uri()
    screenshots = sys.argv[2] if len(sys.argv) > 2 else None

    def shoot(name):
        if screenshots:
            browser.screenshot(pathlib.Path(screenshots, name + ".png"))

    with tempfile.TemporaryDirectory() as profile:
        browser = Browser(profile)
        try:
            browser.post("/url", {"url": page})
            browser.wait(ready)
            seen = use(browser, shoot)
            seen["title"] = browser.run("return document.title")
            seen["heading"] = browser.run("return document.querySelector('h1').textContent")
            seen["requests"] = browser.run("return performance.getEntriesByType('resource').map((entry) => entry.name)")
            seen["hacked"] = browser.run("return window.hacked ?? null")
            seen["console"] = browser.console()
        finally:
            browser.close()
    json.dump(seen, sys.stdout)
