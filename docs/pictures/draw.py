#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws the pictures of docs/: processes.svg, client-states.svg and input-states.svg.

Run it after changing it; a test compares what it draws with the files beside it.
    docs/pictures/draw.py [DIRECTORY]     default: this directory
"""
import pathlib
import sys
from xml.sax.saxutils import escape

STYLE = """text { font: 14px sans-serif; fill: #1f2328; }
.title { font-weight: bold; }
.note { font-size: 12px; fill: #57606a; }
.box { fill: #f6f8fa; stroke: #57606a; stroke-width: 1.5; }
.privileged { fill: #fff4e0; stroke: #b35900; stroke-width: 1.5; }
.end { fill: #eaeef2; stroke: #57606a; stroke-width: 1.5; stroke-dasharray: 5 3; }
.line { fill: none; stroke: #0550ae; stroke-width: 1.5; marker-end: url(#head); }
.both { marker-start: url(#head); }"""

HEAD = ('<marker id="head" viewBox="0 0 10 10" refX="9" refY="5" markerWidth="8" markerHeight="8" '
        'orient="auto-start-reverse"><path d="M0 0 10 5 0 10z" fill="#0550ae"/></marker>')


class Picture:
    """Boxes with text, and lines between points, as SVG."""

    def __init__(self, width, height, title):
        self.size = (width, height)
        self.title = title
        self.parts = []

    def box(self, x, y, width, height, lines, kind="box"):
        self.parts.append(f'<rect class="{kind}" x="{x}" y="{y}" width="{width}" height="{height}" rx="8"/>')
        top = y + height / 2 - 9 * (len(lines) - 1) + 5
        for number, line in enumerate(lines):
            style = "title" if number == 0 else "note"
            self.parts.append(f'<text class="{style}" x="{x + width / 2:g}" y="{top + 18 * number:g}" '
                              f'text-anchor="middle">{escape(line)}</text>')

    def line(self, *points, both=False):
        path = " ".join(f"{'M' if number == 0 else 'L'}{x} {y}" for number, (x, y) in enumerate(points))
        self.parts.append(f'<path class="line{" both" if both else ""}" d="{path}"/>')

    def note(self, x, y, *lines, anchor="middle"):
        for number, line in enumerate(lines):
            self.parts.append(f'<text class="note" x="{x}" y="{y + 15 * number}" '
                              f'text-anchor="{anchor}">{escape(line)}</text>')

    def svg(self):
        width, height = self.size
        return "\n".join([
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
            f'viewBox="0 0 {width} {height}" role="img">',
            f"<title>{escape(self.title)}</title>", f"<style>{STYLE}</style>", f"<defs>{HEAD}</defs>",
            f'<rect width="{width}" height="{height}" fill="#ffffff"/>', *self.parts, "</svg>", ""])


def processes():
    p = Picture(960, 560, "Who talks to whom: application, router, job daemon, system root and devices")
    p.box(20, 40, 240, 150, ["Application", "wlhid::Input, WLHIDEventRouterClient,", "libwlhid (C, Python)", "",
                             "brings a helper image: the router"])
    p.box(20, 260, 240, 60, ["wlhid", "the command"])
    p.box(560, 40, 220, 220, ["Router", "com.quillmar.hideventrouter", "", "one session for each client",
                              "the device directory", "the control service"], "privileged")
    p.box(560, 400, 220, 90, ["Job daemon", "wlhid-jobd", "never sees input"], "privileged")
    p.box(20, 400, 290, 130, ["System root", "job file and helper image of the router,",
                              "the sockets, the log, lasting grants", "/, or a directory of a user"])
    p.box(850, 90, 90, 120, ["HID", "devices", "", "hidraw,", "recordings"])
    p.line((260, 70), (560, 70), both=True)
    p.note(410, 60, "start, stop; reports and values")
    p.line((260, 125), (560, 125), both=True)
    p.note(410, 115, "which devices are there, and changes")
    p.line((260, 280), (480, 280), (480, 230), (560, 230), both=True)
    p.note(370, 270, "status, sessions, devices")
    p.line((260, 170), (515, 170), (515, 430), (560, 430))
    p.note(400, 162, "install, remove")
    p.line((260, 305), (440, 305), (440, 455), (560, 455))
    p.note(350, 322, "the same, grants")
    p.line((560, 478), (310, 478))
    p.note(410, 496, "writes helper and job file")
    p.line((670, 400), (670, 260))
    p.note(680, 318, "starts it from its helper", "image, on a user's root", "(systemd does, on /)", anchor="start")
    p.line((850, 150), (780, 150))
    p.note(815, 140, "input")
    p.box(820, 400, 120, 90, ["polkit, logind", "on / only"])
    p.line((780, 445), (820, 445), both=True)
    p.line((880, 400), (880, 240), (780, 240), both=True)
    p.note(795, 515, "may this process?")
    p.note(670, 30, "privileged")
    p.note(140, 30, "the user's rights")
    return p


def client_states():
    p = Picture(820, 420, "The states of a client")
    p.box(20, 180, 120, 60, ["0 Idle", "not started yet"])
    p.box(320, 30, 190, 60, ["1 RouterUnavailable", "not installed, or other version"])
    p.box(320, 180, 190, 60, ["2 Opening", "start request is pending"])
    p.box(620, 180, 180, 60, ["4 Routing", "input is delivered"])
    p.box(320, 330, 190, 60, ["3 Failed", "the router gave an error"])
    p.line((140, 200), (320, 200))
    p.note(230, 192, "setStarted(true)")
    p.line((80, 180), (80, 60), (320, 60))
    p.note(200, 52, "setStarted(true), no router")
    p.line((390, 90), (390, 180))
    p.note(380, 140, "installed", anchor="end")
    p.line((440, 180), (440, 90))
    p.note(450, 140, "removed", anchor="start")
    p.line((510, 200), (620, 200))
    p.note(565, 192, "answer")
    p.line((620, 222), (510, 222))
    p.note(565, 238, "connection", "ended, or", "stop and start")
    p.line((390, 240), (390, 330))
    p.note(380, 290, "error", anchor="end")
    p.line((440, 330), (440, 240))
    p.note(450, 297, "connection ended,", "or stop and start", anchor="start")
    p.line((710, 180), (710, 60), (510, 60))
    p.note(610, 52, "removed")
    p.line((320, 375), (298, 375), (298, 75), (320, 75))
    p.note(290, 340, "removed", anchor="end")
    return p


def input_states():
    p = Picture(980, 560, "The states of an Input")
    p.box(380, 230, 200, 60, ["Connecting", "the router has been asked"])
    p.box(380, 40, 200, 60, ["WaitingForRouter", "none, or another version"])
    p.box(40, 230, 210, 60, ["WaitingForDevice", "it is not connected"])
    p.box(740, 230, 180, 60, ["Routing", "input is coming"])
    p.box(740, 40, 180, 60, ["Reconnecting", "tries again by itself"])
    p.box(380, 420, 200, 60, ["NotAllowed", "until that may have changed"])
    p.box(40, 420, 210, 60, ["Stopped", "the request is wrong"], "end")
    p.box(740, 420, 180, 60, ["Ended", "for good"], "end")
    p.line((250, 250), (380, 250))
    p.note(315, 243, "arrives")
    p.line((380, 272), (250, 272))
    p.note(315, 288, "not there")
    p.line((460, 100), (460, 230))
    p.note(452, 170, "installed", anchor="end")
    p.line((510, 230), (510, 100))
    p.note(518, 145, "removed, from", "every state but", "Ended and Stopped", anchor="start")
    p.line((580, 250), (740, 250))
    p.note(660, 243, "allowed")
    p.line((860, 230), (860, 100))
    p.note(868, 160, "router died,", "device failed", anchor="start")
    p.line((800, 100), (800, 230))
    p.note(792, 160, "again", anchor="end")
    p.line((460, 290), (460, 420))
    p.note(452, 360, "refused", anchor="end")
    p.line((510, 420), (510, 290))
    p.note(518, 350, "another answer is", "known, or retry()", anchor="start")
    p.line((560, 290), (740, 420))
    p.note(700, 350, "recording over,", "ended by somebody", anchor="start")
    p.line((400, 290), (250, 420))
    p.note(305, 350, "bad argument", anchor="end")
    p.line((740, 280), (640, 320), (250, 320), (200, 290))
    p.note(330, 314, "unplugged")
    p.note(490, 515, "After a failure, Reconnecting leads to the same states as Connecting.",
           "retry() leads from Ended and Stopped to Connecting.")
    return p


def main():
    directory = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).parent
    pictures = {"processes": processes(), "client-states": client_states(), "input-states": input_states()}
    for name, picture in pictures.items():
        (directory / f"{name}.svg").write_text(picture.svg(), encoding="utf-8")


if __name__ == "__main__":
    main()
