"""The Wireshark dissector understands every frame of the protocol pages, in a capture of the programs' own traffic."""
import os
import select
import shutil
import socket
import struct
import subprocess
import tempfile
import threading
import unittest

from gateway import PATIENCE_S, Gateway
from lan_codec import FRM_DEV_LIST, FRM_GET_LOG, KEYS, request
from protocol_pages import Protocol, frames, parse, play_pages

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "..", "tools", "wireshark", "engr_lan.lua")
ETHERNET, ALL_PROTOCOLS, OUTGOING, LARGEST = 1, 3, 4, 1 << 18


class Capture:
    """What goes over lo, in a file for tshark. A thread of its own reads it before the socket's buffer is full."""

    def __init__(self, path):
        self._file = open(path, "wb")
        self._file.write(struct.pack("=IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, LARGEST, ETHERNET))
        self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ALL_PROTOCOLS))
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        self._socket.bind(("lo", 0))
        self._socket.setblocking(False)
        self._number = 0
        self._lock = threading.Lock()
        self._closing, self._closed = socket.socketpair()
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        while self._closed not in select.select([self._socket, self._closed], [], [])[0]:
            self.save()

    def save(self):
        """Writes what has come so far; each packet is seen on its way out and on its way in."""
        with self._lock:
            self._save()

    def _save(self):
        while True:
            try:
                packet, address = self._socket.recvfrom(LARGEST)
            except BlockingIOError:
                return self._file.flush()
            if address[2] != OUTGOING:
                self._number += 1
                self._file.write(struct.pack("=IIII", self._number, 0, len(packet), len(packet)) + packet)

    def close(self):
        self._closing.close()
        self._reader.join()
        self._closed.close()
        self._file.close()
        self._socket.close()


@unittest.skipUnless(shutil.which("tshark"), "there is no tshark; script/bootstrap test installs it")
class Dissector(unittest.TestCase):
    def setUp(self):
        self.protocol = Protocol()
        if self.protocol.keys["3"][1] != KEYS[3]:
            self.skipTest("the pages have the public key seeds, these programs others")
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.path = os.path.join(directory.name, "capture.pcap")
        self.capture = Capture(self.path)
        self.addCleanup(self.capture.close)

    def fields(self, *names):
        """For each packet these fields; of several frames in one they are separated by bars."""
        done = subprocess.run(
            ["tshark", "-2", "-r", self.path, "-X", "lua_script:" + SCRIPT, "-o",
             "engr_lan.local_keys:127.0.0.2=" + self.protocol.site["gateway"]["local_key"], "-Y", "engr_lan",
             "-T", "fields", "-E", "aggregator=|", *(part for name in names for part in ("-e", name))],
            capture_output=True, text=True, timeout=PATIENCE_S, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotRegex(done.stderr, "(?i)lua.*error")
        self.assertNotIn("Lua Error", done.stdout)
        return [line.split("\t") for line in done.stdout.splitlines()]

    def test_every_frame_of_the_pages_is_shown_as_it_stands_there(self):
        # Of the waits for a discovery one is enough.
        expected = []
        for lines in play_pages(self, self.protocol, lambda lines: "6667=" not in "".join(lines[1:])):
            self.capture.save()
            expected += [shown(line) for line in frames(parse(lines)) if not line.segment]
        unseen = {name for name in self.protocol.types if not any(name in line for line in expected)}
        self.assertEqual(unseen, set(), "expected an example of each type")
        rows = self.fields("engr_lan.summary", "engr_lan.piece.data", "engr_lan.piece.asked_in", "json.member")
        told = [summary for row in rows for summary in row[0].split("|")]
        self.assertEqual([line for line in expected if line not in told], [], "expected these among the frames shown")
        pieces = [row for row in rows if row[1]]
        self.assertTrue(pieces and all(row[2] for row in pieces), f"expected the request of each piece: {pieces}")
        lists = [row[3] for row in rows if row[0].startswith("< 1 FRM_DEV_LINE_STAT")]
        self.assertEqual(lists, ["online|offline"], "expected the members of the JSON in the tree")

    def test_the_log_noise_and_frames_in_several_packets_are_put_together(self):
        with Gateway("--log-level", "5") as gateway, socket.create_connection((gateway.address, 6668)) as app:
            long = request(2, FRM_DEV_LIST, b"not looked at" * 100)
            app.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for parts in ([b"noise" + request(1, FRM_DEV_LIST)], [long[:200], long[200:]], [request(3, FRM_GET_LOG)]):
                for part in parts:
                    app.sendall(part)
                last = receive(app)
            log = last[28:-8]
            while last[20:24] != last[24:28]:
                last = receive(app)
                log += last[28:-8]
            self.capture.save()
        rows = self.fields("frame.number", "engr_lan.summary", "engr_lan.reply_to", "engr_lan.reply_in",
                           "engr_lan.noise")
        count = (len(log) + 1024) // 1024
        self.assertGreater(count, 1, "expected a log of several segments")
        self.assertEqual([row[1] for row in rows if row[1].startswith("> ")],
                         ["> 1 FRM_DEV_LIST", "> 2 FRM_DEV_LIST " + "not looked at" * 100, "> 3 FRM_GET_LOG"])
        self.assertEqual(rows[-1][1], f"< 3 FRM_GET_LOG ret 0 segment {count} of {count}, "
                                      f"{len(log)} bytes of log in all")
        self.assertEqual(rows[0][4], b"noise".hex())
        for place in (0, 2):
            self.assertEqual((rows[place][3], rows[place + 1][2]), (rows[place + 1][0], rows[place][0]), rows)


def receive(app):
    head = app.recv(16, socket.MSG_WAITALL)
    return head + app.recv(struct.unpack(">4I", head)[3], socket.MSG_WAITALL)


def shown(line):
    """A line of the page as the dissector's summary has it."""
    sign = ">" if line.sent else "<"
    ret = "" if line.sent else f" ret {line.ret}"
    payload = line.payload
    if payload.startswith("hex "):
        size = len(bytes.fromhex(payload[4:]))
        payload = f"offset {int(payload[4:12], 16)}, {size - 4} bytes" if line.name == "FRM_DOWNLOAD_FIRMWARE" \
            else f"{size} bytes that no key decrypts"
    return f"{sign} {line.number} {line.name}{ret} {payload}".rstrip()


if __name__ == "__main__":
    unittest.main()
