#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints what the first pen sends until it ends."""
import wlhid

with wlhid.Input(0, wlhid.Match(usage_page=0x0D, usage=0x02)) as pen:
    for event in pen:
        if isinstance(event, wlhid.Values):
            print(*(f"{value.usage.name}={value.value}" for value in event.values), flush=True)
        elif isinstance(event, wlhid.Status):
            print(event.text, flush=True)
