"""engr_app as a whole against small gateways on loopback addresses: usage, results, sentences."""
import json
import os
import re
import socket
import stat
import tempfile
import unittest

from fake_gateway import KEYS, LOCAL_KEY, Gateway, announced, answering, encrypt, frame, requests, run
from lan_codec import (FRM_CHK_SOFT_VER, FRM_DEL_SUB_DEV, FRM_DEV_LINE_STAT, FRM_DEV_LIST, FRM_DP_REPORT,
                       FRM_GET_CHANNEL, FRM_KEEPALIVE, FRM_LOCAL_DP_QUERY, FRM_READ_APP_CFG, FRM_TOKEN_BIND)

PRODUCTS = b'{"products":[{"cid":"a\\u001b[2J1","pid":"p1"},{"cid":"b2","pid":"p2"}]}'
DEVICES = answering({FRM_DEV_LIST: (0, PRODUCTS), FRM_DEV_LINE_STAT: (0, b'{"online":["b2"]}'),
                     FRM_LOCAL_DP_QUERY: (1, b"data format error"),
                     FRM_TOKEN_BIND: (0, b"")})


STATUSES = {"refused_by_gateway": 4, "not_accepted": 4, "table_full": 5, "timed_out": 5, "wrong_key": 6,
            "deactivated": 6}


class UsageTest(unittest.TestCase):
    def test_wrong_usage_is_named_and_ends_with_2(self):
        for arguments, word in [
                ([], "name a command"), (["nonsense"], "nonsense"), (["devices", "--timeout", "x"], "--timeout"),
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
        verbs = re.findall(r"(?m)^  ([a-z]+) ", run("--help")[1].split("Commands:\n")[1].split("\n\n")[0])
        self.assertGreaterEqual(len(verbs), 7)
        for verb in verbs:
            code, out, _ = run(verb, "--help")
            self.assertEqual(code, 0)
            self.assertIn(f"  engr_app {verb}", out)


class OneGatewayTest(unittest.TestCase):
    def failing(self, serve, verb="devices", *more, environment=None):
        code, out, err = run(verb, *more, "--gateway", Gateway(serve).name, "--json", environment=environment)
        told = json.loads(out)["error"]
        self.assertEqual((code, told["message"] in err), (STATUSES[told["kind"]], False), err)
        return told["kind"], told["message"]

    def test_each_failure_has_its_sentence(self):
        garbage = answering({FRM_DEV_LIST: (0, b"{}"), FRM_LOCAL_DP_QUERY: (1, b"parse data error")},
                            key=b"some other key..")
        silent = answering({})
        self.assertEqual(self.failing(lambda connection: None)[0], "table_full")
        kind, message = self.failing(garbage)
        self.assertEqual(kind, "wrong_key")
        self.assertIn("--local-key", message)
        kind, message = self.failing(garbage, "raw", "10", "{}", environment={"ENGR_LOCAL_KEY": LOCAL_KEY})
        self.assertEqual(kind, "wrong_key")
        self.assertNotIn(LOCAL_KEY, message)
        for arguments, wanted, word in [
                (["devices"], "timed_out", "busy"), (["raw", "FRM_NOP"], "timed_out", "stayed silent"),
                (["raw", "FRM_TP_CMD", "[]"], "not_accepted", "did not accept the command"),
                (["dp", "set", "a1", "1=1", "--force"], "not_accepted", "did not accept the command"),
                (["raw", "FRM_GRP_OPER", "{}"], "timed_out", "accepts this type in silence")]:
            kind, message = self.failing(silent, *arguments, "--timeout", "0.05")
            self.assertEqual(kind, wanted, f"{arguments}: {message}")
            self.assertIn(word, message)
        with socket.create_server(("127.0.0.1", 0)) as listener:
            closed = "127.0.0.1:%d" % listener.getsockname()[1]
        code, out, _ = run("ping", "--gateway", closed, "--json")
        self.assertEqual((code, json.loads(out)["error"]["kind"]), (5, "refused"))

    def test_each_verb_says_after_a_refusal_what_to_do_next(self):
        refusing = answering({kind: (1, b"malloc error") for kind in (
            FRM_DEV_LIST, FRM_DEV_LINE_STAT, FRM_CHK_SOFT_VER, FRM_GET_CHANNEL, FRM_DEL_SUB_DEV, FRM_READ_APP_CFG)})
        for verb in (["devices"], ["watch"], ["channel", "get"], ["unbind", "a1"],
                     ["site", "report", "--listen", "0.01"]):
            kind, message = self.failing(refusing, *verb)
            self.assertEqual(kind, "refused_by_gateway", verb)
            self.assertIn("malloc error; it is out of memory", message, verb)

    def test_devices_come_with_their_state_and_can_not_steer_a_terminal(self):
        gateway = Gateway(DEVICES).name
        code, out, err = run("devices", "--gateway", gateway)
        self.assertEqual((code, out), (0, "CID\tPID\tSTATE\na\\x1b[2J1\tp1\t-\nb2\tp2\tonline\n"), err)
        code, out, _ = run("devices", "--gateway", gateway, "--json")
        self.assertEqual(json.loads(out)[1], {"cid": "b2", "pid": "p2", "online": True})
        nobody = Gateway(answering({FRM_DEV_LIST: (0, b'{"products":[]}'),
                                    FRM_DEV_LINE_STAT: (1, b"online_dev or offline_dev is null")})).name
        self.assertEqual(json.loads(run("devices", "--gateway", nobody, "--json")[1]), [])

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
        told = [line.get("event", line.get("side")) for line in lines]
        self.assertEqual((told[:4], told[-2:]), (["app", "connected", "frame", "frame"], ["closed", "ended"]))
        self.assertEqual([(line["from"], line["type"], line.get("text")) for line in lines[2:4]],
                         [("app", 12, '{"token":"****"}'), ("gateway", 12, None)])
        self.assertEqual(lines[3]["ret"], 0)
        for shown in (err, text):
            self.assertIn("FRM_TOKEN_BIND", shown)
            self.assertNotIn("hush", shown)
            self.assertNotIn(LOCAL_KEY, shown)

    def test_a_key_given_is_the_only_one_used_unless_the_user_says_otherwise(self):
        text, known = b'{"token":"hush"}', []

        def deactivated(connection):
            for number, kind, payload in requests(connection):
                known.append(payload == encrypt(KEYS[3], text))
                ret, said = (0, b"") if known[-1] else (1, b"parse data error")
                connection.sendall(frame(number, kind, ret, encrypt(KEYS[3], said) if said else b""))
        environment = {"ENGR_LOCAL_KEY": LOCAL_KEY, "ENGR_TOKEN": "hush"}
        kind, message = self.failing(deactivated, "token", "set", environment=environment)
        self.assertEqual((kind, known), ("deactivated", [False]), "a token must not be read with the built-in key")
        self.assertIn("--accept-deactivated", message)
        known.clear()
        code, _, err = run("token", "set", "--gateway", Gateway(deactivated).name, "--accept-deactivated",
                           environment=environment)
        self.assertEqual((code, known), (0, [False, True]), err)

    def test_no_secret_goes_out_under_the_built_in_key_to_a_gateway_that_uses_its_own(self):
        kinds = []

        def activated(connection):
            for number, kind, _ in requests(connection):
                kinds.append(kind)
                connection.sendall(frame(number, kind, 0, encrypt(LOCAL_KEY.encode(), b'{"channel":15}')))
        for verb in (["token", "set", "hush"], ["wifi", "net", "--open"], ["raw", "12", '{"token":"hush"}']):
            kind, message = self.failing(activated, *verb)
            self.assertEqual((kind, kinds), ("wrong_key", [253]), verb)
            self.assertIn("--local-key", message)
            kinds.clear()

    def test_watch_survives_a_restart_and_says_so(self):
        report = [b'{"cid":"a1","dps":{"1":true}}', b'{"cid":"a1","dps":{"1":false}}']

        def serve(connection):
            for number, kind, _ in requests(connection):
                connection.sendall(frame(0 if kind == FRM_KEEPALIVE else number, kind, 0,
                                         b"" if kind == FRM_KEEPALIVE else encrypt(KEYS[3], b'{"products":[]}')))
                if kind == FRM_DEV_LIST or len(report) == 1:
                    connection.sendall(frame(0, FRM_DP_REPORT, 0, encrypt(KEYS[3], report.pop(0))))
                    return
        code, out, err = run("watch", "--count", "2", "--json", "--gateway", Gateway(serve).name)
        self.assertEqual(code, 0, err)
        self.assertEqual([json.loads(line)["dps"]["1"] for line in out.splitlines()], [True, False])
        self.assertRegex(err, "(?s)lost the connection.*reconnected")


class DiscoveryTest(unittest.TestCase):
    """Other gateways may be announced on lo at the same time, so ids are our own."""

    def test_gateways_are_found_and_picked_by_id(self):
        first, second = f"gw{os.getpid()}a", f"gw{os.getpid()}b"
        address = "127.77.%d.%d" % (os.getpid() // 250 % 250 + 1, os.getpid() % 250 + 1)
        gateway = Gateway(DEVICES, address, 6668)
        with announced(**{first: (address, 0), second: (address, 2)}):
            code, out, err = run("discover", "--json", "--listen", "3")
            ours = {one["id"]: one for one in json.loads(out) if one["address"] == address}
            self.assertEqual((code, set(ours)), (0, {first, second}), err)
            self.assertEqual((ours[second]["activated"], ours[second]["version"]), (True, "3.3"))
            code, out, err = run("discover", "--fields", "id,version", "--no-header", "--sort", "id", "--filter",
                                 f"address={address}", "--listen", "3")
            self.assertEqual((code, out), (0, f"{first}\t3.3\n{second}\t3.3\n"), err)
            code, out, err = run("devices", "--listen", "3")
            self.assertEqual((code, out), (3, ""))
            self.assertIn("pick one with --gateway", err)
            code, out, err = run("devices", "--gateway", first)
            self.assertEqual(code, 0, err)
            code, _, err = run("devices", "--gateway", second)
            self.assertEqual(code, 6)
            self.assertIn("is activated: give its local key", err)
            self.assertEqual(run("ping", "-c", "1", "--gateway", second)[0], 0, "needs no key")
            code, _, err = run("devices", "--gateway", "gw-unknown", "--listen", "3")
            self.assertEqual(code, 3)
            self.assertIn(first, err, "what was found instead is listed")
        gateway.listener.close()


if __name__ == "__main__":
    unittest.main()
