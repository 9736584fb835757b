#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A router for a user's own root, started by the job daemon, with one device, 0x2a: a dial that turns."""
import os, select, signal, socket, struct, sys, time

HELLO, MESSAGE, REQUEST, REPLY, FAREWELL = 1, 2, 3, 4, 6
NO_DEVICE, BAD_ARGUMENT, IDLE_SECONDS = -536870208, -536870206, 5

def frame(kind, body=b"", method=0):
    return struct.pack("<IBBH", len(body), kind, 0, method) + body

def block(data):
    return (bytes([len(data)]) if len(data) < 255 else b"\xff" + struct.pack("<I", len(data))) + data

def error(code, words):
    info = b"\x0b\x01\x02" + block(b"NSLocalizedDescription") + b"\x02" + block(words.encode())
    return struct.pack("<Bq", 12, code) + b"\x02" + block(b"HIDEventRouterDomain") + info

def turn(position):
    data = bytes([1, position])  # the report ID, and the dial
    value = struct.pack("<IIIQq", 1, 1, 0x37, 1, position) + block(data[1:])
    return frame(MESSAGE, b"\x01" + block(data) + struct.pack("<I", 1)) + frame(MESSAGE, b"\x0f\x01" + value, method=1)

class Client:
    def __init__(self, connection):
        self.connection, self.unread, self.greeted, self.routes = connection, b"", False, False
        connection.setblocking(False)

    def send(self, data):  # one that does not read is given up
        if self.connection.send(data) != len(data):
            raise ConnectionError("its socket is full")

    def receive(self):
        data = self.connection.recv(65536)
        if not data:
            raise ConnectionError("it has left")
        self.unread += data
        while len(self.unread) >= 8:
            length, kind, reserved, method = struct.unpack_from("<IBBH", self.unread)
            if length > (16 << 20) - 8 or reserved != 0 or (kind == HELLO) == self.greeted:
                raise ConnectionError("a breach")
            if len(self.unread) < 8 + length:
                return
            body, self.unread = self.unread[8:8 + length], self.unread[8 + length:]
            self.take(kind, method, body)

    def take(self, kind, method, body):
        if kind == HELLO and body[:6] == b"WLHX\x02\x00":
            self.greeted = True
        elif kind == REQUEST and method == 0 and len(body) >= 26:
            request, device, mode = struct.unpack_from("<QQQ", body)  # the dictionaries are ignored
            answer = (error(NO_DEVICE, f"no device has the registry entry ID {device:#x}") if device != 0x2a
                      else error(BAD_ARGUMENT, "the dial can only be shared") if mode != 0 else b"\x00")
            self.routes = answer == b"\x00"
            self.send(frame(REPLY, struct.pack("<Q", request) + answer))
        elif kind == MESSAGE and method == 1 and not body:
            self.routes = False
        else:  # a farewell, or a breach
            raise ConnectionError("the end")

def greet(client):
    client.send(frame(HELLO, b"WLHX\x02\x00\x18WLHIDEventRouterProtocol\x1eWLHIDEventRouterClientProtocol"))

def attempt(clients, connection, step):
    try:
        step(clients[connection])
    except OSError:
        clients.pop(connection).connection.close()

def accept(listener, clients):
    connection = listener.accept()[0]
    user = struct.unpack("iII", connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))[1]
    if user in (0, os.geteuid()):
        clients[connection] = Client(connection)
        attempt(clients, connection, greet)

def serve(listener, clients):
    position, next_turn, used = 0, 0.0, time.monotonic()
    while clients or time.monotonic() - used < IDLE_SECONDS:
        ready = select.select([listener, *clients], [], [], max(0, next_turn - time.monotonic()))[0]
        if listener in ready:
            accept(listener, clients)
        for connection in clients.keys() & set(ready):
            attempt(clients, connection, Client.receive)
        if time.monotonic() >= next_turn:
            position, next_turn = (position + 1) % 128, time.monotonic() + 0.05
            for connection in [each for each in clients if clients[each].routes]:
                attempt(clients, connection, lambda client: client.send(turn(position)))
        used = time.monotonic() if clients else used

signal.signal(signal.SIGTERM, lambda *_: sys.exit())
if os.environ.get("LISTEN_PID") != str(os.getpid()):
    sys.exit("no sockets were passed: the job daemon starts this program")
clients, names = {}, os.environ["LISTEN_FDNAMES"].split(":")
try:
    serve(socket.socket(fileno=3 + names.index("com.quillmar.hideventrouter")), clients)
finally:
    for connection in list(clients):
        attempt(clients, connection, lambda client: client.send(frame(FAREWELL)))
