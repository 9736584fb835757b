# SPDX-License-Identifier: Apache-2.0
"""The input of one device."""

from __future__ import annotations

import ctypes
import datetime
import enum
from dataclasses import dataclass
from typing import Iterable, Union

from . import _abi
from ._abi import Code, check, library, text
from ._events import EventSource
from .devices import Match, Usage, c_filter


class State(enum.IntEnum):
    """What an input is doing."""

    CONNECTING = 0
    WAITING_FOR_ROUTER = 1
    WAITING_FOR_DEVICE = 2
    ROUTING = 3
    RECONNECTING = 4
    NOT_ALLOWED = 5
    ENDED = 6
    STOPPED = 7


@dataclass(frozen=True)
class Status:
    state: State
    text: str  # for people
    since: datetime.datetime
    code: Code  # of the router's error, or OK
    device: int | None  # that was found


@dataclass(frozen=True)
class Report:
    id: int
    data: bytes  # as the device sent it, with the ID in front if there is one
    time: float  # as time.monotonic() counts, when it arrived here


@dataclass(frozen=True)
class Value:
    usage: Usage
    value: int
    data: bytes  # the field as it is in the report
    cookie: int  # identifies the element within the device


@dataclass(frozen=True)
class Values:
    """Of the report before."""

    report_id: int
    values: tuple[Value, ...]


Event = Union[Status, Report, Values]


def _status(raw: _abi.CEvent) -> Status:
    return Status(
        State(raw.state),
        text(raw.text),
        datetime.datetime.fromtimestamp(raw.since, datetime.timezone.utc),
        Code(raw.code),
        raw.device or None,
    )


def _values(raw: _abi.CEvent) -> Values:
    def value(each: _abi.CValue) -> Value:
        return Value(Usage(each.usage_page, each.usage), each.value, bytes(each.bytes[: each.size]), each.cookie)

    return Values(raw.report_id, tuple(value(raw.values[i]) for i in range(raw.value_count)))


class Input(EventSource[Event]):
    """Of the device with that ID, or of the first that meets one of the matches and none of the excluded.

    Of usages only those are told, if there are any; reports come whole. Iterating ends after a status that is for good, and when it is closed.
    """

    def __init__(
        self,
        device: int = 0,
        *matching: Match,
        excluding: Iterable[Match] = (),
        exclusive: bool = False,
        usages: Iterable[Usage] = (),
    ) -> None:
        wanted = [_abi.CUsage(each.page, each.id) for each in usages]
        options = _abi.CInputOptions(
            device=device,
            filter=c_filter(matching, excluding),
            usages=(_abi.CUsage * len(wanted))(*wanted),
            usage_count=len(wanted),
            is_exclusive=int(exclusive),
        )
        handle = ctypes.c_void_p()
        check(library.wlhid_input_open(ctypes.byref(options), ctypes.byref(handle)))
        self._handle = handle.value
        self._last: Status | None = None

    @property
    def status(self) -> Status | None:
        """The last one that was taken."""
        return self._last

    def retry(self) -> None:
        """Tries again at once, also where it would wait or has given up; a person may be asked."""
        self._check_open()
        check(library.wlhid_input_retry(self._handle))
        self._last = None

    def _next(self) -> Event | None:
        raw = _abi.CEvent()
        code = library.wlhid_input_next(self._handle, ctypes.byref(raw))
        if code == Code.AGAIN:
            return None
        check(code)
        if raw.kind == 2:
            return Report(raw.report_id, bytes(raw.bytes[: raw.size]), raw.time_ns / 1e9)
        if raw.kind == 3:
            return _values(raw)
        self._last = _status(raw)
        return self._last

    def _is_over(self) -> bool:
        return self._last is not None and self._last.state in (State.ENDED, State.STOPPED)

    def _close(self) -> None:
        library.wlhid_input_close(self._handle)

    def _descriptor(self) -> int:
        return int(library.wlhid_input_fd(self._handle))
