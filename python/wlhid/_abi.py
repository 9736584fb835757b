# SPDX-License-Identifier: Apache-2.0
"""The C interface, as c/wlhid.h declares it."""

from __future__ import annotations

import ctypes
import enum
from ctypes import POINTER, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint8, c_uint32, c_uint64, c_void_p

ABI_VERSION = 1


class Code(enum.IntEnum):
    """Why something did not work."""

    OK = 0
    AGAIN = 1
    BAD_ARGUMENT = 2
    NO_MEMORY = 3
    NO_ROUTER = 4
    NO_DEVICE = 5
    NOT_PERMITTED = 6
    CANCELED = 7
    NOBODY_TO_ASK = 8
    BUSY = 9
    TIMED_OUT = 10
    ENDED = 11
    FAILED = 12


class Error(Exception):
    """What happened and what to do, in words; ``code`` says which kind it is."""

    def __init__(self, code: Code, text: str) -> None:
        super().__init__(text)
        self.code = code


class CPresence(ctypes.Structure):
    _fields_ = [
        ("state", c_uint32),
        ("reserved", c_uint32),
        ("installed_version", c_char_p),
        ("own_version", c_char_p),
        ("text", c_char_p),
    ]


class CUsage(ctypes.Structure):
    _fields_ = [("page", c_uint32), ("id", c_uint32)]


class CDevice(ctypes.Structure):
    _fields_ = [
        ("id", c_uint64),
        ("bus", c_uint32),
        ("vendor", c_uint32),
        ("product", c_uint32),
        ("interface_number", c_int32),
        ("device_class", c_uint32),
        ("permission", c_uint32),
        ("name", c_char_p),
        ("source", c_char_p),
        ("path", c_char_p),
        ("serial", c_char_p),
        ("reason", c_char_p),
        ("explanation", c_char_p),
        ("collections", POINTER(CUsage)),
        ("collection_count", c_size_t),
        ("reserved", c_void_p * 4),
    ]


class CCriterion(ctypes.Structure):
    _fields_ = [
        ("fields", c_uint32),
        ("vendor", c_uint32),
        ("product", c_uint32),
        ("usage_page", c_uint32),
        ("usage", c_uint32),
        ("reserved", c_uint32),
        ("id", c_uint64),
    ]


class CFilter(ctypes.Structure):
    _fields_ = [
        ("matching", POINTER(CCriterion)),
        ("matching_count", c_size_t),
        ("excluding", POINTER(CCriterion)),
        ("excluding_count", c_size_t),
    ]


class CWatchEvent(ctypes.Structure):
    _fields_ = [("kind", c_uint32), ("reserved", c_uint32), ("device", POINTER(CDevice)), ("text", c_char_p)]


class CInputOptions(ctypes.Structure):
    _fields_ = [
        ("device", c_uint64),
        ("filter", CFilter),
        ("usages", POINTER(CUsage)),
        ("usage_count", c_size_t),
        ("is_exclusive", c_uint32),
        ("reserved", c_uint32 * 5),
    ]


class CValue(ctypes.Structure):
    _fields_ = [
        ("usage_page", c_uint32),
        ("usage", c_uint32),
        ("report_id", c_uint32),
        ("reserved", c_uint32),
        ("cookie", c_uint64),
        ("value", c_int64),
        ("bytes", POINTER(c_uint8)),
        ("size", c_size_t),
    ]


class CEvent(ctypes.Structure):
    _fields_ = [
        ("kind", c_uint32),
        ("report_id", c_uint32),
        ("time_ns", c_uint64),
        ("bytes", POINTER(c_uint8)),
        ("size", c_size_t),
        ("values", POINTER(CValue)),
        ("value_count", c_size_t),
        ("state", c_uint32),
        ("code", c_uint32),
        ("since", c_int64),
        ("text", c_char_p),
        ("device", c_uint64),
        ("reserved", c_void_p * 4),
    ]


CONSENT_FUNCTION = ctypes.CFUNCTYPE(c_int, c_char_p, c_void_p)

_PROTOTYPES = {
    "wlhid_last_error": (c_char_p, []),
    "wlhid_version": (c_char_p, []),
    "wlhid_abi_version": (c_uint32, []),
    "wlhid_usage_name": (c_size_t, [c_uint32, c_uint32, c_char_p, c_size_t]),
    "wlhid_router_presence": (c_int, [POINTER(CPresence)]),
    "wlhid_router_use_bundle": (c_int, [c_char_p]),
    "wlhid_router_install": (c_int, [c_char_p]),
    "wlhid_router_remove": (c_int, [c_char_p]),
    "wlhid_router_set_consent": (c_int, [CONSENT_FUNCTION, c_void_p]),
    "wlhid_devices_list": (c_int, [POINTER(CFilter), c_int, POINTER(c_void_p)]),
    "wlhid_devices_count": (c_size_t, [c_void_p]),
    "wlhid_devices_at": (POINTER(CDevice), [c_void_p, c_size_t]),
    "wlhid_devices_free": (None, [c_void_p]),
    "wlhid_report_descriptor": (c_int, [c_uint64, POINTER(c_uint8), c_size_t, POINTER(c_size_t)]),
    "wlhid_watch_open": (c_int, [POINTER(CFilter), POINTER(c_void_p)]),
    "wlhid_watch_fd": (c_int, [c_void_p]),
    "wlhid_watch_next": (c_int, [c_void_p, POINTER(CWatchEvent)]),
    "wlhid_watch_close": (None, [c_void_p]),
    "wlhid_input_open": (c_int, [POINTER(CInputOptions), POINTER(c_void_p)]),
    "wlhid_input_fd": (c_int, [c_void_p]),
    "wlhid_input_next": (c_int, [c_void_p, POINTER(CEvent)]),
    "wlhid_input_retry": (c_int, [c_void_p]),
    "wlhid_input_close": (None, [c_void_p]),
}


def _load() -> ctypes.CDLL:
    library = ctypes.CDLL("libwlhid.so.1")
    for name, (result, arguments) in _PROTOTYPES.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    if library.wlhid_abi_version() != ABI_VERSION:
        raise ImportError("libwlhid.so.1 has another interface than this package; install both of one version")
    return library


library = _load()


def check(code: int) -> None:
    """Raises what a call has answered, unless it worked."""
    if code != Code.OK:
        raise Error(Code(code), text(library.wlhid_last_error()))


def text(raw: bytes | None) -> str:
    return "" if raw is None else raw.decode(errors="replace")


def usage_name(usage_page: int, usage: int) -> str:
    """``X``, ``Button 3``, ``Left Shift``, or ``ff00/0021``."""
    buffer = ctypes.create_string_buffer(128)
    library.wlhid_usage_name(usage_page, usage, buffer, len(buffer))
    return text(buffer.value)


def version() -> str:
    """That of the library."""
    return text(library.wlhid_version())
