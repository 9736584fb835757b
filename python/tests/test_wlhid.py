# SPDX-License-Identifier: Apache-2.0
"""On a root that tests/integration/c/CTest.cpp prepares: a router is installed, and a mouse is a recording for ever.

WLHID_TEST_BUNDLE names the directory of its router, WLHID_TEST_DEVICE the mouse's ID, WLHID_TEST_ENDING that of a recording that
ends, WLHID_TEST_TWO_REPORTS one with X in report 1 and Y in report 2, WLHID_TEST_LAYOUT the sizes and offsets of the structures as the C compiler has them.
"""

import asyncio
import ctypes
import inspect
import os
import sys
import typing
import unittest
import unittest.mock

import wlhid
from wlhid import _abi, _events

wlhid.use_bundle(os.environ["WLHID_TEST_BUNDLE"])
DEVICE = int(os.environ["WLHID_TEST_DEVICE"], 0)
ENDING = int(os.environ["WLHID_TEST_ENDING"], 0)
TWO_REPORTS = int(os.environ["WLHID_TEST_TWO_REPORTS"], 0)


class Names(unittest.TestCase):
    def test_usages_have_names(self) -> None:
        self.assertEqual(wlhid.usage_name(1, 0x30), "X")
        self.assertEqual(wlhid.Usage(0xFF00, 0x21).name, "ff00/0021")

    def test_every_hint_means_something(self) -> None:
        seen = 0
        for module in (wlhid, wlhid.devices.__globals__, wlhid.Input.__init__.__globals__, wlhid.install.__globals__):
            for thing in (vars(module) if inspect.ismodule(module) else module).values():
                if (inspect.isclass(thing) or inspect.isfunction(thing)) and thing.__module__.startswith("wlhid"):
                    typing.get_type_hints(thing)
                    seen += 1
        self.assertGreater(seen, 30)

    def test_what_is_exported_exists(self) -> None:
        for name in wlhid.__all__:
            self.assertTrue(hasattr(wlhid, name), name)


class Layout(unittest.TestCase):
    def test_structures_are_those_of_the_header(self) -> None:
        classes = {
            "wlhid_presence": _abi.CPresence,
            "wlhid_device": _abi.CDevice,
            "wlhid_criterion": _abi.CCriterion,
            "wlhid_filter": _abi.CFilter,
            "wlhid_watch_event": _abi.CWatchEvent,
            "wlhid_input_options": _abi.CInputOptions,
            "wlhid_value": _abi.CValue,
            "wlhid_event": _abi.CEvent,
        }
        lines = os.environ["WLHID_TEST_LAYOUT"].split()
        self.assertEqual(len(lines), len(classes))
        for line in lines:
            name, size, last, offset = line.split(":")
            self.assertEqual(ctypes.sizeof(classes[name]), int(size), name)
            self.assertEqual(getattr(classes[name], last).offset, int(offset), name)


class Devices(unittest.TestCase):
    def test_are_listed_with_what_they_are_for(self) -> None:
        found = {device.id: device for device in wlhid.devices(wlhid.Match(usage_page=1, usage=2))}
        mouse = found[DEVICE]
        self.assertEqual(mouse.name, "Mouse")
        self.assertEqual(mouse.vendor, 0x627)
        self.assertEqual([usage.name for usage in mouse.collections], ["Mouse"])
        self.assertEqual(mouse.permission, wlhid.Permission.YES)
        self.assertEqual(mouse.interface, None)
        self.assertEqual(wlhid.devices(excluding=[wlhid.Match(vendor=0x627)]), [])

    def test_have_descriptors(self) -> None:
        self.assertEqual(wlhid.report_descriptor(DEVICE)[:4], bytes([0x05, 0x01, 0x09, 0x02]))
        with self.assertRaises(wlhid.Error) as caught:
            wlhid.report_descriptor(7)
        self.assertEqual(caught.exception.code, wlhid.Code.NO_DEVICE)
        self.assertIn("0x7", str(caught.exception))

    def test_are_watched(self) -> None:
        with wlhid.DeviceWatch(wlhid.Match(id=DEVICE)) as watch:
            arrived = watch.wait(60)
            assert isinstance(arrived, wlhid.Arrived)
            self.assertEqual(arrived.device.id, DEVICE)
            self.assertEqual(watch.wait(60), wlhid.Listed())
            self.assertEqual(watch.wait(0), None)


    def test_each_kind_of_event_has_a_class(self) -> None:
        device = _abi.CDevice(id=7, name=b"Pen", interface_number=-1)
        wanted = {2: wlhid.Arrived, 3: wlhid.Changed, 4: wlhid.Departed}

        def event(kind: int) -> wlhid.DeviceEvent | None:
            def tell(handle: int, returned: typing.Any) -> int:
                about = ctypes.pointer(device) if kind in wanted else None
                ctypes.memmove(returned, ctypes.byref(_abi.CWatchEvent(kind, 0, about, b"away")), ctypes.sizeof(_abi.CWatchEvent))
                return wlhid.Code.OK

            library = unittest.mock.Mock(**{"wlhid_watch_open.return_value": 0, "wlhid_watch_next.side_effect": tell})
            with unittest.mock.patch.object(sys.modules["wlhid.devices"], "library", library):
                watch = wlhid.DeviceWatch()
                watch._handle = 1
                with watch:
                    return watch.take()

        for kind, kind_class in wanted.items():
            told = event(kind)
            self.assertIs(type(told), kind_class)
            self.assertEqual((told.device.id, told.device.name), (7, "Pen"))
        self.assertEqual(event(1), wlhid.Listed())
        self.assertEqual(event(5), wlhid.Unavailable("away"))


class Router(unittest.TestCase):
    def test_is_present(self) -> None:
        presence = wlhid.presence()
        self.assertTrue(presence, presence.text)
        self.assertEqual(presence.own_version, "1.0")

    def test_a_no_is_an_error(self) -> None:
        asked = []

        def ask(prompt: str) -> bool:
            asked.append(prompt)
            return False

        wlhid.set_consent(ask)
        try:
            with self.assertRaises(wlhid.Error) as caught:
                wlhid.remove("Größer?")
        finally:
            wlhid.set_consent(None)
        self.assertEqual(caught.exception.code, wlhid.Code.NOT_PERMITTED)
        self.assertEqual(asked, ["Größer?"])


class Input(unittest.TestCase):
    def test_is_iterable(self) -> None:
        reports, values = [], []
        with wlhid.Input(DEVICE) as source:
            for event in source:
                if isinstance(event, wlhid.Report):
                    reports.append(event)
                elif isinstance(event, wlhid.Values):
                    values.append(event)
                if len(values) == 4:
                    break
            self.assertEqual(source.status.state, wlhid.State.ROUTING)
            self.assertEqual(source.status.device, DEVICE)
        self.assertEqual({report.data for report in reports}, {b"\x01", b"\x02"})
        self.assertGreater(reports[0].time, 0)
        value = values[0].values[0]
        self.assertEqual(value.usage.name, "X")
        self.assertEqual(value.data, bytes([value.value]))
        self.assertRaises(StopIteration, next, source)
        self.assertRaises(wlhid.Error, source.take)

    def test_is_iterable_with_asyncio(self) -> None:
        async def first_report(source: wlhid.Input) -> wlhid.Report:
            async for event in source:
                if isinstance(event, wlhid.Report):
                    return event
            raise AssertionError("it ended")

        async def both() -> list:
            async with wlhid.Input(DEVICE) as one, wlhid.Input(0, wlhid.Match(vendor=0x627, id=DEVICE)) as two:
                return await asyncio.wait_for(asyncio.gather(first_report(one), first_report(two)), 60)

        for report in asyncio.run(both()):
            self.assertIn(report.data, (b"\x01", b"\x02"))

    def test_a_waiting_one_can_be_canceled(self) -> None:
        async def waiting() -> None:
            async with wlhid.Input(0x123456789) as source:
                async for event in source:
                    if isinstance(event, wlhid.Status) and event.state == wlhid.State.WAITING_FOR_DEVICE:
                        break
                with self.assertRaises(asyncio.TimeoutError):
                    await asyncio.wait_for(source.__anext__(), 0.05)

        asyncio.run(waiting())

    def test_ends_with_a_recording(self) -> None:
        with wlhid.Input(ENDING) as source:
            events = list(source)
        self.assertEqual(events[-1].state, wlhid.State.ENDED)
        self.assertEqual(events[-1].code, wlhid.Code.ENDED)
        self.assertTrue(events[-1].text.startswith("ended: "))

    def test_goes_on_after_its_end_if_it_is_told(self) -> None:
        with wlhid.Input(ENDING) as source:
            self.assertEqual(list(source)[-1].state, wlhid.State.ENDED)
            source.retry()
            self.assertIn(wlhid.State.ROUTING, [event.state for event in source if isinstance(event, wlhid.Status)])
        self.assertRaises(wlhid.Error, source.retry)

    def test_brings_only_the_usages_that_are_wanted(self) -> None:
        def first_names(source: wlhid.Input) -> set:
            values = (event.values for event in source if isinstance(event, wlhid.Values))
            return {value.usage.name for _ in range(6) for value in next(values)}

        with wlhid.Input(TWO_REPORTS) as everything, wlhid.Input(TWO_REPORTS, usages=[wlhid.Usage(1, 0x31)]) as some:
            self.assertEqual(first_names(everything), {"X", "Y"})
            self.assertEqual(first_names(some), {"Y"})

    def test_exclusive_keeps_others_out(self) -> None:
        def state(source: wlhid.Input, wanted: wlhid.State) -> wlhid.Status:
            return next(event for event in source if isinstance(event, wlhid.Status) and event.state == wanted)

        with wlhid.Input(TWO_REPORTS) as other:
            with wlhid.Input(TWO_REPORTS, exclusive=True) as source:
                self.assertEqual(state(source, wlhid.State.RECONNECTING).code, wlhid.Code.BUSY)
                other.close()
                state(source, wlhid.State.ROUTING)
                with wlhid.Input(TWO_REPORTS) as late:
                    self.assertEqual(state(late, wlhid.State.RECONNECTING).code, wlhid.Code.BUSY)

    def test_base_class_is_abstract(self) -> None:
        self.assertRaises(NotImplementedError, _events.EventSource()._next)


if __name__ == "__main__":
    unittest.main()
