#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads a recording in the hid-recorder text format, strictly, and prints it as one JSON object.

Written from the format alone, to show that what `wlhid record` writes can be read by others. Times are microseconds."""
import json
import re
import sys

BYTES = r"(\d+)((?: [0-9a-f]{2})*)"


def octets(count, text):
    result = bytes.fromhex(text)
    if len(result) != int(count):
        raise ValueError(f"{count} bytes are announced, {len(result)} follow")
    return result.hex()


class Recording:
    def __init__(self):
        self.devices = {}
        self.reports = []
        self.current = 0
        self.last = 0

    def device(self):
        return self.devices.setdefault(self.current, {})

    def set(self, key, value):
        if key in self.device():
            raise ValueError(f"a second {key}")
        self.device()[key] = value

    def report(self, seconds, microseconds, count, text):
        if "descriptor" not in self.device():
            raise ValueError("a report before its descriptor")
        time = int(seconds) * 1_000_000 + int(microseconds)
        if time < self.last and len(self.devices) == 1:
            raise ValueError("time runs backwards")
        self.last = time
        self.reports.append([self.current, time, octets(count, text)])

    def take(self, line):
        if line.startswith("#"):
            return
        if match := re.fullmatch(r"D: (\d+)", line):
            self.current = int(match[1])
        elif match := re.fullmatch("R: " + BYTES, line):
            self.set("descriptor", octets(*match.groups()))
        elif match := re.fullmatch(r"N: (.*)", line):
            self.set("name", match[1])
        elif match := re.fullmatch(r"P: (.*)", line):
            self.set("path", match[1])
        elif match := re.fullmatch(r"I: ([0-9a-f]+) ([0-9a-f]{4,}) ([0-9a-f]{4,})", line):
            self.set("id", [int(number, 16) for number in match.groups()])
        elif match := re.fullmatch(r"E: (\d{6,})\.(\d{6}) " + BYTES, line):
            self.report(*match.groups())
        else:
            raise ValueError("an unknown line")


def main():
    recording = Recording()
    with open(sys.argv[1], encoding="utf-8", newline="\n") as file:
        for number, line in enumerate(file, 1):
            try:
                if not line.endswith("\n"):
                    raise ValueError("the line has no end")
                recording.take(line[:-1])
            except ValueError as error:
                sys.exit(f"{sys.argv[1]}:{number}: {error}")
    json.dump({"devices": recording.devices, "reports": recording.reports}, sys.stdout)


main()
