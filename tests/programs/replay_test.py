"""Sessions that the real programs recorded over TCP, played into the agent in virtual time."""
import json
import os
import socket
import subprocess
import tempfile
import unittest
from unittest import mock

from gateway import PATIENCE_S, Gateway, program
from lan_codec import FRM_DEV_LIST, FRM_KEEPALIVE, FRM_LOCAL_DP_QUERY, FRM_TP_CMD, encrypt, request

KEY = "0123456789abcdef"
SITE = {"gateway": {"local_key": KEY, "active_stat": 2},
        "devices": [{"dev_id": "lamp1", "online": True, "dps": {"1": True, "2": 5}},
                    {"dev_id": "lamp2", "online": True, "dps": {"1": True}}],
        "joining": [{"dev_id": "panel1", "pid": "zbpanel", "join_after_ms": 50}],
        "groups": [{"gid": "attic", "cids": ["lamp2"]}]}


class App:
    """A connection of its own, for what engr_app does not do."""

    def __init__(self, gateway):
        self.socket = socket.create_connection((gateway.address, 6668))
        self.socket.settimeout(PATIENCE_S)
        self.ask(FRM_KEEPALIVE)

    def send(self, bytes_):
        self.socket.sendall(bytes_)

    def wait_for(self, kind):
        """Takes frames until one of a type has come."""
        while True:
            head = self.socket.recv(16, socket.MSG_WAITALL)
            assert head, "the gateway closed the connection"
            self.socket.recv(int.from_bytes(head[12:], "big"), socket.MSG_WAITALL)
            if int.from_bytes(head[8:12], "big") == kind:
                return

    def ask(self, kind, text=""):
        self.send(request(7, kind, encrypt(KEY.encode(), text.encode()) if text else b""))
        self.wait_for(kind)

    def close(self):
        self.socket.close()


def replay(*arguments, name="engr_replay"):
    """Status and all that was printed. To reduce a session takes hundreds of plays."""
    done = subprocess.run([program(name), *arguments], capture_output=True, text=True, timeout=5 * PATIENCE_S,
                          check=False)
    return done.returncode, done.stdout + done.stderr


class ReplayTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="engr-replay-test-")
        self.addCleanup(directory.cleanup)
        self.session = os.path.join(directory.name, "session.jsonl")

    def record(self, *options):
        return Gateway("--record", self.session, *options, site=SITE)

    def shrunk(self, *arguments, name):
        """What apps and operator do in the reduced session."""
        code, text = replay("--shrink", *arguments, self.session, name=name)
        self.assertEqual(code, 0, text)
        with open(self.session + ".shrunk", encoding="utf-8") as file:
            events = [json.loads(line) for line in file][1:]
        return [(each["event"], each.get("client", each.get("line"))) for each in events
                if each["event"] in ("connected", "closed", "control") or each.get("from") == "app"]

    def test_a_session_of_the_real_programs_is_played_to_the_letter(self):
        environment = mock.patch.dict(os.environ, {"ENGR_LOCAL_KEY": KEY})
        with self.record("--ap") as gateway, environment:
            onlooker = App(gateway)
            for arguments in (["devices"], ["channel", "set", "20"], ["dp", "set", "lamp1", "1=false"],
                              ["group", "add", "hall", "lamp1", "lamp2"], ["group", "set", "hall", "1=true"],
                              ["group", "set", "attic", "1=false"],
                              ["join", "open", "--seconds", "1"], ["log"], ["site", "report"]):
                done = gateway.run_app(*arguments)
                self.assertEqual(done.returncode, 0, f"{arguments}: {done.stderr}")
            image = os.path.join(os.path.dirname(self.session), "image.bin")
            with open(image, "wb") as file:
                file.write(os.urandom(100_000))
            self.assertEqual(gateway.run_app("upgrade", image, "--version", "2.0.1").returncode, 0)
            gateway.ctl("report", "lamp2", "1=false")
            gateway.ctl("fault", "gw_get_channel", "-7")
            self.assertNotEqual(gateway.run_app("channel", "get").returncode, 0)
            gateway.ctl("fault", "gw_get_channel", "off")
            # A head that is cut is dropped with its frame; many requests at once have such heads.
            devices = request(8, FRM_DEV_LIST)
            onlooker.send(b"noise" + devices + devices[:10])
            onlooker.wait_for(FRM_DEV_LIST)
            onlooker.send(devices[10:] + request(1, FRM_KEEPALIVE, bytes(40)))
            onlooker.send(devices * 100 + request(2, 252, bytes(16)))
            onlooker.wait_for(252)
            self.assertEqual(gateway.run_app("deactivate", "--yes").returncode, 0)
            onlooker.close()
        with open(self.session, encoding="utf-8") as file:
            self.assertNotIn(KEY, file.read(), "expected no secret in the record")
        for seed in "123":
            code, text = replay("--all", "--seed", seed, self.session)
            self.assertEqual(code, 0, text)
        self.let_the_installation_take_longer()
        code, text = replay("--all", self.session)
        self.assertEqual(code, 0, text)

    def read_session(self):
        """Its first line and its events."""
        with open(self.session, encoding="utf-8") as file:
            begin, *events = map(json.loads, file)
        return begin, events

    def write_session(self, begin, events):
        with open(self.session, "w", encoding="utf-8") as file:
            file.writelines(json.dumps(event) + "\n" for event in (begin, *events))

    def answer_the_operator_later(self):
        """As on a slow machine: by 20 ms."""
        begin, events = self.read_session()
        place = next(place for place, event in enumerate(events) if event["event"] == "control")
        for event in events[place:]:
            event["at"] += 20_000
        self.write_session(begin, events)

    def let_the_installation_take_longer(self):
        """As on a slow machine: by 200 ms, in which the app asks once more."""
        begin, events = self.read_session()
        end = next(place for place, event in enumerate(events) if event.get("name") == "ug_notify_cb")
        asked, answer = [event for event in events[:end] if event.get("type") == 250][-2:]
        self.assertIn('"updateStatus":1', answer["text"])
        ended_us = events[end]["at"]
        for event in events[end:]:
            for time in event.keys() & {"at", "began"}:
                event[time] += 200_000
        events[end:end] = [{**event, "at": ended_us + 100_000, "number": 99} for event in (asked, answer)]
        self.write_session(begin, events)

    def test_a_fault_of_an_agent_is_found_and_reduced(self):
        # In the faulty agent an app is lost when one that connected before it leaves.
        with self.record() as gateway:
            first, second, third = apps = App(gateway), App(gateway), App(gateway)
            for value in range(12):
                for app in apps:
                    app.ask(FRM_TP_CMD, json.dumps({"cid": "lamp1", "dps": {"2": 10 * value + apps.index(app)}}))
                    app.ask(FRM_LOCAL_DP_QUERY, '{"cid":"lamp1"}')
            gateway.ctl("report", "lamp2", "1=false")
            second.close()
            for value in range(500, 512):
                first.ask(FRM_TP_CMD, json.dumps({"cid": "lamp1", "dps": {"2": value}}))
                third.ask(FRM_LOCAL_DP_QUERY, '{"cid":"lamp1"}')
            for app in apps:
                app.close()
        code, text = replay(self.session, name="engr_replay_faulty")
        self.assertEqual(code, 1, text)
        self.assertRegex(text, r"before it\n(?: +[0-9:.]+  .*\n)* +[0-9:.]+  client",
                         "expected the report to tell what was before")
        code, text = replay("--json", self.session, name="engr_replay_faulty")
        self.assertIn("missing", [each["kind"] for each in json.loads(text)["differences"]])
        self.assertLess(len(self.shrunk(name="engr_replay_faulty")), 20, "expected a fifth of the events at most")
        self.assertEqual(replay(self.session + ".shrunk", name="engr_replay_faulty")[0], 1)
        left = self.shrunk("--compare-with", program("engr_replay"), name="engr_replay_faulty")
        self.assertIn(("closed", 2), left)
        self.assertLessEqual(len(left), 7, "expected a handful of events")
        self.assertEqual(replay(self.session + ".shrunk", name="engr_replay_faulty")[0], 1)
        code, text = replay(self.session + ".shrunk")
        self.assertEqual(code, 0, "expected the sound agent to pass the session that was reduced with it" + text)
        code, text = replay("--compare-with", program("engr_replay_faulty"), self.session)
        self.assertEqual(code, 1, text)
        self.assertRegex(text, r"TIME +CLIENT +WHAT +OTHER BUILD +THIS BUILD")

    def test_a_crash_is_a_difference(self):
        with self.record() as gateway:
            app = App(gateway)
            app.ask(FRM_DEV_LIST)
            gateway.ctl("call", "lpc_close_all_socket")
            app.close()
        self.answer_the_operator_later()
        self.assertEqual(replay(self.session)[0], 0)
        code, text = replay(self.session, name="engr_replay_faulty")
        self.assertEqual(code, 1, text)
        self.assertRegex(text, r"(?s)engr_gatewayctl call lpc_close_all_socket\n.*ended by signal")
        self.assertEqual(self.shrunk(name="engr_replay_faulty"), [("control", ["call", "lpc_close_all_socket"])])

    def test_what_can_not_be_played_is_said(self):
        for content, message in (("", "no whole line"), ("{}\n", "no session file"), ('{"session"\n', "JSON")):
            with open(self.session, "w", encoding="utf-8") as file:
                file.write(content)
            code, text = replay(self.session)
            self.assertEqual(code, 2, text)
            self.assertIn(message, text)
        self.assertEqual(replay(self.session + ".not_there")[0], 2)


if __name__ == "__main__":
    unittest.main()
