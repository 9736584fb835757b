# SPDX-License-Identifier: Apache-2.0
"""Finding devices: which there are, what they are for, whether this user may have them, when one comes or goes."""

from __future__ import annotations

import ctypes
import enum
from dataclasses import dataclass
from typing import Iterable, Union

from . import _abi
from ._abi import Code, check, library, text
from ._events import EventSource


class Permission(enum.IntEnum):
    """Whether this user may have a device's input."""

    YES = 0
    PARTLY = 1
    ADMINISTRATOR = 2
    NO = 3
    UNKNOWN = 4


class DeviceClass(enum.IntEnum):
    """A sensitive device can carry what is typed."""

    NONE = 0
    ORDINARY = 1
    SENSITIVE = 2


@dataclass(frozen=True)
class Usage:
    page: int
    id: int

    @property
    def name(self) -> str:
        return _abi.usage_name(self.page, self.id)


@dataclass(frozen=True)
class Device:
    id: int
    name: str
    bus: int
    vendor: int
    product: int
    interface: int | None
    source: str
    path: str
    serial: str
    collections: tuple[Usage, ...]
    device_class: DeviceClass
    reason: str
    permission: Permission
    explanation: str


@dataclass(frozen=True)
class Match:
    """A device meets it if it has all that is given; page and usage are those of one of its collections."""

    id: int | None = None
    vendor: int | None = None
    product: int | None = None
    usage_page: int | None = None
    usage: int | None = None


@dataclass(frozen=True)
class Listed:
    """What was there at first has been told, as arrivals."""


@dataclass(frozen=True)
class Arrived:
    device: Device


@dataclass(frozen=True)
class Changed:
    device: Device


@dataclass(frozen=True)
class Departed:
    device: Device


@dataclass(frozen=True)
class Unavailable:
    """The router cannot be asked at the moment. The watch goes on by itself."""

    text: str


DeviceEvent = Union[Listed, Arrived, Changed, Departed, Unavailable]

_FIELDS = {"id": 1, "vendor": 2, "product": 4, "usage_page": 8, "usage": 16}


def _criteria(matches: Iterable[Match]) -> ctypes.Array[_abi.CCriterion]:
    criteria = []
    for match in matches:
        criterion = _abi.CCriterion()
        for field, bit in _FIELDS.items():
            value = getattr(match, field)
            if value is not None:
                criterion.fields |= bit
                setattr(criterion, field, value)
        criteria.append(criterion)
    return (_abi.CCriterion * len(criteria))(*criteria)


def c_filter(matching: Iterable[Match], excluding: Iterable[Match]) -> _abi.CFilter:
    """Keeps what it points to."""
    wanted, unwanted = _criteria(matching), _criteria(excluding)
    return _abi.CFilter(wanted, len(wanted), unwanted, len(unwanted))


def _device(raw: _abi.CDevice) -> Device:
    return Device(
        id=raw.id,
        name=text(raw.name),
        bus=raw.bus,
        vendor=raw.vendor,
        product=raw.product,
        interface=None if raw.interface_number < 0 else raw.interface_number,
        source=text(raw.source),
        path=text(raw.path),
        serial=text(raw.serial),
        collections=tuple(Usage(raw.collections[i].page, raw.collections[i].id) for i in range(raw.collection_count)),
        device_class=DeviceClass(raw.device_class),
        reason=text(raw.reason),
        permission=Permission(raw.permission),
        explanation=text(raw.explanation),
    )


def devices(*matching: Match, excluding: Iterable[Match] = (), timeout: float = 10) -> list[Device]:
    """Those that are there now and meet one of the matches (none: all) and none of the excluded."""
    handle = ctypes.c_void_p()
    wanted = c_filter(matching, excluding)
    check(library.wlhid_devices_list(ctypes.byref(wanted), int(timeout * 1000), ctypes.byref(handle)))
    try:
        return [_device(library.wlhid_devices_at(handle, i)[0]) for i in range(library.wlhid_devices_count(handle))]
    finally:
        library.wlhid_devices_free(handle)


def report_descriptor(device: int) -> bytes:
    """Of a device that is there now."""
    buffer = (ctypes.c_uint8 * 65536)()
    size = ctypes.c_size_t()
    check(library.wlhid_report_descriptor(device, buffer, len(buffer), ctypes.byref(size)))
    return bytes(buffer[: size.value])


class DeviceWatch(EventSource[DeviceEvent]):
    """Tells what is there as arrivals, then ``Listed``, then each change."""

    def __init__(self, *matching: Match, excluding: Iterable[Match] = ()) -> None:
        handle = ctypes.c_void_p()
        wanted = c_filter(matching, excluding)
        check(library.wlhid_watch_open(ctypes.byref(wanted), ctypes.byref(handle)))
        self._handle = handle.value

    def _next(self) -> DeviceEvent | None:
        raw = _abi.CWatchEvent()
        code = library.wlhid_watch_next(self._handle, ctypes.byref(raw))
        if code == Code.AGAIN:
            return None
        check(code)
        if raw.kind == 1:
            return Listed()
        if raw.kind == 5:
            return Unavailable(text(raw.text))
        return {2: Arrived, 3: Changed, 4: Departed}[raw.kind](_device(raw.device[0]))

    def _close(self) -> None:
        library.wlhid_watch_close(self._handle)

    def _descriptor(self) -> int:
        return int(library.wlhid_watch_fd(self._handle))
