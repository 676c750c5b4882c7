"""The console of engr_gatewayd: who may talk to it, what it shows, what it does, and what a browser can't do to it."""

import http.client
import json
import re
import signal
import socket
import subprocess
import unittest
import urllib.parse

import lan_codec
from gateway import PATIENCE_S, Gateway, own_address, program
from live_socket import PONG, LiveSocket

KEY = "0123456789abcdef"
SITE = {"gateway": {"gw_id": "gw1", "local_key": KEY, "active_stat": 2},
        "devices": [{"dev_id": each, "online": True, "dps": {"1": False}} for each in ("a", "b")],
        "products": {"p": {"1": {"kind": "bool"}}}}


class ConsoleGateway(Gateway):
    """A gateway with a console on a free port of its address."""

    def __init__(self, *options, **arguments):
        super().__init__("--console", "0", *options, site=SITE, **arguments)

    @property
    def page(self):
        """The whole address of the page."""
        return re.search(r"console (\S+)$", self.ready_line)[1]

    @property
    def netloc(self):
        return urllib.parse.urlsplit(self.page).netloc

    @property
    def token(self):
        return self.page.partition("token=")[2]

    def get(self, path, method="GET", **fields):
        """(status, header fields, text) of an answer."""
        connection = http.client.HTTPConnection(self.netloc, timeout=PATIENCE_S)
        connection.request(method, path, headers={name.replace("_", "-"): text for name, text in fields.items()})
        answer = connection.getresponse()
        text = answer.read().decode()
        connection.close()
        return answer.status, answer.headers, text

    def raw(self, request):
        """What comes back for bytes, until the console closes the connection."""
        with socket.create_connection(self.netloc.split(":"), timeout=PATIENCE_S) as connection:
            connection.sendall(request)
            return b"".join(iter(lambda: connection.recv(65536), b"")).decode()


class AccessTest(unittest.TestCase):
    def test_only_a_browser_with_the_token_that_means_this_page_is_answered(self):
        with ConsoleGateway() as gateway:
            port = gateway.netloc.split(":")[1]
            with_token = f"/?token={gateway.token}"
            cookie = f"engr_console_{port}={gateway.token}"
            cases = [
                (with_token, {}, 200),
                ("/", {"Cookie": cookie}, 200),
                ("/page.css", {"Cookie": "other=1; " + cookie}, 200),
                ("/", {}, 403),
                ("/page.js", {}, 403),
                ("/nothing", {}, 403),
                ("/?token=" + "0" * 32, {}, 403),
                (with_token[:-1], {}, 403),
                (f"/?xtoken={gateway.token}", {}, 403),
                ("/", {"Cookie": f"engr_console_1={gateway.token}"}, 403),
                (with_token, {"Host": "localhost:" + port}, 200),
                (with_token, {"Host": "[::1]:" + port}, 200),
                (with_token, {"Host": "gateway.example:" + port}, 403),
                (with_token, {"Host": ""}, 403),
                (with_token, {"Host": "127.0.0.1:80; script-src *"}, 403),
                (with_token, {"Origin": f"http://{gateway.netloc}"}, 200),
                (with_token, {"Origin": "http://page.example"}, 403),
                (with_token, {"Origin": "null"}, 403),
                ("/nothing?token=" + gateway.token, {}, 404),
                ("/live?token=" + gateway.token, {}, 426),
            ]
            for path, fields, expected in cases:
                with self.subTest(path=path, fields=fields):
                    self.assertEqual(gateway.get(path, **fields)[0], expected)
            self.assertEqual(gateway.get(with_token, method="POST")[0], 405)
            with self.assertRaisesRegex(ConnectionError, " 403 "):
                LiveSocket(gateway.page, origin="http://page.example")
            with self.assertRaisesRegex(ConnectionError, " 403 "):
                LiveSocket(gateway.page[:-1])
            with LiveSocket(gateway.page, origin=f"http://{gateway.netloc}") as live:
                self.assertEqual(live.wait("hello")["gateway"], "gw1")

    def test_the_page_may_load_nothing_from_elsewhere(self):
        with ConsoleGateway() as gateway:
            _, fields, page = gateway.get(f"/?token={gateway.token}")
            self.assertIn("default-src 'self'", fields["Content-Security-Policy"])
            self.assertNotIn("unsafe", fields["Content-Security-Policy"])
            self.assertEqual(fields["Referrer-Policy"], "no-referrer")
            cookie = fields["Set-Cookie"]
            self.assertIn("HttpOnly; SameSite=Strict", cookie)
            for name in re.findall(r'(?:href|src)="([^"#]+)"', page):
                with self.subTest(name=name):
                    self.assertEqual(gateway.get("/" + name.lstrip("/"), Cookie=cookie.split(";")[0])[0], 200)

    def test_a_taken_port_ends_the_start_and_without_the_option_there_is_none(self):
        with Gateway() as gateway, socket.socket() as other:
            self.assertNotIn("console", gateway.ready_line)
            with self.assertRaises(ConnectionRefusedError):
                socket.create_connection((gateway.address, 6680))
            other.bind((own_address(), 0))
            other.listen()
            place = "{}:{}".format(*other.getsockname())
            ended = Gateway("--console", place, ready=False)
            self.assertEqual((ended.read_line(), ended.wait()), ("", 1))
            self.assertIn(f"the console cannot have {place}: Address already in use; choose another with --console",
                          ended.stderr())
            ended.close()
        done = subprocess.run([program("engr_gatewayd"), "--console", "here"], capture_output=True, text=True,
                              timeout=PATIENCE_S, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn("'here' is not ADDRESS:PORT, ADDRESS or PORT", done.stderr)


class BoundsTest(unittest.TestCase):
    def test_what_is_too_long_or_no_request_is_refused(self):
        with ConsoleGateway() as gateway:
            head = f"GET /?token={gateway.token} HTTP/1.1\r\nHost: {gateway.netloc}\r\n"
            cases = [(head + "X: " + "x" * 9000 + "\r\n\r\n", 431), ("hello\r\n\r\n", 400),
                     (head + "Content-Length: 5\r\n\r\nhello", 413)]
            for request, expected in cases:
                with self.subTest(expected=expected):
                    self.assertRegex(gateway.raw(request.encode()), f"^HTTP/1.1 {expected} ")

    def test_connections_are_bounded(self):
        with ConsoleGateway() as gateway:
            pages = [LiveSocket(gateway.page) for _ in range(8)]
            for each in pages:
                each.wait("hello")
            with self.assertRaisesRegex(ConnectionError, " 503 "):
                LiveSocket(gateway.page)
            idle = [socket.create_connection(gateway.netloc.split(":")) for _ in range(8)]
            self.assertEqual(gateway.raw(b""), "", "the seventeenth connection is closed")
            for each in idle:
                each.close()
            self.assertTrue(pages[0].ask("status")["ok"])
            for each in pages:
                each.socket.close()
            while True:  # until the console has noticed
                try:
                    LiveSocket(gateway.page).socket.close()
                    break
                except ConnectionError:
                    continue

    def test_a_browser_that_breaks_the_rules_is_disconnected(self):
        broken = ["x", "[]", '{"id": 1}', '{"id": "1", "line": ["status"]}', '{"id": -1, "line": ["status"]}',
                  '{"id": 1, "line": []}', '{"id": 1, "line": [1]}', '{"id": 1, "line": ["' + "x" * 70_000 + '"]}',
                  b"\xff"]
        with ConsoleGateway() as gateway:
            for message in broken:
                with self.subTest(message=message[:40]), LiveSocket(gateway.page) as live:
                    live.send(message)
                    with self.assertRaises(ConnectionError):
                        live.wait("answer")
            with LiveSocket(gateway.page) as live:
                self.assertTrue(live.ask("status")["ok"], "the others are served")

    def test_ctrl_c_ends_the_gateway_though_browsers_are_there_and_do_not_read(self):
        with ConsoleGateway() as gateway, LiveSocket(gateway.page) as live, \
                socket.create_connection(gateway.netloc.split(":")):
            live.wait("hello")
            self.assertEqual(gateway.stop(signal.SIGINT), 0)


class LinesTest(unittest.TestCase):
    LINES = [
        ["status"], ["devices"], ["devices", "--json"], ["set", "product_key", "abc"], ["set", "nothing", "1"],
        ["device", "b", "online", "1"], ["report", "a", "1=true"], ["report", "a"], ["join", "z"],
        ["network", "down"], ["network", "up"], ["ip", "auto"], ["wifi-config-needed", "1"], ["wifi-mode", "2"],
        ["airkiss", "4", "1"], ["fault", "gw_set_channel", "-5"], ["fault", "nothing", "1"],
        ["callback", "scene_exec", "absent"], ["register", "200", "0"], ["upgrade", "start"],
        ["call", "engr_lan_pro_cntl_get_valid_connect_cnt"], ["call", "nothing"], ["nothing"],
    ]

    def test_every_verb_does_and_says_what_it_does_from_engr_gatewayctl(self):
        with ConsoleGateway() as gateway, LiveSocket(gateway.page) as live:
            verbs = [verb["name"] for verb in live.wait("hello")["verbs"]]
            self.assertEqual(set(verbs) - {line[0] for line in self.LINES}, set(), "each verb has a line here")
            for line in self.LINES:
                with self.subTest(line=line):
                    answer = live.ask(*line)
                    done = gateway.run_ctl(*line)
                    self.assertEqual(answer["ok"], done.returncode == 0)
                    self.assertEqual(answer.get("usage", False), done.returncode == 2)
                    if answer["ok"]:
                        self.assertEqual(answer["text"] + "\n", done.stdout)
                        self.assertEqual(answer["json"], json.loads(done.stdout))
                    else:
                        self.assertIsNone(answer["json"])
                        self.assertIn(answer["text"].removeprefix(line[0] + ": "), done.stderr)

    def test_answers_keep_their_order_and_those_beyond_sixteen_are_refused(self):
        with ConsoleGateway() as gateway, LiveSocket(gateway.page) as live:
            live.wait("state")
            lines = [json.dumps({"id": number, "line": ["status"]}) for number in range(16)]
            for line in lines:
                live.send(line)
            self.assertEqual([live.wait("answer")["id"] for _ in lines], list(range(16)))


class StateTest(unittest.TestCase):
    def test_the_state_follows_what_operators_and_apps_change(self):
        with ConsoleGateway() as gateway, LiveSocket(gateway.page) as live:
            hello = live.wait("hello")
            self.assertIn({"name": "gw_set_channel", "returns": "number"}, hello["services"])
            self.assertIn({"name": "scene_exec", "returns": "number"}, hello["callbacks"])
            self.assertIn("local_key", hello["fields"]["gateway"])
            self.assertEqual(hello["products"], SITE["products"])
            state = live.wait("state")
            self.assertEqual(state["devices"], gateway.ctl("devices"))
            self.assertNotIn(KEY, json.dumps(state))
            live.ask("fault", "gw_set_channel", "-5")
            live.wait("state", lambda now: now["status"]["faults"] == {"gw_set_channel": {"result": -5, "count": 0}})
            for command in (["group", "add", "g1", "a", "b"], ["scene", "save", "g1", "s1", "-"]):
                done = gateway.run_app("--local-key", KEY, *command, text='[{"cid": "a", "dps": {"1": true}}]')
                self.assertEqual(done.returncode, 0, done.stderr)
            state = live.wait("state", lambda now: now["scenes"])
            self.assertEqual(state["groups"], [{"gid": "g1", "cids": ["a", "b"]}])
            self.assertEqual(state["scenes"],
                             [{"gid": "g1", "sid": "s1", "actions": [{"cid": "a", "dps": {"1": True}}]}])


def is_end(event):
    return event["event"] == "closed"


class EventsTest(unittest.TestCase):
    def test_events_tell_what_an_app_and_an_operator_did_without_secrets(self):
        with ConsoleGateway() as gateway, LiveSocket(gateway.page) as live:
            live.wait("state")
            gateway.ctl("set", "local_key", KEY)
            for command in (["dp", "set", "a", "1=true"], ["wifi", "home", "--yes", "--password-file", "-"]):
                done = gateway.run_app("--local-key", KEY, *command, text="secret-password")
                self.assertEqual(done.returncode, 0, done.stderr)
            gateway.ctl("network", "down")
            events = live.events(lambda event: event.get("line") == ["network", "down"])

            self.assertEqual([event["id"] for event in events], list(range(events[0]["id"], events[-1]["id"] + 1)))
            self.assertEqual(sorted(event["at"] for event in events), [event["at"] for event in events])
            for secret in (KEY, "secret-password"):
                self.assertNotIn(secret, json.dumps(events))
                self.assertNotIn(secret.encode().hex(), json.dumps(events))

            frames = [event for event in events if event["event"] == "frame"]
            asked, answered = [next(event for event in frames if event["type"] == lan_codec.FRM_TP_CMD
                                    and event["from"] == side) for side in ("app", "gateway")]
            self.assertEqual(json.loads(asked["text"]), {"cid": "a", "dps": {"1": True}})
            self.assertEqual((asked["number"], answered["ret"]), (answered["number"], 0))
            for event in frames:
                wire = bytes.fromhex(event["hex"])
                encode, head = (lan_codec.request, 16) if event["from"] == "app" else (lan_codec.frame, 20)
                fields = [event["number"], event["type"]] + ([event["ret"]] if "ret" in event else [])
                self.assertEqual(encode(*fields, wire[head:-8]), wire)
            self.assertIn(("call", "engr_sf_send_gw_dev_cmd"), [(each["event"], each.get("name")) for each in events])
            self.assertIn({"result": {"ok": True}}, [each.get("answer") for each in events])
            self.assertTrue([each for each in events if each["event"] == "activity" and "Wi-Fi" in each["text"]])

    def test_a_browser_that_comes_later_gets_the_past_and_the_apps_that_are_connected(self):
        with ConsoleGateway() as gateway, socket.create_connection((gateway.address, 6668)) as app:
            app.sendall(lan_codec.request(1, lan_codec.FRM_KEEPALIVE))
            app.recv(100)
            with LiveSocket(gateway.page) as live:
                events = live.events(lambda event: event.get("from") == "gateway" and event["event"] == "frame")
                came = next(event for event in events if event["event"] == "connected")
                peer = "{}:{}".format(*app.getsockname())
                self.assertEqual((came["client"], came["peer"]), (1, peer))
                states = [each["state"] for each in live.seen if "state" in each and each["state"]["clients"]]
                state = states[0] if states else live.wait("state", lambda now: now["clients"])
                self.assertEqual(state["clients"], [{"client": 1, "peer": peer, "since": came["at"]}])

    def test_a_browser_that_does_not_read_loses_events_and_is_told_how_many(self):
        # As many frames as one read of the gateway takes whole, over and over.
        keepalives = b"".join(lan_codec.request(number, lan_codec.FRM_KEEPALIVE) for number in range(20))
        answers_size = 20 * len(lan_codec.frame(0, lan_codec.FRM_KEEPALIVE, 0))
        with ConsoleGateway() as gateway, LiveSocket(gateway.page, read_buffer=4096) as slow, \
                LiveSocket(gateway.page) as quick:
            slow.wait("state")
            frames = 0
            with socket.create_connection((gateway.address, 6668), timeout=PATIENCE_S) as app:
                for reads in range(1, 601):
                    app.sendall(keepalives)
                    got = 0
                    while got < answers_size:
                        got += len(app.recv(65536))
                    while reads % 60 == 0 and frames < reads * 40:  # so that there are never too many for one who reads
                        frames += sum(event["event"] == "frame" for event in quick.wait("events"))
                        slow.send(b"", PONG)
            quick.events(is_end)
            seen = slow.events(is_end)
            dropped = sum(each["dropped"] for each in slow.seen if "dropped" in each)
            self.assertGreater(dropped, 0)
            self.assertEqual(len(seen) + dropped, seen[-1]["id"], "each event was sent or counted")
            self.assertTrue(slow.ask("status")["ok"], "it goes on with what comes")


if __name__ == "__main__":
    unittest.main()
