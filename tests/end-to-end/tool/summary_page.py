#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads the first page of a diagnostic report as a person would: summary_page.py PAGE [SCREENSHOTS]"""
from browser import visit

STATE = """return {verdict: document.querySelector('.verdict').textContent,
  names: [...document.querySelectorAll('th')].map((cell) => cell.textContent),
  text: document.body.innerText,
  lines: document.body.innerText.split('\\n').filter((line) => line.trim()).length,
  faults: [...document.querySelectorAll('span.fault')].map((fault) => fault.textContent),
  overflows: document.documentElement.scrollWidth > document.documentElement.clientWidth,
  background: getComputedStyle(document.body).backgroundColor}"""


def use(browser, shoot):
    seen = {}
    for theme in ("light", "dark"):
        browser.theme(theme)
        seen[theme] = browser.run(STATE)
        shoot(theme)
    return seen


visit(use)
