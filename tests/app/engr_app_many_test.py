"""engr_app with several gateways at once, its site reports, and the provisioning of a gateway."""
import json
import os
import pty
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import unittest

from fake_gateway import (APP, KEYS, LOCAL_KEY, Gateway, announced, answering, broadcast, encrypt, frame, outcome,
                          requests, run)
from lan_codec import (FRM_DEV_LINE_STAT, FRM_DEV_LIST, FRM_DP_REPORT, FRM_GET_CHANNEL, FRM_KEEPALIVE,
                       FRM_LOCAL_DP_QUERY, FRM_READ_APP_CFG, FRM_TP_CMD, FRM_UDP_DISCOVERY, request)


def site(products, online, channel=15, config=(1, b"read config error"), dps=b"{}", key=KEYS[3]):
    lists = {FRM_DEV_LIST: json.dumps({"products": [{"cid": one, "pid": "p|1"} for one in products]}),
             FRM_DEV_LINE_STAT: json.dumps({"online": online,
                                            "offline": [one for one in products if one not in online]}),
             FRM_GET_CHANNEL: json.dumps({"channel": channel})}
    return answering({**{kind: (0, text.encode()) for kind, text in lists.items()}, 247: config,
                      FRM_LOCAL_DP_QUERY: (0, b'{"cid":"x","dps":' + dps + b"}")}, key)


FIRST, SECOND = site(["a1", "b2"], ["b2"]), site(["c3"], [])


class Recorded:
    """A connection that notes the types of the frames it carries to an app."""

    def __init__(self, connection, kinds):
        self.connection, self.kinds, self.recv = connection, kinds, connection.recv

    def sendall(self, data):
        self.kinds.append(struct.unpack(">I", data[8:12])[0])
        self.connection.sendall(data)


class ManyGatewaysTest(unittest.TestCase):
    def test_results_become_one_and_a_failure_does_not_stop_the_others(self):
        first, second, closed = Gateway(FIRST, "127.60.1.1").name, Gateway(SECOND, "127.60.1.2").name, "127.60.1.3:9"
        good = ["--gateway", first, "--gateway", second, "--gateway", first]
        for arguments, code, lines in [
                (["devices"], 0, ["GATEWAY\tCID\tPID\tSTATE", f"{first}\ta1\tp|1\toffline",
                                  f"{first}\tb2\tp|1\tonline", f"{second}\tc3\tp|1\toffline"]),
                (["info"], 0, ["GATEWAY\tFACT\tVALUE", f"{second}\tkey\tright", f"{second}\tdevices\t1"]),
                (["channel", "get"], 0, [f"gateway {first} is on channel 15"]),
                (["raw", "253"], 0, [f"{second}: ret 0, 15 bytes", f"{second}:", '{"channel": 15}']),
                (["devices", "--gateway", closed], 7, [f"{second}\tc3\tp|1\toffline"]),
                (["raw", "nonsense"], 2, [])]:
            got, out, err = run(*arguments, *good)
            self.assertEqual(got, code, f"{arguments}: {err}")
            for line in lines:
                self.assertIn(line, out.splitlines(), arguments)
            self.assertEqual(out.count("GATEWAY\t"), 1 if lines and "\t" in lines[0] else 0, "one table")
        self.assertIn(f"{second}: ", err)
        self.assertIn("2 of 2 gateways failed", err)
        code, out, _ = run("devices", *good, "--gateway", closed, "--json")
        self.assertEqual(code, 7)
        told = json.loads(out)
        self.assertEqual([(one["gateway"], one["exit"]) for one in told], [(first, 0), (second, 0), (closed, 5)])
        self.assertEqual(told[1]["result"], [{"cid": "c3", "pid": "p|1", "online": False}])
        self.assertEqual(told[2]["error"]["kind"], "refused")

    def test_verbs_that_concern_no_gateway_refuse_several(self):
        for verb in [["discover"], ["site", "diff", "a", "b"], ["provision", "--ssid", "n"]]:
            for choice in [["--all"], ["--gateway", "127.60.9.1", "--gateway", "127.60.9.2"]]:
                code, out, err = run(*verb, *choice)
                self.assertEqual((code, out), (2, ""), verb)
                self.assertIn("concerns no single gateway", err)
        code, _, err = run("devices", "--all", "--gateway", "127.60.9.1")
        self.assertEqual(code, 2)
        self.assertIn("--gateway and --all exclude each other", err)

    def test_an_interrupt_reaches_all_and_streams_end_with_the_outcomes(self):
        watching = threading.Semaphore(0)

        def serve(connection):
            for number, kind, _ in requests(connection):
                text = encrypt(KEYS[3], b'{"products":[]}')
                connection.sendall(frame(0 if kind == FRM_KEEPALIVE else number, kind, 0,
                                         b"" if kind == FRM_KEEPALIVE else text))
                if kind == FRM_DEV_LIST:
                    connection.sendall(frame(0, FRM_DP_REPORT, 0, encrypt(KEYS[3], b'{"cid":"a1","dps":{"1":true}}')))
        names = [Gateway(serve, address).name for address in ("127.60.2.1", "127.60.2.2")]
        with subprocess.Popen([APP, "watch", "--json", "--gateway", names[0], "--gateway", names[1]],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as running:
            reports = [json.loads(running.stdout.readline()) for _ in names]
            running.send_signal(signal.SIGINT)
            ends = [json.loads(line) for line in running.stdout]
        self.assertEqual((running.returncode, {one["gateway"] for one in reports}), (130, set(names)))
        self.assertEqual(ends, [{"gateway": name, "exit": 130} for name in names])

    def test_all_gateways_found_are_used_each_with_its_key(self):
        gateways = {"gw1": ("127.60.3.1", 2), "gw2": ("127.60.3.2", 2), "gw3": ("127.60.3.3", 0)}
        keys = {"gw1": LOCAL_KEY, "gw2": "local key # gw 2"}
        for name, (address, _) in gateways.items():
            key = keys[name].encode() if name in keys else KEYS[3]
            Gateway(site([f"of-{name}"], [], key=key), address, 6668)
        rows = [f"{name}\tof-{name}\tp|1\toffline" for name in gateways]
        with tempfile.TemporaryDirectory() as directory, announced(**gateways):
            file = os.path.join(directory, "keys")

            def with_keys(text, *choice):
                with open(file, "w", encoding="utf-8") as written:
                    written.write(text)
                os.chmod(file, 0o600)
                return run("devices", "--listen", "3", "--key-file", file, *choice)
            lines = "# keys\n" + "".join(f"{name}  {key}\r\n" for name, key in keys.items())
            for text, choice, wanted in [
                    (lines, ["--all"], rows), (json.dumps(keys), ["--all"], rows),
                    (lines, ["--gateway", "127.60.3.2", "--gateway", "gw1", "--gateway", "127.60.3.1"],
                     [rows[1], rows[0]]),
                    (f"127.60.3.1 {LOCAL_KEY}\n", ["--gateway", "gw1", "--gateway", "gw3"], [rows[0], rows[2]])]:
                code, out, err = with_keys(text, *choice)
                self.assertEqual((code, out.splitlines()[1:]), (0, wanted), err)
                self.assertEqual("3 gateways found" in err, "--all" in choice)
                self.assertNotIn("read by others", err)
            self.assertEqual(with_keys(lines, "--gateway", "127.60.3.2")[1].splitlines()[1:], ["of-gw2\tp|1\toffline"])
            for more, wanted in [([], rows[:1]), (["--accept-deactivated"], [rows[0], rows[2]])]:
                code, out, err = run("devices", "--listen", "3", "--all", "--local-key", LOCAL_KEY, *more)
                self.assertEqual((code, out.splitlines()[1:]), (7, wanted))
                self.assertIn("gw2: ", err)
                self.assertEqual("gateway gw3 " in err, not more, "a key given is the only one used")
            for text, word in [("gw1 short", "line 1"), ("gw1 a\ngw2 b", "line 1"), ('{"gw1": 5}', "gw1: is number"),
                               ('{"gw1": 5, "gw1": 5}', '"gw1" is given twice'), (lines + lines, "line 5"),
                               ("{", "line 1, column 2"), ("", "no key")]:
                code, _, err = with_keys(text, "--all")
                self.assertEqual(code, 2, text)
                self.assertIn(word, err)
                self.assertNotIn("short", err, "a key must not be shown")
            code, _, err = with_keys(lines, "--gateway", "gw1", "--gateway", "gw-nowhere")
            self.assertEqual(code, 7)
            self.assertIn("gateway gw-nowhere was not heard", err)

    def test_false_announcements_do_not_keep_anybody_from_working_with_all(self):
        Gateway(FIRST, "127.60.4.1", 6668)
        false = {f"false{number}": (f"127.60.5.{number % 250}", 0) for number in range(300)}
        also = {f"also{number}": ("127.60.4.1", 0) for number in range(20)}
        with announced(a_first=("127.60.4.1", 0), **false, **also):
            code, out, err = run("devices", "--all", "--listen", "5")
        self.assertEqual(code, 7, "nobody answers at the false addresses")
        rows = [line.split("\t") for line in out.splitlines()[1:]]
        self.assertEqual([row[1:] for row in rows], [["a1", "p|1", "offline"], ["b2", "p|1", "online"]], err)
        self.assertIn(rows[0][0], ["a_first", *also], "the id that was announced first from the address counts")
        self.assertIn("251 gateways found", err)

    def test_each_gateway_has_a_bar_of_its_own_on_a_terminal(self):
        names = [Gateway(FIRST, address).name for address in ("127.60.4.1", "127.60.4.2")]
        master, slave = pty.openpty()
        with subprocess.Popen([APP, "site", "report", "--data-points", "--listen", "0.01", "--gateway", names[0],
                               "--gateway", names[1]], stdout=subprocess.DEVNULL, stderr=slave) as running:
            os.close(slave)
            shown = b""
            try:
                while chunk := os.read(master, 65536):
                    shown += chunk
            except OSError:
                pass  # the end of a terminal
        os.close(master)
        self.assertEqual(running.returncode, 0)
        for name in names:
            self.assertRegex(shown.decode(), rf"(?s){name}: data points  \[#+\]  100 %  2 devices  in \d+ s\r\n")
        self.assertTrue(shown.endswith(b"\n"))


class SiteTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def path(self, name):
        return os.path.join(self.directory, name)

    def report(self, serve, name):
        path = self.path(name)
        code, out, err = run("site", "report", "--gateway", Gateway(serve, "127.60.5.1").name, "--listen", "0.01",
                             "--data-points", "--json-file", path, "--markdown", path + ".md")
        self.assertEqual(code, 0, err)
        self.assertIn(path, out)
        with open(path, encoding="utf-8") as file, open(path + ".md", encoding="utf-8") as text:
            return json.load(file), text.read()

    def test_a_report_holds_what_was_commissioned_and_a_diff_says_what_changed(self):
        before, text = self.report(site(["a1", "b2"], ["b2"], dps=b'{"1":true,"2":5}'), "before")
        self.assertEqual((before["channel"], before["app_config"]), (15, None))
        self.assertEqual(before["devices"][1], {"cid": "b2", "pid": "p|1", "online": True, "dps": {"1": True, "2": 5}})
        for line in ["| Channel | 15 |", "| app.config | none |", "| Gateway | not known |",
                     "| b2 | p\\|1 | online | 1 = true, 2 = 5 |",
                     "| Devices | 2: 1 online, 1 offline, 0 in neither list |"]:
            self.assertIn(line, text.splitlines())
        after, _ = self.report(site(["c3", "b2"], [], 20, (0, b"{}"), b'{"1":false,"3":"x"}'), "after")
        self.assertEqual(after["app_config"]["bytes"], 2)
        code, out, _ = run("site", "diff", self.path("before"), self.path("after"))
        rows = [line.split("\t") for line in out.splitlines()]
        self.assertEqual(rows.pop(0), ["GATEWAY", "ITEM", "CID", "WHAT"])
        self.assertEqual((code, [row[3] for row in rows if row[1] != "address"]), (1, [
            "channel: 15 before, 20 now", "there is an app.config now, 2 bytes", "device a1 was removed",
            "device b2 is offline now", "device b2, data point 1: true before, false now",
            "device b2, data point 2: 5 before, none now", 'device b2, data point 3: none before, "x" now',
            "device c3 was added, product p|1"]))
        out = run("site", "diff", self.path("before"), self.path("after"), "--filter", "item=online", "--csv")[1]
        self.assertEqual([line.split(",", 1)[1] for line in out.splitlines()],
                         ["ITEM,CID,WHAT", "online,b2,device b2 is offline now"])
        told = json.loads(run("site", "diff", self.path("before"), self.path("after"), "--json")[1])
        self.assertIn({"item": "online", "cid": "b2", "before": True, "after": False},
                      [{key: one[key] for key in ("item", "cid", "before", "after")} for one in told])

    def test_reports_of_several_gateways_are_compared_by_gateway(self):
        names = [Gateway(serve, address).name for serve, address in ((FIRST, "127.60.6.1"), (SECOND, "127.60.6.2"))]
        several = [word for name in names for word in ("--gateway", name)]
        both = run("site", "report", "--json", "--listen", "0.01", *several)[1]
        one = run("site", "report", "--json", "--listen", "0.01", several[0], several[1])[1]
        for name, content in (("both", both), ("one", one), ("bad", "{}"), ("worse", "[{}]")):
            with open(self.path(name), "w", encoding="utf-8") as file:
                file.write(content)
        lost = f"GATEWAY\tITEM\tCID\tWHAT\n{names[1]}\tgateway\t-\tit is only in the earlier report\n"
        for before, after, wanted in [("both", "both", (0, "no difference\n")), ("both", "one", (1, lost)),
                                      ("one", "bad", (2, "")), ("worse", "one", (2, "")), ("one", "none", (2, ""))]:
            code, out, err = run("site", "diff", self.path(before), self.path(after))
            self.assertEqual((code, out), wanted, err)
        code, _, err = run("site", "report", "--markdown", self.path("s.md"), "--listen", "0.01", *several)
        self.assertEqual(code, 0, err)
        self.assertEqual(sorted(name for name in os.listdir(self.directory) if name.startswith("s")),
                         sorted(f"s-{name.replace(':', '_')}.md" for name in names))

    def test_data_points_cost_a_request_a_device_only_when_asked_for(self):
        asked = []

        def serve(connection):
            FIRST(Recorded(connection, asked))
        name = Gateway(serve, "127.60.8.1").name
        # The command asks whether an upgrade runs.
        asks = {FRM_TP_CMD: 1, FRM_DEV_LIST: 1, FRM_DEV_LINE_STAT: 1, FRM_GET_CHANNEL: 1, FRM_READ_APP_CFG: 1}
        for more, wanted in [([], asks), (["--data-points"], {**asks, FRM_LOCAL_DP_QUERY: 2})]:
            asked.clear()
            self.assertEqual(run("site", "report", "--gateway", name, "--listen", "0.01", *more)[0], 0)
            self.assertEqual({kind: asked.count(kind) for kind in asked}, wanted, more)


class ProvisionTest(unittest.TestCase):
    ADDRESS, ID = "127.60.7.1", f"gw{os.getpid()}p"

    def provision(self, react, *more, listen="0.1", environment=None):
        """Runs it against a gateway in access-point mode that reacts to each datagram it gets."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as listener:
            listener.bind((self.ADDRESS, 6669))
            got = []

            def serve():
                while datagram := listener.recv(4096):
                    got.append(datagram)
                    react(len(got))
            thread = threading.Thread(target=serve)
            thread.start()
            try:
                status, out, err = run("provision", "--ssid", "home", "--token", "t0ken", "--address", self.ADDRESS,
                                       "--listen", listen, "--yes", "--force", *more, environment=environment)
                return outcome(status), out, err, got
            finally:
                listener.sendto(b"", (self.ADDRESS, 6669))
                thread.join()

    def appear(self, active=0, ready=True):
        text = {"ip": self.ADDRESS, "gwId": self.ID, "active": active, "ablilty": 1, "productKey": "pk",
                "version": "3.3"}
        text = json.dumps(text if ready else {**text, "wf_cfg": True})
        broadcast(self.ADDRESS, 6667, frame(0, FRM_UDP_DISCOVERY, 0, encrypt(KEYS[2], text.encode())))

    def fail(self, text, key=KEYS[1]):
        broadcast(self.ADDRESS, 6670, frame(0, 20, 0, encrypt(key, text)))

    def test_the_outcome_is_told_in_words(self):
        text = b'{"ssid":"home","token":"t0ken","passwd":"sesame"}'
        def again(count):
            self.appear(ready=count > 1)  # what still needs its network has not joined one
        for arguments, react, code, word, wanted in [
                (["--password", "sesame"], lambda count: self.appear(), 0, f"gateway {self.ID} appeared at",
                 request(1, 20, encrypt(KEYS[1], text))),
                (["--password", "sesame", "--plain"], again, 0, "appeared", request(1, 1, text)),
                (["--open", "--plain"], lambda count: self.fail(b'{"result":3,"desc":"no such network"}'), 1,
                 "could not join network home: no such network (result 3)",
                 request(1, 1, b'{"ssid":"home","token":"t0ken"}')),
                (["--open"], lambda count: self.fail(b'{"result":3,"desc":"cut'), 1, '"desc":"cut', None),
                (["--open", "--wait", "3"], lambda count: self.fail(b"{}", KEYS[2]), 1, "key seeds", None),
                (["--open", "--wait", "0.3"], lambda count: None, 1, "no announcement was received", None)]:
            got, out, err, datagrams = self.provision(react, *arguments, "--gateway", self.ID)
            self.assertEqual(got, code, err)
            self.assertIn(word, out if code == 0 else err)
            if wanted:
                self.assertEqual(datagrams[0], wanted, arguments)

    def test_a_gateway_that_was_there_before_is_not_taken_for_the_new_one(self):
        with announced(**{self.ID: (self.ADDRESS, 0)}):
            code, _, err, _ = self.provision(lambda count: None, "--open", "--wait", "0.5", "--gateway", self.ID,
                                             listen="3")
        self.assertEqual(code, 1)
        self.assertIn("no announcement was received", err)

    def test_only_a_gateway_that_needed_a_network_is_taken_for_the_right_one_when_none_is_named(self):
        for announced_first, code, word in [(True, 0, "appeared at"), (False, 1, "it may be another one")]:
            def react(count, announced_first=announced_first):
                if announced_first and count == 1:
                    self.appear(ready=False)
                self.appear()
            got, out, err, _ = self.provision(react, "--open", "--wait", "5")
            self.assertEqual(got, code, err)
            self.assertIn(word, out + err)

    def test_secrets_are_not_shown_and_what_can_not_be_right_is_not_sent(self):
        code, _, err, got = self.provision(lambda count: self.appear(), "-v", "--gateway", self.ID,
                                           environment={"ENGR_WIFI_PASSWORD": "sesame"})
        self.assertEqual(code, 0, err)
        self.assertIn("FRM_UDP_WIFI_ERR (20)", err)
        self.assertNotIn("sesame", err)
        self.assertNotIn("t0ken", err)
        self.assertEqual(got[0], request(1, 20, encrypt(
            KEYS[1], b'{"ssid":"home","token":"t0ken","passwd":"sesame"}')))
        overhead = len('{"ssid":"home","token":"t0ken","passwd":""}')
        for arguments, longest in [(["--plain"], 232 - overhead), ([], 223 - overhead)]:
            for length, wanted in [(longest, 0), (longest + 1, 2)]:
                code, _, err, got = self.provision(lambda count: self.appear(), "--gateway", self.ID, "--password",
                                                   "x" * length, *arguments)
                self.assertEqual((code, len(got) > 0), (wanted, wanted == 0), err)
        self.assertIn("too long together", err)
        for arguments in [["--address", "nowhere"], ["--gateway", "127.0.0.1"], ["--ssid", "x" * 33]]:
            self.assertEqual(run("provision", "--ssid", "n", "--open", "--token", "t", *arguments)[0], 2, arguments)


if __name__ == "__main__":
    unittest.main()
