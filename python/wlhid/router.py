# SPDX-License-Identifier: Apache-2.0
"""The router that this application brings: is it installed, and if not, why not; installing and removing it."""

from __future__ import annotations

import ctypes
import enum
import os
import sys
from dataclasses import dataclass
from typing import Any, Callable

from . import _abi
from ._abi import Code, check, library, text

# Where the packages keep a router for programs that bring none.
_PACKAGED = "/usr/lib/wlhid"


class PresenceState(enum.IntEnum):
    PRESENT = 0
    NOT_INSTALLED = 1
    OTHER_VERSION = 2
    INSTALLED_UNKNOWN = 3
    OWN_COPY_UNKNOWN = 4


@dataclass(frozen=True)
class Presence:
    """True if the router is installed, with the version that this application brings."""

    state: PresenceState
    installed_version: str
    own_version: str
    text: str

    def __bool__(self) -> bool:
        return self.state == PresenceState.PRESENT


def use_bundle(directory: str | os.PathLike[str]) -> None:
    """Where this application's Contents/ is. Without it: beside the interpreter, else where the packages have one."""
    check(library.wlhid_router_use_bundle(os.fsencode(directory)))


def presence() -> Presence:
    """Examined afresh each time."""
    raw = _abi.CPresence()
    check(library.wlhid_router_presence(ctypes.byref(raw)))
    return Presence(PresenceState(raw.state), text(raw.installed_version), text(raw.own_version), text(raw.text))


def install(prompt: str | None = None) -> None:
    """Asks for consent, with these words or the system's own, and waits."""
    check(library.wlhid_router_install(None if prompt is None else prompt.encode()))


def remove(prompt: str | None = None) -> None:
    check(library.wlhid_router_remove(None if prompt is None else prompt.encode()))


_consent: Any = None  # what the library may call must be kept


def set_consent(ask: Callable[[str], bool | None] | None) -> None:
    """How this application asks on a user's own root: True is a yes, False a no, None no answer. None instead of a function
    brings the question in the terminal back."""
    global _consent

    def answer(prompt: bytes, _context: Any) -> int:
        try:
            given = None if ask is None else ask(text(prompt))
        except Exception:  # a question that fails is not answered
            sys.excepthook(*sys.exc_info())
            given = None
        if given is None:
            return int(Code.CANCELED)
        return int(Code.OK if given else Code.NOT_PERMITTED)

    function = _abi.CONSENT_FUNCTION() if ask is None else _abi.CONSENT_FUNCTION(answer)
    check(library.wlhid_router_set_consent(function, None))
    _consent = function


def _use_packaged() -> None:
    beside = os.path.join(os.path.dirname(os.path.realpath(sys.executable)), "Contents")
    if not os.path.isdir(beside) and os.path.isdir(os.path.join(_PACKAGED, "Contents")):
        use_bundle(_PACKAGED)


_use_packaged()
