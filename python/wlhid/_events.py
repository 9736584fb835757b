# SPDX-License-Identifier: Apache-2.0
"""Waiting for the events of a handle: by ``for``, by ``async for``, or by its descriptor."""

from __future__ import annotations

import asyncio
import select
from types import TracebackType
from typing import AsyncIterator, Generic, Iterator, TypeVar

from ._abi import Code, Error

E = TypeVar("E")
Self = TypeVar("Self", bound="EventSource")  # type: ignore[type-arg]


class EventSource(Generic[E], Iterator[E], AsyncIterator[E]):
    """One thread at a time, and one of ``for`` and ``async for``."""

    _handle: int | None = None

    def _next(self) -> E | None:
        raise NotImplementedError

    def _close(self) -> None:
        raise NotImplementedError

    def _descriptor(self) -> int:
        raise NotImplementedError

    def _is_over(self) -> bool:
        """Whether nothing more can come."""
        return False

    def fileno(self) -> int:
        """Readable while an event waits: for ``select``, ``selectors`` and event loops. Not to be read or closed."""
        self._check_open()
        return self._descriptor()

    def take(self) -> E | None:
        """The next event, or None if none waits. Never waits."""
        self._check_open()
        return self._next()

    def wait(self, timeout: float | None = None) -> E | None:
        """The next event, or None if none comes within so many seconds."""
        event = self.take()
        if event is not None:
            return event
        poll = select.poll()
        poll.register(self.fileno(), select.POLLIN)
        if not poll.poll(None if timeout is None else timeout * 1000):
            return None
        return self.take()

    def close(self) -> None:
        """Ends it at once. Closing it twice does no harm."""
        if self._handle is not None:
            self._close()
            self._handle = None

    def _check_open(self) -> None:
        if self._handle is None:
            raise Error(Code.BAD_ARGUMENT, f"this {type(self).__name__} has been closed")

    def __iter__(self: Self) -> Self:
        return self

    def __next__(self) -> E:
        while self._handle is not None and not self._is_over():
            event = self.wait()
            if event is not None:
                return event
        raise StopIteration

    def __aiter__(self: Self) -> Self:
        return self

    async def __anext__(self) -> E:
        while self._handle is not None and not self._is_over():
            event = self.take()
            if event is not None:
                return event
            await self._readable()
        raise StopAsyncIteration

    async def _readable(self) -> None:
        loop = asyncio.get_running_loop()
        readable = loop.create_future()
        descriptor = self.fileno()
        loop.add_reader(descriptor, lambda: readable.done() or readable.set_result(None))
        try:
            await readable
        finally:
            loop.remove_reader(descriptor)

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    async def __aenter__(self: Self) -> Self:
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()
