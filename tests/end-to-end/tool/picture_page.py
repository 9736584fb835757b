#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Uses the page of a recording as a person would: picture_page.py PAGE [SCREENSHOTS]"""
from browser import visit

CHARTS = "[...document.querySelectorAll('.line, .bar')].map((path) => path.getAttribute('d')).join()"
STATE = """return {window: document.getElementById('window').textContent,
  found: document.getElementById('found').textContent,
  rows: document.getElementById('rows').tBodies[0].rows.length,
  firstRow: document.getElementById('rows').tBodies[0].rows[0]?.innerText ?? '',
  charts: """ + CHARTS + """,
  background: getComputedStyle(document.body).backgroundColor}"""


def use(browser, shoot):
    seen = {}
    browser.theme("light")
    seen["light"] = browser.run(STATE)
    shoot("light")
    browser.theme("dark")
    seen["dark"] = browser.run(STATE)
    shoot("dark")
    browser.theme("light")
    browser.click("#in")
    browser.click("#in")
    seen["zoomed"] = browser.run(STATE)
    browser.click("#later")
    seen["later"] = browser.run(STATE)
    browser.click("#earlier")
    seen["earlier"] = browser.run(STATE)
    browser.click("#out")
    seen["out"] = browser.run(STATE)
    browser.click("#all")
    seen["whole"] = browser.run(STATE)
    if browser.run("return document.querySelector('svg.zooms') !== null"):
        browser.drag("svg.zooms", 0.4, 0.6)
        seen["dragged"] = browser.run(STATE)
        shoot("zoomed")
        browser.double_click("svg.zooms")
        seen["doubleClicked"] = browser.run(STATE)
        browser.click("#all")
    if browser.run("return document.getElementById('id') !== null"):
        browser.press("#id", "End")
        seen["ofOneID"] = browser.run(STATE)
        browser.press("#id", "Home")
        seen["ofAnyID"] = browser.run(STATE)
    seen["bytes"] = browser.run("return document.getElementById('rows').tBodies[0].rows[0]?.lastChild.textContent.trim() ?? ''")
    browser.type("#pattern", seen["bytes"])
    seen["filtered"] = browser.run(STATE)
    browser.type("#pattern", "nonsense")
    seen["refused"] = browser.run(STATE)
    browser.type("#pattern", " ")
    browser.click("#changes")
    seen["changes"] = browser.run(STATE)
    return seen


visit(use, ready="document.documentElement.dataset.ready === 'yes'")
