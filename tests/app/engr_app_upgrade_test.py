"""engr_app upgrade against gateways that take, refuse, drop and install an image in all ways."""
import contextlib
import hashlib
import json
import os
import pty
import random
import signal
import socket
import subprocess
import tempfile
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor

from fake_gateway import APP, KEYS, Gateway, all_requests, encrypt, frame, outcome, requests, run
from lan_codec import (FRM_CHK_SOFT_VER, FRM_DEV_LIST, FRM_DEV_UPGRADE, FRM_DEV_UPGRADE_INFO, FRM_DOWNLOAD_FIRMWARE,
                       FRM_GET_CHANNEL, FRM_KEEPALIVE, FRM_TP_CMD, FRM_UPGRADE_PERCENT_RPT)

OLD, NEW = "1.0", "2.0.1"
NO_IMAGE = encrypt(KEYS[3], b'{"fileMd5":"","fileSize":0,"swVer":""}')


class Upgrading:
    """A gateway, or its device `cid`, that is upgraded. What it does otherwise than usual is set by name."""

    def __init__(self, image, cid="", *, most=524288, back=0, start=(0, ""), refusal="", fail_at=None, lose_at=None,
                 losses=2, lose_end=False, silent=False, installs=True, polls=1, installed=OLD, known=True, running="",
                 running_for=2, on_piece=None):
        self.__dict__.update(locals())
        self.id = cid or "gw1"
        self.taken = bytearray()
        self.asked = []      # frame types, polls and keep-alives left out
        self.pieces = []
        self.faults = []

    def announcement(self, size):
        body = {"swVer": NEW, "fileSize": size, "fileMd5": hashlib.md5(self.image).hexdigest()}
        body |= {"firmwareType": 10, "cid": self.cid} if self.cid else {}
        return encrypt(KEYS[3], json.dumps(body, sort_keys=True, separators=(",", ":")).encode())

    def serve(self, connection):
        self.connection = connection
        for number, kind, payload in requests(connection):
            if kind == FRM_KEEPALIVE:
                connection.sendall(frame(0, FRM_KEEPALIVE, 0))
            elif kind == FRM_DEV_LIST:
                self.send(number, FRM_DEV_LIST, 0, '{"products":[{"cid":"a1","pid":"p"}]}')
            elif kind in (229, 250):
                self.answer_announcement(number, kind, payload)
            elif kind == FRM_DEV_UPGRADE:
                self.begin(number)
            elif self.take(int.from_bytes(payload[:4], "big"), payload[4:]):
                break
        if self.running == self.id and not self.is_complete():
            self.running = ""  # the driving app has left

    def is_complete(self):
        return len(self.taken) == len(self.image)

    def send(self, number, kind, ret, text):
        self.connection.sendall(frame(number, kind, ret, encrypt(KEYS[3], text.encode()) if text else b""))

    def report(self, kind, **body):
        self.send(0, kind, 0, json.dumps({"firmwareType": 10 if self.cid else 0, "cid": self.id, **body}))

    def answer_announcement(self, number, kind, payload):
        asks_gateway = payload == NO_IMAGE and kind == FRM_CHK_SOFT_VER
        size = 0 if asks_gateway or payload == self.announcement(0) else len(self.image)
        if not asks_gateway and (kind != (229 if self.cid else 250) or payload != self.announcement(size)):
            self.faults.append("not the announcement that was expected")
        if kind == FRM_DEV_UPGRADE_INFO and self.running:
            self.faults.append("the type of a running upgrade was rewritten")
        if not self.asked or self.asked[-1] != (kind, size):
            self.asked.append((kind, size))
        if self.running and self.running != self.id:
            self.running_for -= 1
            self.running = self.running if self.running_for > 0 else ""
        if self.running and self.is_complete():
            self.polls -= 1
            if self.polls > 0:
                self.report(232, progress=99)
            else:
                self.running, self.installed = "", NEW if self.installs else self.installed
        self.send(number, kind, 0, json.dumps({
            "updateStatus": int(self.running != ""), "updateCid": self.running,
            "cid": "gw1" if kind == FRM_CHK_SOFT_VER else self.id,
            "softVer": self.installed if self.known else ""}))

    def begin(self, number):
        self.asked.append((230, 0))
        self.send(number, FRM_DEV_UPGRADE, *self.start)
        if self.start[0] == 0 and self.refusal:
            self.send(number, FRM_DEV_UPGRADE, 1, self.refusal)
        elif self.start[0] == 0:
            self.running, self.taken = self.id, bytearray()
            if not self.silent:
                self.want(0)

    def want(self, offset):
        self.report(231, offset=offset, downloadSize=min(self.most, len(self.image) - offset))

    def take(self, offset, data):
        """Returns whether the connection is to be closed."""
        if offset != len(self.taken):
            self.faults.append(f"piece at {offset} where {len(self.taken)} was expected")
        self.pieces.append(len(data))
        end = offset + len(data)
        if self.on_piece and self.on_piece():
            return False  # neither taken nor answered
        if self.fail_at is not None and end > self.fail_at:
            self.running = ""
            return False
        if self.lose_at is not None and end > self.lose_at and self.losses > 0:
            self.losses -= 1
            return True
        kept = len(data) if end == len(self.image) else max(1, len(data) - self.back)
        self.taken += data[:kept]
        if not self.silent:
            self.want(offset + kept)
        return self.lose_end and self.is_complete()


class UpgradeTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def file(self, content):
        path = os.path.join(self.directory, "image")
        with open(path, "wb") as file:
            file.write(content)
        return path

    def bring(self, path, gateway, *more):
        chosen = ["--cid", gateway.cid] if gateway.cid else []
        return run("upgrade", path, "--version", NEW, *chosen, *more, "--gateway", Gateway(gateway.serve).name)

    def check(self, gateway, *more, code=0, words=(), brought=None):
        got, out, err = brought or self.bring(self.file(gateway.image), gateway, *more)
        self.assertEqual(gateway.faults, [], err)
        self.assertEqual(outcome(got), code, out + err)
        for word in words:
            self.assertIn(word, out + err)
        return out

    def test_the_gateway_gets_every_byte_in_pieces_of_its_choice(self):
        for cid in ["", "a1"]:
            for size, more, pieces in [
                    (1, {}, [1]), (524287, {}, [524287]), (524288, {}, [524288]), (524289, {}, [524288, 1]),
                    (1000000, {}, [524288, 475712]), (1000, {"most": 400, "back": 150}, [400, 400, 400, 250]),
                    (3000000, {"most": 3000000}, [2098131, 901869])]:
                gateway = Upgrading(random.Random(size).randbytes(size), cid, **more)
                out = self.check(gateway, words=[f"version {NEW} (before: {OLD}); {size} bytes in"])
                self.assertEqual((bytes(gateway.taken) == gateway.image, gateway.pieces), (True, pieces), size)
                self.assertIn("device a1 of gateway" if cid else "gateway", out)

    def test_each_end_is_told_with_what_is_installed_then(self):
        image, quick = random.Random(7).randbytes(5000), ("--timeout", "2")
        half = {"most": 2500}
        cases = [
            ("", {"refusal": "gw_lan_ug_cb error"}, (), 1, "gw_lan_ug_cb error; its upgrade service"),
            ("a1", {"refusal": "dev_lan_ug_cb func not exist"}, (), 1, "can't upgrade its devices"),
            ("", {"start": (1, "dev is upgrading")}, quick, 1, "an upgrade is under way already"),
            ("", {"start": (1, "file_size is zero")}, (), 1, "try again"),
            ("", {"running": "b2"}, quick, 1, "has an upgrade of b2 under way", "staying connected until",
             "an upgrade of b2 is over"),
            ("a1", {"running": "b2"}, quick, 1, "has an upgrade of b2 under way", "staying connected"),
            ("a1", {"installed": ""}, (), 0, "now has version 2.0.1;"),
            ("a2", {"known": False}, (), 1, "knows no device a2"),
            ("", {**half, "fail_at": 2600}, quick, 1, "gave up at byte 2500 of 5000: version 1.0 is still",
             "engr_app log"),
            ("a1", {**half, "lose_at": 2600}, quick, 1, "ended the upgrade; starting again, once",
             "lost at byte 2500 of 5000, which ended the upgrade: version 1.0 is still"),
            ("", {**half, "lose_at": 2600, "losses": 1}, quick, 0, "lost at byte 2500 of 5000",
             "starting again, once", "now has version 2.0.1"),
            ("", {"lose_end": True, "polls": 2}, quick, 0, "now has version 2.0.1"),
            ("a1", {"polls": 4}, quick, 0, "now has version 2.0.1"),
            ("a1", {"lose_end": True, "installs": False}, quick, 1, "did not install it: version 1.0 is still"),
            ("", {"installs": False}, quick, 1, "received the whole image, but did not install it"),
            ("", {"silent": True}, ("--timeout", "1"), 1, "did not ask for the next piece", "at byte 0 of 5000",
             "has ended on the gateway, too; version 1.0"),
            ("", {"installed": NEW}, (), 0, "has version 2.0.1 already"),
            ("", {"installed": NEW}, ("--again",), 0, "now has version 2.0.1 (before: 2.0.1)"),
            ("", {"installed": "2.0.10"}, (), 2, "installed 2.0.10 -> 2.0.1, DOWNGRADE", "give --yes"),
            ("a1", {"installed": "2.1"}, ("--yes",), 0, "DOWNGRADE", "now has version 2.0.1 (before: 2.1)"),
            ("", {"installed": NEW, "fail_at": 0}, ("--again", *quick), 1, "gave up at byte 0")]
        path, gateways = self.file(image), [Upgrading(image, cid, **how) for cid, how, *_ in cases]
        with ThreadPoolExecutor(4) as several:  # most wait for what does not come
            ends = several.map(lambda gateway, case: self.bring(path, gateway, *case[2]), gateways, cases)
            for gateway, brought, (_, how, _, code, *words) in zip(gateways, ends, cases):
                with self.subTest(how=how):
                    self.check(gateway, code=code, words=words, brought=brought)

    def test_a_dry_run_announces_no_image_and_starts_nothing(self):
        for cid, asked in [("", [(250, 0)]), ("a1", [(250, 0), (229, 0)])]:
            gateway = Upgrading(b"abc", cid)
            out = self.check(gateway, "--dry-run", "--json")
            self.assertEqual(gateway.asked, asked)
            told = json.loads(out)
            self.assertEqual(told | {"file": ""}, {
                "file": "", "bytes": 3, "md5": hashlib.md5(b"abc").hexdigest(), "version": NEW, "cid": gateway.id,
                "installed": OLD, "downgrade": False, "under_way": False, "under_way_cid": ""})
            self.check(gateway, "--dry-run", words=["installed 1.0 -> 2.0.1"])

    def test_an_interrupt_ends_the_upgrade_on_both_sides(self):
        got_one = threading.Event()
        gateway = Upgrading(bytes(5000), most=2500)
        gateway.on_piece = lambda: len(gateway.pieces) == 2 and not got_one.set()
        terminal, shown_on = pty.openpty()
        with subprocess.Popen([APP, "upgrade", self.file(gateway.image), "--version", NEW, "--gateway",
                               Gateway(gateway.serve).name], stdout=subprocess.PIPE, stderr=shown_on) as running:
            self.assertTrue(got_one.wait(60))
            running.send_signal(signal.SIGINT)
            out, _ = running.communicate(timeout=60)
        os.close(shown_on)
        err = b""
        with contextlib.suppress(OSError):  # the end of a terminal that nobody writes to any more
            while piece := os.read(terminal, 65536):
                err += piece
        os.close(terminal)
        self.assertEqual((running.returncode, out), (130, b""), err)
        self.assertIn(b" 50 %  2.4 KiB of 4.9 KiB", err)
        self.assertNotIn(b"100 %", err, "the second piece was sent, but not taken")
        self.assertIn(b"interrupted at byte 2500 of 5000: the upgrade has ended on the gateway, too; version 1.0", err)

    def test_a_file_that_changes_meanwhile_ends_the_upgrade(self):
        gateway = Upgrading(bytes(5000), most=2500)
        gateway.on_piece = lambda: not self.file(bytes(2500))
        self.check(gateway, code=1, words=["has changed while it was read at byte 2500", "has ended on the gateway"])

    def test_several_gateways_are_upgraded_from_one_file(self):
        image = random.Random(3).randbytes(600000)
        gateways = [Upgrading(image), Upgrading(image, fail_at=0)]
        names = [Gateway(one.serve).name for one in gateways]
        code, out, err = run("upgrade", self.file(image), "--version", NEW, "--json", "--timeout", "2", "--gateway",
                             names[0], "--gateway", names[1])
        self.assertEqual(code, 7, err)
        good, bad = json.loads(out)
        self.assertEqual((good["result"]["upgraded"], good["result"]["version"], good["result"]["version_before"]),
                         (True, NEW, OLD))
        self.assertEqual(bad["error"]["kind"], "upgrade_failed")
        self.assertEqual(bytes(gateways[0].taken), image)

    def lie(self, *payloads, after_start=()):
        """A gateway that answers each piece, and the start, with the next of the requests."""
        left, started = list(payloads), []

        def serve(connection):
            def report(kind, text):
                connection.sendall(frame(0, kind, 0, encrypt(KEYS[3], text.encode())))

            for number, kind, _ in requests(connection):
                if kind == FRM_KEEPALIVE:
                    connection.sendall(frame(0, kind, 0))
                elif kind == FRM_CHK_SOFT_VER:
                    state = json.dumps({"updateStatus": int(bool(started and left)), "updateCid": "gw1", "cid": "gw1",
                                        "softVer": OLD})
                    connection.sendall(frame(number, kind, 0, encrypt(KEYS[3], state.encode())))
                    for text in after_start if not left else ():
                        report(FRM_UPGRADE_PERCENT_RPT, text)
                elif kind in (FRM_DEV_UPGRADE, FRM_DOWNLOAD_FIRMWARE):
                    if kind == FRM_DEV_UPGRADE:
                        started.append(number)
                        connection.sendall(frame(number, kind, 0))
                    if left:
                        report(FRM_DOWNLOAD_FIRMWARE, left.pop(0))
        return run("upgrade", self.file(bytes(3000)), "--version", NEW, "--timeout", "2", "--gateway",
                   Gateway(serve).name)

    def test_a_request_that_the_upgrade_can_not_lead_to_ends_it(self):
        def ask(offset, size, cid="gw1", kind=0):
            return json.dumps({"firmwareType": kind, "cid": cid, "offset": offset, "downloadSize": size})
        for payloads, word in [
                ([ask(0, 1000, cid="b2")], "for another device"), ([ask(0, 1000, kind=7)], "unknown type"),
                ([ask(0, 3001)], "not in the image"), ([ask(-1, 5)], "no request"), (["{}"], "no request"),
                ([ask(1000, 1000)], "without having got the one before"), ([ask(3000, 0)], "without having got"),
                ([ask(0, 1000), ask(1000, 0)], "before the end of the image that it has all"),
                ([ask(0, 1000)] + [ask(1000, 1000), ask(0, 1000)] * 600, "keeps requesting the same pieces")]:
            with self.subTest(word):
                code, out, err = self.lie(*payloads)
                self.assertEqual((outcome(code), out), (1, ""), err)
                self.assertIn(word, err)

    def test_progress_without_a_number_is_no_progress(self):
        whole = [json.dumps({"firmwareType": 0, "cid": "gw1", "offset": at, "downloadSize": 3000 - at})
                 for at in (0, 3000)]
        code, out, err = self.lie(*whole, after_start=['{"cid":"gw1"}', "[1]", '{"cid":"gw1","progress":"x"}'])
        self.assertEqual((outcome(code), out), (1, ""), err)
        self.assertIn("did not install it", err)

    def test_no_piece_is_queued_while_another_is_unsent(self):
        """A gateway that asks again and again and reads nothing gets one piece, and is given up."""
        asked = json.dumps({"firmwareType": 0, "cid": "gw1", "offset": 0, "downloadSize": 2000000}).encode()
        request, many = frame(0, FRM_DOWNLOAD_FIRMWARE, 0, encrypt(KEYS[3], asked)), threading.Event()

        def serve(connection):
            for number, kind, _ in requests(connection):
                if kind == FRM_KEEPALIVE:
                    connection.sendall(frame(0, kind, 0))
                elif kind == FRM_CHK_SOFT_VER:
                    connection.sendall(frame(number, kind, 0, encrypt(
                        KEYS[3], b'{"updateStatus":0,"updateCid":"","cid":"gw1","softVer":"1.0"}')))
                elif kind == FRM_DEV_UPGRADE:
                    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                    connection.sendall(frame(number, kind, 0) + request * 300)
                    many.wait(60)
                    return
        code, _, err = run("upgrade", self.file(bytes(2000000)), "--version", NEW, "--timeout", "2", "--gateway",
                           Gateway(serve).name)
        many.set()
        self.assertEqual(outcome(code), 1)
        self.assertIn("asks for many pieces without taking them", err)

    def test_an_upgrade_that_the_gateway_gave_up_is_started_once_more(self):
        gateway = Upgrading(bytes(5000), most=2500, fail_at=2600)
        gateway.on_piece = lambda: len(gateway.pieces) > 2 and setattr(gateway, "fail_at", None)
        self.check(gateway, "--timeout", "2", words=["probably because another app disconnected", "starting again",
                                                       "now has version 2.0.1"])
        self.assertEqual([kind for kind, _ in gateway.asked].count(FRM_DEV_UPGRADE), 2)

    def test_no_verb_ends_an_upgrade_that_is_seen_to_run(self):
        """It stays until the upgrade is over; the gateway notes how many questions came before the end."""
        upgrading, idle = encrypt(KEYS[3], b"device is upgrading..."), encrypt(KEYS[3], b"data format error")
        for left, arguments in [(2, ["channel", "get"]), (1, ["watch", "--count", "1"])]:
            seen = []

            def serve(connection):
                for number, kind, payload in all_requests(connection):
                    if kind == FRM_KEEPALIVE:
                        connection.sendall(frame(0, kind, 0))
                    elif kind == FRM_TP_CMD:
                        seen.append(kind)
                        connection.sendall(frame(number, kind, 1, upgrading if len(seen) <= left else idle))
                    else:
                        answer = b'{"channel":15}' if kind == FRM_GET_CHANNEL else b'{"products":[]}'
                        connection.sendall(frame(number, kind, 0, encrypt(KEYS[3], answer)))
                        connection.sendall(frame(0, FRM_UPGRADE_PERCENT_RPT, 0, encrypt(
                            KEYS[3], b'{"firmwareType":0,"cid":"gw1","progress":7}')))
            code, _, err = run(*arguments, "--timeout", "2", "--gateway", Gateway(serve).name)
            self.assertEqual(code, 0, err)
            self.assertRegex(err, "(?s)upgrade of gw1 is under way.*staying connected.*Ctrl-C.*upgrade of gw1 is over")
            self.assertEqual(len(seen), left + 1, "expected to be asked until the upgrade was over")

    def test_what_can_not_be_right_is_refused_before_anything_is_sent(self):
        good, pipe = self.file(b"x"), os.path.join(self.directory, "pipe")
        empty, huge = os.path.join(self.directory, "empty"), os.path.join(self.directory, "huge")
        os.mkfifo(pipe)
        for path, size in [(empty, 0), (huge, 1 << 31)]:
            with open(path, "wb") as file:
                file.truncate(size)  # without blocks on the disk
        for arguments, word in [
                ([good, "--version", "2.0.1.2.0.12"], "1 to 11"), ([good, "--version", ""], "1 to 11"),
                ([good, "--version", 'a"b'], "quote"), ([good, "--version", "1", "--cid", "c" * 26], "1 to 25"),
                ([good], "--version"), ([empty, "--version", "1"], "it is empty"),
                ([huge, "--version", "1"], "at most 2147483647"), ([pipe, "--version", "1"], "not a regular file"),
                (["/no/file", "--version", "1"], "/no/file")]:
            code, out, err = run("upgrade", *arguments, "--gateway", "127.0.0.1:9")
            self.assertEqual((code, out), (2, ""), f"{arguments}: {err}")
            self.assertIn(word, err)


if __name__ == "__main__":
    unittest.main()
