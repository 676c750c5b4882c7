"""Sessions that the programs record: both ends tell the same, no secret is in them, and Wireshark reads them."""
import json
import os
import shutil
import signal
import socket
import stat
import subprocess
import tempfile
import time
import unittest

from gateway import PATIENCE_S, Gateway, program
from lan_codec import KEYS, encrypt, request

LOCAL_KEY = "the local key 16"
SECRETS = ("open sesame", "t0ken-t0ken", LOCAL_KEY)
SITE = {"gateway": {"gw_id": "recorded1", "local_key": LOCAL_KEY, "active_stat": 2},
        "devices": [{"dev_id": "lamp1", "pid": "p", "online": True, "dps": {"1": False}}]}
DISSECTOR = os.path.join(os.path.dirname(__file__), "..", "..", "tools", "wireshark", "engr_lan.lua")
WIFI_MODIFY = 15
# The block of a request under the public key that has the password.
SECRET_BLOCK = encrypt(KEYS[3], b'{"ssid": "net", "passwd": "open sesame"')[16:32]


def events(path):
    """Header and events; every line has to be whole."""
    with open(path, encoding="utf-8") as file:
        text = file.read()
    assert text.endswith("\n"), f"a line breaks off: {text[-80:]!r}"
    lines = [json.loads(line) for line in text.splitlines()]
    return lines[0], lines[1:]


def conversation(path):
    """What each end sent, connection by connection."""
    told = {}
    for event in events(path)[1]:
        if event["event"] in ("frame", "bytes"):
            # Only the gateway's side tells how a frame came.
            kept = {name: value for name, value in event.items() if name not in ("at", "began", "first", "client")}
            told.setdefault((event["client"], event["from"]), []).append(kept)
    return [told[place] for place in sorted(told)]


def session(*arguments):
    return subprocess.run([program("engr_session"), *arguments], capture_output=True, text=True, check=False,
                          timeout=PATIENCE_S)


class SessionFilesTest(unittest.TestCase):
    def setUp(self):
        made = tempfile.TemporaryDirectory()
        self.addCleanup(made.cleanup)
        self.directory = made.name
        self.record = self.path("gateway.jsonl")

    def path(self, name):
        return os.path.join(self.directory, name)

    def app(self, gateway, number, *arguments, key=LOCAL_KEY):
        path = self.path(f"app{number}.jsonl")
        keys = ["--local-key", key] if key else []
        return path, gateway.run_app(*keys, "--record", path, *arguments, text="open sesame\n")

    def commission(self, *options):
        """A story with secrets in many places. Returns what the apps recorded."""
        with Gateway("--record", self.record, *options, site=SITE) as gateway:
            image = self.path("image")
            with open(image, "wb") as file:
                file.write(os.urandom(700_000))
            done = [self.app(gateway, *each) for each in (
                (1, "devices"), (2, "token", "set", "t0ken-t0ken"), (3, "log"), (4, "dp", "set", "lamp1", "1=true"),
                (5, "upgrade", image, "--version", "2.0.1"),
                (6, "wifi", "net", "--password-file", "-", "--yes"))]
            gateway.ctl("set", "wf_passwd", "open sesame")
            gateway.ctl("set", "local_key", LOCAL_KEY)
            # Half a frame with a secret, and one whose end is damaged.
            text = json.dumps({"ssid": "net", "passwd": "open sesame", "more": "x" * 40}).encode()
            with socket.create_connection((gateway.address, 6668)) as connection:
                for key in (LOCAL_KEY.encode(), KEYS[3]):
                    cipher = encrypt(key, text)
                    connection.sendall(request(5, WIFI_MODIFY, cipher[:-16] + bytes(16)))
                connection.sendall(request(6, WIFI_MODIFY, encrypt(KEYS[3], text))[:-9])
                connection.shutdown(socket.SHUT_WR)
                connection.settimeout(PATIENCE_S)
                while connection.recv(4096):
                    pass  # until the gateway has read all and closes, too
        for path, end in done:
            self.assertEqual(end.returncode, 0, end.stderr)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
        return [path for path, _ in done]

    def test_both_ends_record_the_same_and_no_secret(self):
        paths = self.commission()
        self.assertEqual(stat.S_IMODE(os.stat(self.record).st_mode), 0o600)
        told = conversation(self.record)
        for path in paths:
            self.assertEqual(session("check", path).returncode, 0, path)
            heard = conversation(path)
            self.assertTrue(heard, path)
            self.assertEqual(heard, told[:len(heard)], path)
            told = told[len(heard):]
        header, all_events = events(self.record)
        self.assertEqual(header["site"]["gateway"]["local_key"], header["key"], "stands for the local key")
        self.assertEqual({"connected", "frame", "bytes", "call", "control", "log", "activity", "closed", "ended"} -
                         {event["event"] for event in all_events}, set())
        capture = self.path("capture")
        self.assertEqual(session("export", self.record, "--pcapng", capture).returncode, 0)
        for path in (self.record, capture, *paths):
            with open(path, "rb") as file:
                content = file.read()
            for secret in (*(each.encode() for each in SECRETS), SECRET_BLOCK):
                for form in (secret, secret.hex().encode()):
                    self.assertNotIn(form, content, path)

    def test_secrets_are_there_when_they_are_asked_for(self):
        self.commission("--record-secrets")
        header, _ = events(self.record)
        self.assertEqual((header["secrets"], header["key"]), (True, LOCAL_KEY))
        with open(self.record, encoding="utf-8") as file:
            text = file.read()
        for secret in (*SECRETS, SECRET_BLOCK.hex()):
            self.assertIn(secret, text)

    def test_credentials_by_datagram_are_recorded_without_secrets(self):
        with Gateway("--ap", "--record", self.record, site=SITE) as gateway:
            path = self.path("app.jsonl")
            # Nobody waits for the outcome, so the app may call it a failure.
            subprocess.run([program("engr_app"), "--record", path, "--interface", "lo", "--listen", "1", "provision",
                            "--ssid", "net", "--password", SECRETS[0], "--token", SECRETS[1], "--yes", "--force",
                            "--address", gateway.address, "--repeat", "1", "--wait", "1"], capture_output=True,
                           check=False, timeout=PATIENCE_S)
            gateway.wait_for("that it has taken the credentials", lambda status: status["wifi"]["ssid"] == "net")
        for record in (self.record, path):
            told = [event for event in events(record)[1] if event.get("port") == 6669]
            self.assertEqual([(event["from"], json.loads(event["text"])) for event in told],
                             [("app", {"ssid": "net", "passwd": "*" * 11, "token": "*" * 11})], record)
            with open(record, encoding="utf-8") as file:
                text = file.read()
            for secret in SECRETS[:2]:
                self.assertNotIn(secret, text)

    def test_a_kill_leaves_whole_lines(self):
        with Gateway("--record", self.record, site=SITE) as gateway:
            for _ in range(3):
                gateway.run_app("--local-key", LOCAL_KEY, "devices")
            bound, lines = time.monotonic() + PATIENCE_S, b""
            while lines.count(b"\n") < 8:
                self.assertLess(time.monotonic(), bound, "expected that what happens is written while it happens")
                with open(self.record, "rb") as file:
                    lines = file.read()
            gateway.stop(signal.SIGKILL)
        self.assertGreater(len(events(self.record)[1]), 6)
        done = session("check", self.record)
        self.assertEqual(done.returncode, 1)
        self.assertIn("was killed", done.stderr)

    def test_what_is_wrong_with_a_file_is_told_with_its_line(self):
        path = self.path("wrong")
        with open(path, "w", encoding="utf-8") as file:
            file.write('{"session":1}\n')
        for verb in (["show", path], ["check", path], ["export", path, "--pcapng", self.path("out")]):
            done = session(*verb)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertIn(f"{path}: line 1: has no program", done.stderr)
        self.assertEqual(session("show", self.path("missing")).returncode, 2)

    def test_the_story_is_shown_and_filtered(self):
        with Gateway("--record", self.record, site=SITE) as gateway:
            self.app(gateway, 1, "dp", "set", "lamp1", "1=true")
            gateway.wait_for_clients(0)
            gateway.run_ctl("set", "product_key", "\x1b[2J")  # which is refused
        story = session("show", self.record).stdout
        for text in ('> FRM_TP_CMD', 'closed by the app', 'control: set product_key \\x1b[2J', 'end\n'):
            self.assertIn(text, story)
        self.assertNotIn("engr_pack_data_with_cmd", story)
        self.assertIn("engr_parse_data_with_cmd", session("show", self.record, "--all").stdout)
        lines = session("show", self.record, "--client", "1", "--type", "tp_cmd").stdout.splitlines()[1:]
        self.assertTrue(lines and all("FRM_TP_CMD" in line for line in lines), lines)

    @unittest.skipUnless(shutil.which("tshark"), "there is no tshark; script/bootstrap test installs it")
    def test_the_dissector_reads_an_export(self):
        paths = self.commission()
        for record in (self.record, *paths):
            capture = self.path("capture")
            done = session("export", record, "--pcapng", capture)
            self.assertEqual(done.returncode, 0, done.stderr)
            shown = subprocess.run(
                ["tshark", "-2", "-r", capture, "-X", "lua_script:" + DISSECTOR, "-o", done.stdout.splitlines()[-1],
                 "-o", "tcp.check_checksum:TRUE", "-o", "ip.check_checksum:TRUE", "-Y", "engr_lan && tcp",
                 "-T", "fields", "-E", "aggregator=|",
                 *(part for name in ("engr_lan.type", "engr_lan.text", "tcp.checksum.status", "tcp.analysis.flags")
                   for part in ("-e", name))],
                capture_output=True, text=True, timeout=PATIENCE_S, check=True).stdout.splitlines()
            wanted = [event for event in events(record)[1] if event["event"] == "frame"]
            types = [kind for line in shown for kind in line.split("\t")[0].split("|") if kind]
            self.assertEqual([str(event["type"]) for event in wanted], types, record)
            texts = "\n".join(shown)
            for event in wanted:
                if event.get("coding") in (None, "local", "built-in") and event["type"] not in (231, 254):
                    self.assertIn(event.get("text", ""), texts)
            for line in shown:
                self.assertEqual(line.split("\t")[2:], ["1", ""], "a checksum or a sequence number is wrong")


if __name__ == "__main__":
    unittest.main()
