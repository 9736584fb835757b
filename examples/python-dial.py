#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Draws a dial, a wheel or another single control as a bar, and goes on through everything that may happen to it:
python-dial.py [DEVICE [USAGE]]. One event loop waits for the device and for Ctrl-C."""
import asyncio
import contextlib
import pathlib
import signal
import sys

import wlhid

WIDTH = 40
HERE = pathlib.Path(__file__).parent
if (HERE / "Contents").is_dir():  # this application brings a router; without one, that of the packages counts
    wlhid.use_bundle(HERE)


def bar(name: str, value: int, most: int) -> str:
    filled = WIDTH * value // max(most, 1)
    return f"{name} [{'#' * filled}{' ' * (WIDTH - filled)}] {value}"


async def draw(device: int, usage: str) -> None:
    most = 127
    async with wlhid.Input(device) as source:
        async for event in source:
            if isinstance(event, wlhid.Status):
                print(event.text, flush=True)
            elif isinstance(event, wlhid.Values):
                for value in event.values:
                    if value.usage.name == usage:
                        most = max(most, value.value)
                        print(bar(usage, value.value, most), flush=True)


async def main(device: str = "0", usage: str = "Dial") -> None:
    drawing = asyncio.create_task(draw(int(device, 0), usage))
    asyncio.get_running_loop().add_signal_handler(signal.SIGINT, drawing.cancel)
    with contextlib.suppress(asyncio.CancelledError):
        await drawing


if __name__ == "__main__":
    asyncio.run(main(*sys.argv[1:]))
