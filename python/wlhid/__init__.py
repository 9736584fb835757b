# SPDX-License-Identifier: Apache-2.0
"""The input of HID devices by way of the HID event router.

    import wlhid

    for device in wlhid.devices(wlhid.Match(usage_page=0x0D)):
        print(hex(device.id), device.name, device.explanation)

    with wlhid.Input(device.id) as source:
        for event in source:
            print(event)

    async with wlhid.Input(device.id) as source:
        async for event in source:
            print(event)

An input goes on by itself after a router's death, an update or an unplugged device; events of the class ``Status`` say what it
is doing. Needs libwlhid.so.1 and nothing else.
"""

from ._abi import Code, Error, usage_name, version
from .devices import (
    Arrived,
    Changed,
    Departed,
    Device,
    DeviceClass,
    DeviceEvent,
    DeviceWatch,
    Listed,
    Match,
    Permission,
    Unavailable,
    Usage,
    devices,
    report_descriptor,
)
from .input import Event, Input, Report, State, Status, Value, Values
from .router import Presence, PresenceState, install, presence, remove, set_consent, use_bundle

__all__ = [
    "Arrived",
    "Changed",
    "Code",
    "Departed",
    "Device",
    "DeviceClass",
    "DeviceEvent",
    "DeviceWatch",
    "Error",
    "Event",
    "Input",
    "Listed",
    "Match",
    "Permission",
    "Presence",
    "PresenceState",
    "Report",
    "State",
    "Status",
    "Unavailable",
    "Usage",
    "Value",
    "Values",
    "devices",
    "install",
    "presence",
    "remove",
    "report_descriptor",
    "set_consent",
    "usage_name",
    "use_bundle",
    "version",
]
