"""engr_app as a whole against small gateways on loopback addresses: usage, results, sentences."""
import contextlib
import hashlib
import json
import os
import socket
import stat
import struct
import subprocess
import tempfile
import threading
import unittest
import zlib

APP = os.path.join(os.environ["ENGR_BIN_DIR"], "engr_app")
KEYS = {n: hashlib.md5(os.environ.get(f"ENGR_KEY{n}_SEED", f"engr-dev-seed-0{n}").encode()).digest()
        for n in (2, 3)}
LOCAL_KEY = "local-key-of-gw1"


def multiply(left, right):
    product = 0
    while right:
        product ^= left if right & 1 else 0
        left = (left << 1) ^ (0x11B if left & 0x80 else 0)
        right >>= 1
    return product


def substitute(byte):
    inverse = next((x for x in range(256) if multiply(byte, x) == 1), 0)
    turned = [(inverse << n | inverse >> (8 - n)) & 0xFF for n in range(5)]
    return turned[0] ^ turned[1] ^ turned[2] ^ turned[3] ^ turned[4] ^ 0x63


SBOX = [substitute(byte) for byte in range(256)]


def encrypt(key, text):
    """AES-128-ECB with PKCS#7 padding, slow and small."""
    words, round_constant = [list(key[n:n + 4]) for n in range(0, 16, 4)], 1
    while len(words) < 44:
        word = list(words[-1])
        if len(words) % 4 == 0:
            word = [SBOX[byte] for byte in word[1:] + word[:1]]
            word[0] ^= round_constant
            round_constant = multiply(round_constant, 2)
        words.append([a ^ b for a, b in zip(word, words[-4])])
    round_keys = [sum(words[n:n + 4], []) for n in range(0, 44, 4)]
    padding = 16 - len(text) % 16
    data, out = text + bytes([padding]) * padding, b""
    for start in range(0, len(data), 16):
        state = [a ^ b for a, b in zip(data[start:start + 16], round_keys[0])]
        for number in range(1, 11):
            state = [SBOX[state[(n + 4 * (n % 4)) % 16]] for n in range(16)]
            if number < 10:
                state = [multiply(state[n], 2) ^ multiply(state[n // 4 * 4 + (n + 1) % 4], 3)
                         ^ state[n // 4 * 4 + (n + 2) % 4] ^ state[n // 4 * 4 + (n + 3) % 4]
                         for n in range(16)]
            state = [a ^ b for a, b in zip(state, round_keys[number])]
        out += bytes(state)
    return out


def frame(number, kind, ret, payload=b""):
    body = struct.pack(">5I", 0x55AA, number, kind, len(payload) + 12, ret) + payload
    return body + struct.pack(">II", zlib.crc32(body[:len(body) % 65536]), 0xAA55)


class Gateway:
    """Serves one connection after the other with a function (connection) -> None."""

    def __init__(self, serve, address="127.0.0.1", port=0):
        self.listener = socket.create_server((address, port))
        self.name = "%s:%d" % self.listener.getsockname()
        self.serve = serve
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                with connection, contextlib.suppress(OSError):
                    self.serve(connection)


def requests(connection):
    received = b""
    while chunk := connection.recv(65536):
        received += chunk
        while len(received) >= 24:
            _, number, kind, length = struct.unpack(">4I", received[:16])
            yield number, kind, received[16:8 + length]
            received = received[length + 16:]


def answering(answers, key=KEYS[3]):
    """A server that answers each frame type with (ret, text), and keep-alives as gateways do."""
    def serve(connection):
        for number, kind, _ in requests(connection):
            if kind == 9:
                connection.sendall(frame(0, 9, 0))
            elif kind in answers:
                ret, text = answers[kind]
                connection.sendall(frame(number, kind, ret, encrypt(key, text) if text else b""))
    return serve


def run(*arguments, environment=None):
    done = subprocess.run([APP, *arguments], capture_output=True, timeout=60,
                          env={**os.environ, **(environment or {})})
    return done.returncode, done.stdout.decode(), done.stderr.decode()


PRODUCTS = b'{"products":[{"cid":"a\\u001b[2J1","pid":"p1"},{"cid":"b2","pid":"p2"}]}'
DEVICES = answering({241: (0, PRODUCTS), 224: (0, b'{"online":["b2"]}'), 10: (1, b"data format error"),
                     12: (0, b"")})


class UsageTest(unittest.TestCase):
    def test_wrong_usage_is_named_and_ends_with_2(self):
        for arguments, word in [
                ([], "subcommand"), (["nonsense"], "nonsense"), (["devices", "--timeout", "x"], "--timeout"),
                (["devices", "--gateway", "127.0.0.1:0"], "port"), (["raw", "--gateway", "127.0.0.1"], "TYPE"),
                (["raw", "nonsense", "--gateway", "127.0.0.1"], "nonsense"),
                (["raw", "9", "0g", "--hex", "--gateway", "127.0.0.1"], "hex"),
                (["info", "--interface", "no-such-if"], "no-such-if"),
                (["info", "--record", "/no/such/directory/file"], "/no/such/directory/file"),
                (["info", "--local-key", "short-key"], "16 characters")]:
            code, out, err = run(*arguments)
            self.assertEqual((code, out), (2, ""), f"{arguments}: {err}")
            self.assertIn(word, err, f"{arguments} must name what is wrong")
            self.assertNotIn("short-key", err, "a key must not be shown")

    def test_every_verb_has_help_with_an_example(self):
        verbs = [line.split()[0] for line in run("--help")[1].split("Subcommands:\n")[1].split("\n\n")[0].splitlines()]
        self.assertGreaterEqual(len(verbs), 7)
        for verb in verbs:
            code, out, _ = run(verb, "--help")
            self.assertEqual(code, 0)
            self.assertIn(f"  engr_app {verb}", out)


class OneGatewayTest(unittest.TestCase):
    def failing(self, serve, verb="devices", *more, environment=None):
        code, out, err = run(verb, *more, "--gateway", Gateway(serve).name, "--json", environment=environment)
        self.assertEqual(code, 1, err)
        told = json.loads(out)["error"]
        self.assertIn(told["message"], err)
        return told["kind"], told["message"]

    def test_each_failure_has_its_sentence(self):
        garbage = answering({241: (0, b"{}"), 10: (1, b"parse data error")}, key=b"some other key..")
        silent = answering({})
        self.assertEqual(self.failing(lambda connection: None)[0], "table_full")
        kind, message = self.failing(garbage)
        self.assertEqual(kind, "wrong_key")
        self.assertIn("--local-key", message)
        kind, message = self.failing(garbage, "raw", "10", "{}", environment={"ENGR_LOCAL_KEY": LOCAL_KEY})
        self.assertEqual(kind, "wrong_key")
        self.assertNotIn(LOCAL_KEY, message)
        for arguments, word in [(["devices"], "busy"), (["raw", "FRM_NOP"], "stayed silent"),
                                (["raw", "7", "{}"], "refuses this type in silence"),
                                (["raw", "grp_oper", "{}"], "accepts this type in silence")]:
            kind, message = self.failing(silent, *arguments, "--timeout", "0.05")
            self.assertEqual(kind, "timed_out")
            self.assertIn(word, message)
        with socket.create_server(("127.0.0.1", 0)) as listener:
            closed = "127.0.0.1:%d" % listener.getsockname()[1]
        code, out, _ = run("keepalive", "--gateway", closed, "--json")
        self.assertEqual((code, json.loads(out)["error"]["kind"]), (1, "refused"))

    def test_devices_come_with_their_state_and_can_not_steer_a_terminal(self):
        gateway = Gateway(DEVICES).name
        code, out, err = run("devices", "--gateway", gateway)
        self.assertEqual((code, out), (0, "CID\tPID\tSTATE\na\\x1b[2J1\tp1\t-\nb2\tp2\tonline\n"), err)
        code, out, _ = run("devices", "--gateway", gateway, "--json")
        self.assertEqual(json.loads(out)[1], {"cid": "b2", "pid": "p2", "online": True})
        nobody = Gateway(answering({224: (1, b"online_dev or offline_dev is null")})).name
        self.assertEqual(json.loads(run("online", "--gateway", nobody, "--json")[1]), {"online": [], "offline": []})

    def test_info_by_address_says_that_connection_and_key_are_right(self):
        code, out, err = run("info", "--gateway", Gateway(DEVICES).name, "--json")
        told = json.loads(out)
        self.assertEqual((code, told["reachable"], told["key"], told["devices"]), (0, True, "right", 2), err)

    def test_raw_shows_ret_and_payload(self):
        code, out, _ = run("raw", "frm_local_dp_query", '{"cid":"x"}', "--gateway", Gateway(DEVICES).name)
        self.assertEqual((code, out), (1, "ret 1, 17 bytes\ndata format error\n"))

    def test_frames_are_shown_and_recorded_without_secrets(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "frames")
            code, _, err = run("raw", "12", '{"token":"hush"}', "-v", "--record", path, "--local-key", LOCAL_KEY,
                               "--gateway", Gateway(DEVICES).name)
            self.assertEqual(code, 0, err)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            with open(path, encoding="utf-8") as file:
                text = file.read()
        lines = [json.loads(line) for line in text.splitlines()]
        self.assertEqual([(line["direction"], line["type"]) for line in lines], [("sent", 12), ("received", 12)])
        self.assertEqual(lines[1]["ret"], 0)
        for shown in (err, text):
            self.assertIn("FRM_TOKEN_BIND (12)", shown)
            self.assertNotIn("hush", shown)
            self.assertNotIn(LOCAL_KEY, shown)

    def test_watch_survives_a_restart_and_says_so(self):
        report = [b'{"cid":"a1","dps":{"1":true}}', b'{"cid":"a1","dps":{"1":false}}']

        def serve(connection):
            for number, kind, _ in requests(connection):
                connection.sendall(frame(0 if kind == 9 else number, kind, 0,
                                         b"" if kind == 9 else encrypt(KEYS[3], b'{"products":[]}')))
                if kind == 241 or len(report) == 1:
                    connection.sendall(frame(0, 8, 0, encrypt(KEYS[3], report.pop(0))))
                    return
        code, out, err = run("watch", "--count", "2", "--json", "--gateway", Gateway(serve).name)
        self.assertEqual(code, 0, err)
        self.assertEqual([json.loads(line)["payload"]["dps"]["1"] for line in out.splitlines()], [True, False])
        self.assertRegex(err, "(?s)lost the connection.*connected again")


class DiscoveryTest(unittest.TestCase):
    """Other gateways may be announced on lo at the same time, so ids are our own."""

    @contextlib.contextmanager
    def announced(self, **gateways):
        stop = threading.Event()
        datagrams = []
        for name, (address, active) in gateways.items():
            text = json.dumps({"ip": address, "gwId": name, "active": active, "ablilty": 1,
                               "productKey": "pk", "version": "3.3", "token": True})
            datagrams.append((address, frame(0, 19, 0, encrypt(KEYS[2], text.encode()))))

        def announce():
            while not stop.wait(0.05):
                for address, datagram in datagrams:
                    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
                        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"lo\0")
                        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
                        sender.bind((address, 0))
                        sender.sendto(datagram, ("255.255.255.255", 6667))

        thread = threading.Thread(target=announce)
        thread.start()
        try:
            yield
        finally:
            stop.set()
            thread.join()

    def test_gateways_are_found_and_picked_by_id(self):
        first, second = f"gw{os.getpid()}a", f"gw{os.getpid()}b"
        address = "127.77.%d.%d" % (os.getpid() // 250 % 250 + 1, os.getpid() % 250 + 1)
        gateway = Gateway(DEVICES, address, 6668)
        with self.announced(**{first: (address, 0), second: (address, 2)}):
            code, out, err = run("discover", "--json", "--timeout", "1")
            ours = {one["id"]: one for one in json.loads(out) if one["address"] == address}
            self.assertEqual((code, set(ours)), (0, {first, second}), err)
            self.assertEqual((ours[second]["activated"], ours[second]["version"]), (True, "3.3"))
            code, out, err = run("devices", "--timeout", "1")
            self.assertEqual((code, out), (1, ""))
            self.assertIn("pick one with --gateway", err)
            code, out, err = run("devices", "--gateway", first)
            self.assertEqual(code, 0, err)
            code, _, err = run("devices", "--gateway", second)
            self.assertEqual(code, 1)
            self.assertIn("is activated: give its local key", err)
            self.assertEqual(run("keepalive", "--gateway", second)[0], 0, "needs no key")
            code, _, err = run("devices", "--gateway", "gw-unknown", "--timeout", "1")
            self.assertEqual(code, 1)
            self.assertIn(first, err, "what was heard instead is listed")
        gateway.listener.close()


if __name__ == "__main__":
    unittest.main()
