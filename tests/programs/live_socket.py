"""A browser's end of the console's WebSocket, which can also break the rules.

    with LiveSocket(page_address) as live:
        hello = live.wait("hello")
        live.ask("report", "a", "1=true")       # the answer
"""

import base64
import json
import os
import socket
import struct
import time
import urllib.parse

from gateway import PATIENCE_S

TEXT, CLOSE, PING, PONG = 1, 8, 9, 10


class LiveSocket:
    """One connection. Refused, it raises ConnectionError with the head of the answer."""

    def __init__(self, page_address, origin=None, read_buffer=None):
        address = urllib.parse.urlsplit(page_address)
        self.seen = []  # messages that were passed over by wait
        self._buffer = b""
        self._next_id = 0
        self.socket = socket.socket()
        self.socket.settimeout(PATIENCE_S)
        if read_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, read_buffer)
        self.socket.connect((address.hostname, address.port))
        head = [f"GET /live?{address.query} HTTP/1.1", f"Host: {address.netloc}", "Upgrade: websocket",
                "Connection: Upgrade", "Sec-WebSocket-Version: 13",
                "Sec-WebSocket-Key: " + base64.b64encode(os.urandom(16)).decode()]
        head += ["Origin: " + origin] if origin else []
        self.socket.sendall("\r\n".join([*head, "", ""]).encode())
        answer = self._read_until(b"\r\n\r\n")
        if b" 101 " not in answer.splitlines()[0]:
            self.socket.close()
            raise ConnectionError(answer.decode())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def _fill(self):
        part = self.socket.recv(1 << 16)
        if not part:
            raise ConnectionError("the console closed the connection")
        self._buffer += part

    def _read_until(self, end):
        while end not in self._buffer:
            self._fill()
        head, _, self._buffer = self._buffer.partition(end)
        return head

    def _read(self, count):
        while len(self._buffer) < count:
            self._fill()
        part, self._buffer = self._buffer[:count], self._buffer[count:]
        return part

    def send(self, payload, kind=TEXT):
        """Sends bytes or a text in one frame."""
        payload = payload.encode() if isinstance(payload, str) else payload
        size = len(payload)
        length = bytes([0x80 | size]) if size < 126 else struct.pack(">BH", 0xFE, size) if size < 65536 else \
            struct.pack(">BQ", 0xFF, size)
        self.socket.sendall(bytes([0x80 | kind]) + length + bytes(4) + payload)  # a mask of zeros changes nothing

    def receive(self):
        """The next message, parsed; None when the console says goodbye."""
        while True:
            kind, size = self._read(2)
            assert kind & 0x80 and size < 128, "a whole message, without a mask"
            if size == 126:
                size, = struct.unpack(">H", self._read(2))
            elif size == 127:
                size, = struct.unpack(">Q", self._read(8))
            payload = self._read(size)
            if kind & 15 == TEXT:
                return json.loads(payload)
            if kind & 15 == CLOSE:
                return None
            if kind & 15 == PING:
                self.send(payload, PONG)

    def wait(self, name, is_wanted=lambda value: True):
        """The value of the next message of that name that is wanted; those before it go to `seen`."""
        end = time.monotonic() + PATIENCE_S
        while (message := self.receive()) is not None:
            assert time.monotonic() < end, f"no {name} that is wanted"
            if name in message and is_wanted(message[name]):
                return message[name]
            self.seen.append(message)
        raise ConnectionError("the console said goodbye")

    def ask(self, *words):
        """Has a line carried out; its answer."""
        self._next_id += 1
        wanted = self._next_id
        self.send(json.dumps({"id": wanted, "line": words}))
        return self.wait("answer", lambda answer: answer["id"] == wanted)

    def events(self, is_last):
        """Events from now on, in order, until one is_last."""
        found = []
        while not any(map(is_last, found)):
            found += self.wait("events")
        return found
