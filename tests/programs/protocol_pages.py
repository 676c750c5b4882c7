"""Reads the examples of the protocol pages in docs/, and plays them against the reference gateway.

An example is a fenced block `exchange [OPTION...]`, one line a frame; what belongs to one request comes in any order:

    > NUMBER TYPE PAYLOAD            from the app; PAYLOAD is a text, or "hex" and bytes as they go over the wire
    >> NUMBER TYPE PAYLOAD           the same, again and again until the answer is the one below
    < NUMBER TYPE RET PAYLOAD        from the gateway
    < nothing                        no answer
    $ engr_gatewayctl ARGUMENTS      done at the gateway
        PAYLOAD                      the rest of a long payload
      HEX                            below a line: all bytes of that frame

A word PORT= before NUMBER makes it a datagram. How a payload is encrypted is read from the tables of the page. "..." in
a payload stands for what differs. Options begin a gateway of the example's own: `activated`, `access_point`,
NAME=VALUE of the upgrade in a scenario, NAME:RESULT for a service or callback that fails.
"""
import json
import re
import shlex
import socket
import struct

import documents
from gateway import PATIENCE_S, Gateway
from lan_codec import decrypt, encrypt, frame, request

PAGES = tuple(f"docs/{name}.md" for name in ("protocol", "protocol_commands", "protocol_upgrade",
                                                 "protocol_provisioning"))
ADDRESS = "127.0.0.2"
CALLBACKS = ("get_log_path",)
HEADER = 16
SEGMENT, SEGMENT_OVERHEAD = 1024, 36


def table(text, first_heading):
    """Rows of the table whose first column has this heading, as lists of cells without their backticks."""
    rows = re.search(rf"^\| {first_heading} \|.*\n\|[- |]*\n((?:\|.*\n)*)", text, re.MULTILINE)[1]
    return [[cell.strip().strip("`") for cell in row.strip("|").split(" | ")] for row in rows.splitlines()]


def blocks(text, kind):
    """(options, lines) of the fenced blocks of a kind."""
    return [(block.options, block.text.splitlines()) for block in documents.blocks(text) if block.language == kind]


class Protocol:
    """What the main page says of keys, types and the gateway of the examples."""

    def __init__(self):
        text = documents.read_page(PAGES[0])
        self.keys = {row[0]: (row[1], bytes.fromhex(row[2]), row[3], row[4]) for row in table(text, "Key")}
        self.types = {row[1]: (int(row[0]), row[3], row[4]) for row in table(text, "Type")}
        self.site = json.loads("\n".join(blocks(text, "json")[0][1]))

    def key(self, port, activated):
        """Of a datagram's port, or of the TCP channel."""
        if port:
            return self.keys["2" if port == 6667 else "1"][1]
        return self.site["gateway"]["local_key"].encode() if activated else self.keys["3"][1]


class Line:
    """A line of an example."""

    def __init__(self, text):
        self.text, self.hex = text, ""
        found = re.fullmatch(r"(<|>>?) (?:(\d+)= ?)?(\d+) (\w+)(?: ret (\d))?(?: segment (\S+) of (\S+))? ?(.*)", text)
        assert found, f"expected a line of an example, got {text!r}"
        self.sent, self.is_repeated = found[1] != "<", found[1] == ">>"
        self.port, self.number = int(found[2] or 0), int(found[3])
        self.name, self.ret, self.segment, self.payload = found[4], int(found[5] or 0), found[6], found[8]


def parse(lines):
    """Groups of one request, or the arguments of engr_gatewayctl, and what answers it."""
    groups = []
    for text in "\n".join(lines).replace("\n    ", "").splitlines():
        if text.startswith("  "):
            last.hex += text.replace(" ", "")
        elif text.startswith("$ "):
            groups.append([shlex.split(text)[2:]])
        elif text != "< nothing":
            last = Line(text)
            if last.sent or not groups:
                groups.append([])
            groups[-1].append(last)
    return groups


def frames(groups):
    return [line for group in groups for line in group if isinstance(line, Line)]


class Player:
    """Plays one example on a running gateway."""

    def __init__(self, test, protocol, gateway, options):
        self.test, self.protocol, self.gateway = test, protocol, gateway
        self.activated = "activated" in options
        self.app = socket.create_connection((gateway.address, 6668))
        self.onlooker = socket.create_connection((gateway.address, 6668))
        self.listeners = {}
        for each in (self.app, self.onlooker):
            each.settimeout(PATIENCE_S)
            self.keep_alive(each)  # the gateway has accepted it

    def listen(self, port):
        """Before anything is sent that makes the gateway broadcast."""
        listener = self.listeners[port] = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        listener.settimeout(PATIENCE_S)
        listener.bind(("", port))

    def close(self):
        for each in (self.app, self.onlooker, *self.listeners.values()):
            each.close()

    def payload(self, line):
        if line.payload.startswith("hex "):
            return bytes.fromhex(line.payload[4:])
        is_plain = not line.payload or (line.sent and self.coding(line).startswith("plain"))
        text = line.payload.encode()
        return text if is_plain else encrypt(self.protocol.key(line.port, self.activated), text)

    def coding(self, line):
        return self.protocol.types[line.name][1]

    def number(self, line):
        return self.protocol.types[line.name][0]

    def encode(self, line):
        build = request if line.sent else lambda number, kind, payload: frame(number, kind, line.ret, payload)
        bytes_ = build(line.number, self.number(line), self.payload(line))
        if line.hex:
            self.test.assertEqual(line.hex, bytes_.hex().upper(), f"bytes of {line.text}")
        return bytes_

    def receive(self, sock):
        head = sock.recv(HEADER, socket.MSG_WAITALL)
        assert len(head) == HEADER, "the gateway closed the connection"
        return head + sock.recv(struct.unpack(">4I", head)[3], socket.MSG_WAITALL)

    def show(self, bytes_, port=0):
        """A received frame as the page would have it."""
        number, kind, ret = struct.unpack(">4xII4xI", bytes_[:20])
        names = [name for name, (value, *_) in self.protocol.types.items() if value == kind]
        text = decrypt(self.protocol.key(port, self.activated), bytes_[20:-8])
        shown = bytes_[20:-8].hex() if text is None else text.decode()
        return f"{number} {'/'.join(names)} ret {ret} {shown}\n  {bytes_.hex(' ', 4).upper()}"

    def keep_alive(self, sock):
        """Nothing else may have come by now."""
        sock.sendall(request(1, 9))
        got = self.receive(sock)
        self.test.assertEqual(got, frame(0, 9, 0), f"expected nothing more, got {self.show(got)}")

    def expect(self, sock, lines):
        """These frames in any order, to the byte."""
        wanted = {self.encode(line): line for line in lines if not line.segment}
        while wanted:
            got = self.receive(sock)
            expected = "\n".join(line.text for line in wanted.values())
            self.test.assertIn(got, wanted, f"expected one of\n{expected}\ngot {self.show(got)}")
            del wanted[got]

    def expect_log(self, line):
        """A transfer in segments; the page has its last one."""
        for seq in range(1, 1 << 16):
            got = self.receive(self.app)
            number, kind, ret, count, its_seq = struct.unpack(">4xII4x3I", got[:28])
            self.test.assertEqual((number, kind, ret, its_seq), (line.number, self.number(line), line.ret, seq))
            is_last = seq == count
            size = len(got) - SEGMENT_OVERHEAD
            self.test.assertEqual(size == SEGMENT, not is_last, f"expected all segments but the last to be full")
            if is_last:
                return

    def repeat(self, line, answer):
        """Sends a request, which was sent once, until its answer is this one."""
        for _ in range(100_000):
            got = self.receive(self.app)
            if got == self.encode(answer):
                return
            self.app.sendall(self.encode(line))
        self.test.fail(f"expected in the end {answer.text}\ngot {self.show(got)}")

    def play(self, groups):
        for port in {line.port for line in frames(groups) if line.port and not line.sent}:
            self.listen(port)
        for group in groups:
            if isinstance(group[0], list):
                self.gateway.ctl(*group.pop(0))
            for line in (each for each in group if each.sent):
                if line.port:
                    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
                        sender.sendto(self.encode(line), (self.gateway.address, line.port))
                else:
                    self.app.sendall(self.encode(line))
            answers = [line for line in group if not line.sent]
            if group[0].is_repeated:
                self.repeat(group[0], answers.pop())
            for line in (each for each in answers if each.port):
                got = self.listeners[line.port].recv(1 << 16)
                self.test.assertEqual(got, self.encode(line), f"expected {line.text}\ngot {self.show(got, line.port)}")
            for line in (each for each in answers if each.segment):
                self.expect_log(line)
            answers = [line for line in answers if not line.port]
            self.expect(self.app, answers)
            if not group[0].port:
                self.keep_alive(self.app)
            self.expect(self.onlooker, [line for line in answers if line.number == 0
                                        and line.name not in ("FRM_KEEPALIVE", "FRM_DOWNLOAD_FIRMWARE")])
        self.keep_alive(self.onlooker)


def start_gateway(protocol, options):
    knobs = dict(option.split("=") for option in options if "=" in option)
    scenario = {"upgrade": {"install_ms": 1, **{name: json.loads(value) for name, value in knobs.items()}}}
    for name, result in (option.split(":") for option in options if ":" in option):
        kind = "callbacks" if name in CALLBACKS else "services"
        scenario.setdefault(kind, {})[name] = int(result)
    site = {**protocol.site, "gateway": {**protocol.site["gateway"], "active_stat": 2 * ("activated" in options)}}
    return Gateway(*(["--ap"] if "access_point" in options else []), site=site, scenario=scenario, address=ADDRESS)


def play_pages(test, protocol, wanted=lambda lines: True):
    """Plays all examples that are wanted: those without options of a page on one gateway, in their order. Yields the
    lines of each when it has been played."""
    for page in PAGES:
        examples = [example for example in blocks(documents.read_page(page), "exchange") if wanted(example[1])]
        shared = [lines for options, lines in examples if not options]
        runs = [([], shared)] + [(options, [lines]) for options, lines in examples if options]
        for options, run in runs:
            with start_gateway(protocol, options) as gateway:
                for lines in run:
                    with test.subTest(page, options=options, lines=lines[0]):
                        player = Player(test, protocol, gateway, options)
                        try:
                            player.play(parse(lines))
                        finally:
                            player.close()
                    yield lines
