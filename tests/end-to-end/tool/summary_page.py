#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads the first page of a diagnostic report as a person would: summary_page.py PAGE [SCREENSHOTS]"""
from browser import visit

STATE = """return {verdict: document.querySelector('.verdict').textContent,
  names: [...document.querySelectorAll('th')].map((cell) => cell.textContent),
  text: document.body.innerText,
  linesOfFaults: (() => {  // as they are on the screen: a long one takes two
    const bottoms = new Set(), range = document.createRange();
    for (const part of [document.querySelector('header'), document.querySelector('section')]) {
      const texts = document.createTreeWalker(part, NodeFilter.SHOW_TEXT);
      while (texts.nextNode()) {
        range.selectNodeContents(texts.currentNode);
        for (const box of range.getClientRects()) bottoms.add(Math.round(box.bottom));
      }
    }
    return bottoms.size;
  })(),
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
