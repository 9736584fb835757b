#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the input of the device with the given registry entry ID: client.py ID [REPORTS]."""
import os, socket, struct, subprocess, sys

SERVICE = "com.quillmar.hideventrouter"
HELLO, MESSAGE, REQUEST, REPLY, DROPPED, FAREWELL = 1, 2, 3, 4, 5, 6
DAEMON = os.environ.get("WLHID_JOBD", "/usr/libexec/wlhid/wlhid-jobd")

class Reader:
    def __init__(self, data):
        self.data = data

    def take(self, count):
        taken, self.data = self.data[:count], self.data[count:]
        return taken if len(taken) == count else sys.exit("a breach: the body is too short")

    def number(self, form):
        return struct.unpack("<" + form, self.take(struct.calcsize("<" + form)))[0]

    def size(self):
        first = self.number("B")
        return self.number("I") if first == 255 else first

    def value(self):
        return {"report": self.number("I"), "page": self.number("I"), "usage": self.number("I"),
                "cookie": self.number("Q"), "integer": self.number("q"), "bytes": self.take(self.size()).hex()}

    def object(self):
        tag = self.number("B")
        if tag in (3, 4, 5, 6, 7):  # a boolean, numbers, a date
            return self.number(" ?qQdd"[tag - 2])
        if tag in (1, 2, 8):  # data, a string, a URL
            data = self.take(self.size())
            return data if tag == 1 else data.decode()
        if tag in (9, 10):
            return [self.object() for _ in range(self.size())]
        if tag == 11:
            return [(self.object(), self.object()) for _ in range(self.size())]
        if tag == 12:
            return {"code": self.number("q"), "domain": self.object(), "info": self.object()}
        if tag in (13, 14):
            return self.value() if tag == 13 else {"device": self.number("Q"), "name": self.object()}
        if tag == 15:
            return [self.value() for _ in range(self.size())]
        return None if tag == 0 else sys.exit(f"refused: the unknown class {tag}")

def frame(kind, body=b"", method=0):
    return struct.pack("<IBBH", len(body), kind, 0, method) + body

def connect(directory):  # through the open directory, since an address holds 107 bytes only
    connection = socket.socket(socket.AF_UNIX)
    place = os.open(directory, os.O_PATH | os.O_DIRECTORY)
    connection.connect(f"/proc/self/fd/{place}/{SERVICE}.sock")
    os.close(place)
    listener = struct.unpack("iII", connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))[1]
    return connection if listener in (0, os.geteuid()) else sys.exit("another user listens there")

def connect_to_router():
    system = os.path.exists(f"/usr/lib/wlhid/jobs/{SERVICE}.plist")
    state = os.environ.get("XDG_STATE_HOME", os.path.expanduser("~/.local/state"))
    root = os.environ.get("WLHID_ROOT") or ("/" if system else f"{state}/wlhid/root")
    if root == "/":
        return connect("/run/wlhid")
    try:
        return connect(f"{root}/var/run")
    except (FileNotFoundError, ConnectionRefusedError):
        ours, daemons = os.pipe()
        subprocess.run([DAEMON, "--root", root, "--ready-fd", str(daemons)], pass_fds=[daemons],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(daemons)
        problem = os.fdopen(ours).readline().strip()
        return sys.exit(problem) if problem else connect(f"{root}/var/run")

def frames(stream):
    while header := stream.read(8):
        length, kind, _, method = struct.unpack("<IBBH", header)
        yield kind, method, Reader(stream.read(length))

def main(device, reports=0):
    router = connect_to_router()
    router.sendall(frame(HELLO, b"WLHX\x02\x00\x1eWLHIDEventRouterClientProtocol\x18WLHIDEventRouterProtocol") +
                   frame(REQUEST, struct.pack("<QQQ", 1, int(device, 0), 0) + b"\x00\x00"))
    for kind, method, body in frames(router.makefile("rb")):
        if kind == MESSAGE and method == 0:
            data, report = body.object() or b"", body.number("I")
            print("report", report, data.hex(), flush=True)
            reports = int(reports) - 1
            if reports == 0:
                return router.sendall(frame(MESSAGE, method=1) + frame(FAREWELL))
        elif kind == MESSAGE:
            print("values", body.object() or [], flush=True)
        elif kind == REPLY and (problem := (body.number("Q"), body.object())[1]):
            sys.exit(f"refused: {problem}")
        elif kind in (DROPPED, FAREWELL):
            sys.exit("the router has ended the connection")
    sys.exit("the router has gone")

main(*sys.argv[1:3])
