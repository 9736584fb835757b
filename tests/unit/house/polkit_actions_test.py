# SPDX-License-Identifier: Apache-2.0
"""Who may do what on the system's own root unless an administrator decides otherwise."""
import pathlib
import re
import sys
import unittest
import xml.etree.ElementTree as ElementTree

SOURCE = pathlib.Path(sys.argv.pop(1))
PREFIX = "com.quillmar.hideventrouter."
ROUTER = "unix-user:wlhid-router"  # polkit takes details only from an action's owner
ASK = "auth_admin"  # each time: auth_admin_keep would let the next program in unasked

# Action: from anywhere, from an inactive session, from the active one; who asks (None: the daemon, which is root).
EXPECTED = {
    "route": ("no", "no", "yes", ROUTER),
    "route-sensitive": ("no", "no", ASK, ROUTER),
    "take-exclusively": ("no", "no", ASK, ROUTER),
    "end-session": (ASK, ASK, ASK, ROUTER),
    "install": (ASK, ASK, ASK, None),
    "remove": (ASK, ASK, ASK, None),
    "replace-newer": (ASK, ASK, ASK, None),
    "grant": (ASK, ASK, ASK, None),
}


def stated():
    root = ElementTree.parse(SOURCE / f"packaging/system/{PREFIX[:-1]}.policy").getroot()
    for action in root.findall("action"):
        answers = [action.findtext(f"defaults/allow_{who}") for who in ("any", "inactive", "active")]
        owner = action.find("annotate[@key='org.freedesktop.policykit.owner']")
        yield action.get("id"), (*answers, None if owner is None else owner.text)


class Actions(unittest.TestCase):
    def test_are_decided_as_promised(self):
        self.assertEqual(dict(stated()), {PREFIX + name: decision for name, decision in EXPECTED.items()})

    def test_are_those_that_the_programs_ask_for(self):
        asked = set()
        for path in [*SOURCE.glob("router/policy/*.h"), *SOURCE.glob("jobd/*.[hc]*")]:
            asked |= set(re.findall(rf'"{re.escape(PREFIX)}([a-z-]+)"', path.read_text()))
        self.assertEqual(asked, set(EXPECTED))


if __name__ == "__main__":
    unittest.main()
