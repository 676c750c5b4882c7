"""The installer's verbs of engr_app: what goes out, what comes back in words, and what is refused before."""
import contextlib
import json
import os
import pty
import signal
import struct
import subprocess
import tempfile
import unittest

from fake_gateway import APP, KEYS, Gateway, encrypt, frame, outcome, requests, run
from lan_codec import (FRM_COM_SCENE_EXEC, FRM_DEL_SUB_DEV, FRM_DEV_LINE_STAT, FRM_DEV_LIST, FRM_DOWNLOAD_APP_CFG,
                       FRM_DOWNLOAD_CLOUD_CFG,
                       FRM_DP_QUERY, FRM_DP_REPORT, FRM_GET_CHANNEL, FRM_GET_LOG, FRM_GRP_EXEC, FRM_GRP_OPER,
                       FRM_GW_UNACTIVE, FRM_LOCAL_DP_QUERY, FRM_PERMIT_JOIN, FRM_READ_APP_CFG, FRM_SCENE_CMD,
                       FRM_SCENE_LINKAGE, FRM_SCENE_OPER, FRM_SCENE_PANEL, FRM_SET_CHANNEL, FRM_SUB_DEV_BIND_RPT,
                       FRM_TOKEN_BIND, FRM_TP_CMD, FRM_USER_BIND_REQ_ENGR, FRM_WIFI_MODIFY)

SECRET = "correct horse"
BOUND = '{"products":[{"cid":"a1","pid":"p"}]}'
CHANGED = '{"cid":"a1","dps":{"1":true}}'
MEMBERS = '{"gid":"g","op":"add","cids":["a1","b2"]}'
PRODUCTS = [{"cid": "a1", "pid": "p"}]
ACTIONS = [{"cid": "a1", "dps": {"1": True}}]
SCENES = {"gmtModified": 7, "scenes": [{"sceneId": "s", "actions": ACTIONS}]}
BUTTONS = [{"button": 1, "sid": "s", "gid": "g"}]


def segment(number, count, at, text):
    return frame(number, FRM_GET_LOG, 0, struct.pack(">II", count, at) + text)


# Asked before a secret goes out under the built-in key.
KEY_SHOWN = (FRM_GET_CHANNEL, None, (0, '{"channel":15}'))


def known(data_points="{}", offline=()):
    """What dp set asks first: the device's data points, and who is offline."""
    return [(FRM_LOCAL_DP_QUERY, {"cid": "a1"}, (0, '{"cid":"a1","dps":%s}' % data_points)),
            (FRM_DEV_LINE_STAT, None, (0, json.dumps({"offline": list(offline)})))]


class Script:
    """Expects requests (type, JSON value, text or None) in order and plays what belongs to each: (ret, text) is the
    answer, (type, ret, text) a report, a function (frame number) gives bytes, None hangs up."""

    def __init__(self, *exchanges):
        self.left = list(exchanges)
        self.faults = []

    def serve(self, connection):
        for number, kind, payload in requests(connection):
            wanted, content, *replies = self.left.pop(0) if self.left else (None, None)
            text = content if isinstance(content, str) or content is None else json.dumps(
                content, sort_keys=True, separators=(",", ":"))
            if kind != wanted or payload != (encrypt(KEYS[3], text.encode()) if text else b""):
                self.faults.append(f"request {kind} came where {wanted} {text} was expected")
                return
            for reply in replies:
                if reply is None:
                    return
                if callable(reply):
                    connection.sendall(reply(number))
                    continue
                *report, ret, said = reply
                said = encrypt(KEYS[3], said.encode()) if said else b""
                connection.sendall(frame(0 if report else number, report[0] if report else kind, ret, said))


class VerbsTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def file(self, content, name="file.json"):
        path = os.path.join(self.directory, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content if isinstance(content, str) else json.dumps(content))
        return path

    def check(self, arguments, exchanges, code, *words, environment=None):
        script = Script(*exchanges)
        gateway = Gateway(script.serve).name
        got, out, err = run(*arguments, "--gateway", gateway, environment=environment)
        with self.subTest(arguments=arguments):
            self.assertEqual(script.faults, [], err)
            self.assertEqual(script.left, [], f"these requests did not come: {err}")
            self.assertEqual(outcome(got), code, out + err)
            for word in words:
                self.assertIn(word, out + err)
        return out + err

    def test_each_verb_asks_what_it_says_and_tells_the_outcome(self):
        products, actions = self.file(PRODUCTS), self.file({"actions": ACTIONS}, "actions.json")
        buttons, scenes = self.file(BUTTONS, "buttons.json"), self.file(SCENES, "scenes.json")
        channel, token = '{"channel":15}', {"token": "t0"}
        for arguments, exchanges, code, *words in [
                (["dp", "get", "a1"],
                 [(FRM_LOCAL_DP_QUERY, {"cid": "a1"}, (0, '{"cid":"a1","dps":{"10":"x","2":true}}'))], 0,
                 'DP\tVALUE\n2\ttrue\n10\t"x"\n'),
                (["dp", "get"], [(FRM_LOCAL_DP_QUERY, {}, (1, "devid not found"))], 1,
                 "name a device behind the command"),
                (["dp", "get"], [(FRM_LOCAL_DP_QUERY, {}, (1, "json obj data unvalid"))], 1,
                 "name a device behind the command"),
                (["dp", "set", "a1", "1=true", "2=-5", "3=1x", '4="5"'],
                 [*known('{"1":false,"2":0}'),
                  (FRM_TP_CMD, {"cid": "a1", "dps": {"1": True, "2": -5, "3": "1x", "4": "5"}},
                   (FRM_DP_REPORT, 0, '{"cid":"b","dps":{"1":1}}'), (FRM_DP_REPORT, 0, CHANGED), (0, ""))], 0,
                   "accepted the command; it now reports 1 = true"),
                (["dp", "set", "a1", "--json-dps", '{"1":true}', "--timeout", "2"],
                 [*known(), (FRM_TP_CMD, {"cid": "a1", "dps": {"1": True}})], 1, "did not accept the command",
                 "see engr_app devices"),
                (["dp", "set", "a1", "1=on"], known('{"1":true}'), 2,
                 'data point 1 is true or false (true), but "on" is a text; write 1=true'),
                (["dp", "set", "a1", "1=7"], known('{"1":"6"}'), 2, "write 1='\"7\"'"),
                (["dp", "set", "a1", "1=on", "--force"],
                 [(FRM_TP_CMD, {"cid": "a1", "dps": {"1": "on"}}, (FRM_DP_REPORT, 0, CHANGED), (0, ""))], 0,
                 "now reports"),
                (["dp", "set", "a1", "9=off"],
                 [*known(), (FRM_TP_CMD, {"cid": "a1", "dps": {"9": "off"}},
                             (FRM_DP_REPORT, 0, '{"cid":"a1","dps":{"9":0}}'), (0, ""))], 0,
                 'gets the text "off"; for a switch write 9=false'),
                (["dp", "set", "a1", "1=true"], known(offline=["a1"]), 1, "device a1 is offline, so nothing was sent"),
                (["dp", "set", "nosuch", "1=true"],
                 [(FRM_LOCAL_DP_QUERY, {"cid": "nosuch"}, (1, "devid not found")),
                  (FRM_DEV_LINE_STAT, None, (0, "{}"))],
                 1, "engr_app devices lists the devices"),
                (["dp", "query", "a1", "1"],
                 [(FRM_DP_QUERY, {"cid": "a1", "dpId": 1}, (0, ""), (FRM_DP_REPORT, 0, CHANGED))], 0, "1\ttrue"),
                (["dp", "query", "", "1", "2", "--json"],
                 [(FRM_LOCAL_DP_QUERY, {}, (0, '{"cid":"gw","dps":{"1":0}}')),
                  (FRM_DP_QUERY, {"dpId": [1, 2]}, (FRM_DP_REPORT, 0, '{"cid":"b","dps":{"1":1,"2":9}}'),
                   (FRM_DP_REPORT, 0, '{"cid":"gw","dps":{"1":1,"2":3}}'), (0, ""))], 0, '"2": 3'),
                (["group", "add", "g", "a1"], [(FRM_GRP_OPER, {"gid": "g", "op": "add", "cids": ["a1"]},
                                                       (FRM_GRP_OPER, 1, '{"gid":"h","op":"add"}'),
                                                       (FRM_GRP_OPER, 0, MEMBERS))], 0,
                 "group g now has 2 devices: a1, b2"),
                (["group", "delete", "g"],
                 [(FRM_GRP_OPER, {"gid": "g", "op": "delete"},
                   (FRM_GRP_OPER, 1, '{"gid":"g","op":"delete","reason":"no such group"}'))], 1,
                   "answered: no such group"),
                (["group", "remove", "g", "a1"],
                 [(FRM_GRP_OPER, {"gid": "g", "op": "remove", "cids": ["a1"]}, (1, "group oper failed"))], 1,
                 "check the ids"),
                (["group", "set", "g", "1=true"], [(FRM_GRP_EXEC, {"gid": "g", "dps": {"1": True}}, (0, ""))], 0,
                 "accepted the command"),
                (["linkage", "run", "s"], [(FRM_COM_SCENE_EXEC, {"sceneId": "s"}, (0, ""))], 0, "was told to run"),
                (["scene", "run", "g", "s"], [(FRM_SCENE_CMD, {"sid": "s", "gid": "g"}, (1, "scene execute error"))], 1,
                 "scene save"),
                (["linkage", "sync", scenes], [(FRM_SCENE_LINKAGE, {**SCENES, "totalCount": 1}, (0, ""))], 0,
                 "1 linkage scene modified"),
                (["scene", "save", "g", "s", actions],
                 [(FRM_SCENE_OPER, {"sid": "s", "gid": "g", "op": "save", "actions": ACTIONS},
                   (FRM_SCENE_OPER, 0, '{"sid":"s","gid":"g","op":"save"}'))], 0, "scene s of group g was saved"),
                (["scene", "panel", "a1", buttons],
                 [(FRM_SCENE_PANEL, {"cid": "a1", "buttons": BUTTONS},
                   (1, '{"cid":"a1","reason":"set panel cmd error"}'))], 1,
                 "set panel cmd error; check the panel"),
                (["bind", products], [(FRM_USER_BIND_REQ_ENGR, {"products": PRODUCTS}, (0, channel))], 0,
                 "1 device is bound",
                 "channel 15"),
                (["bind", "a1:p", "00:1b:b2:q"],
                 [(FRM_USER_BIND_REQ_ENGR, {"products": [*PRODUCTS, {"cid": "00:1b:b2", "pid": "q"}]}, (0, channel))],
                 0, "2 devices are bound"),
                (["unbind", "a1", "b2"], [(FRM_DEV_LIST, None, (0, BOUND)), (FRM_DEL_SUB_DEV, {"cid": "a1"}, (0, "{}")),
                                          (FRM_DEL_SUB_DEV, {"cid": "b2"}, (0, "{}")),
                                          (FRM_DEV_LIST, None, (0, '{"products":[]}'))], 1,
                 "a1\tunbound\n", "b2\twas not bound"),
                (["unbind", "a1"],
                 [(FRM_DEV_LIST, None, (0, BOUND)), (FRM_DEL_SUB_DEV, {"cid": "a1"}, (0, "{}")),
                  (FRM_DEV_LIST, None, (0, BOUND))], 1, "still bound"),
                (["token", "set", "t0"], [KEY_SHOWN, (FRM_TOKEN_BIND, token, (0, ""))], 0, "token is bound"),
                (["token", "set", "--token-file", self.file("t0\n", "token")],
                 [KEY_SHOWN, (FRM_TOKEN_BIND, token, (1, "inner process failed"))], 1, "does not take this token"),
                (["join", "open", "--detach", "--seconds", "9", "--kind", "1"],
                 [(FRM_PERMIT_JOIN, {"type": 1, "time": 9}, (0, ""))], 0, "open on gateway"),
                (["join", "close"], [(FRM_PERMIT_JOIN, {"type": 0, "time": 0}, (1, "permit join set error"))], 1,
                 "join --help"),
                (["wifi", "net", "--open"], [KEY_SHOWN, (FRM_WIFI_MODIFY, {"ssid": "net"}, (0, ""))], 0,
                 "engr_app discover"),
                (["channel", "get"], [(FRM_GET_CHANNEL, None, (0, channel))], 0, "on channel 15"),
                (["channel", "set", "27", "--force"], [(FRM_SET_CHANNEL, {"channel": 27}, (1, "set channel error"))], 1,
                 "answered: set channel error; channels are 11 to 26"),
                (["config", "push", "app", self.file("{1}\n", "app")], [(FRM_DOWNLOAD_APP_CFG, "{1}", (0, ""))], 0,
                 "(3 bytes)"),
                (["config", "push", "cloud", self.file("}" * 9000, "cloud"), "--yes"],
                 [(FRM_DOWNLOAD_CLOUD_CFG, "}" * 9000, (0, ""))], 0,
                 "ends engineering"),
                (["config", "pull", "app"], [(FRM_READ_APP_CFG, None, (0, "as it is\n"))], 0, "as it is\n"),
                (["deactivate", "--yes"], [(FRM_GW_UNACTIVE, None, (0, ""))], 0, "leave out --local-key"),
                (["log"], [(FRM_GET_LOG, None, (1, "read log error"))], 1, "removed once it was fetched")]:
            self.check(arguments, exchanges, code, *words)

    def test_the_installers_names_are_shown_and_stand_for_ids(self):
        names = self.file({"devices": {"a1": {"name": "ceiling", "room": "hall"}, "b2": "door", "c3": "door"},
                           "products": {"p": {"1": "switch"}}}, "names.json")
        products = '{"products":[{"cid":"a1","pid":"p"},{"cid":"d4","pid":"q"}]}'
        listed = [(FRM_DEV_LIST, None, (0, products))]
        state = (FRM_DEV_LINE_STAT, None, (0, '{"online":["a1"],"offline":["d4"]}'))
        for arguments, exchanges, code, *words in [
                (["devices", "--sort", "room"], [*listed, state], 0,
                 "CID\tNAME\tROOM\tPID\tSTATE\nd4\t-\t-\tq\toffline\na1\tceiling\thall\tp\tonline\n"),
                (["devices", "--filter", "name=CEIL", "--fields", "state,cid", "--csv"], [*listed, state], 0,
                 "STATE,CID\nonline,a1\n"),
                (["devices", "--json"], [*listed, state], 0, '"room": "hall"', '"name": null'),
                (["dp", "get", "ceiling", "--no-header"],
                 [*listed, (FRM_LOCAL_DP_QUERY, {"cid": "a1"}, (0, '{"cid":"a1","dps":{"1":true,"2":5}}'))], 0,
                 "1\tswitch\ttrue\n2\t-\t5\n"),
                (["dp", "set", "ceiling", "switch=true"],
                 [*listed, *known(), (FRM_TP_CMD, {"cid": "a1", "dps": {"1": True}}, (FRM_DP_REPORT, 0, CHANGED),
                                      (0, ""))], 0, "device ceiling (a1) accepted the command"),
                (["unbind", "door"], [], 2, "2 devices of", "give the device's id")]:
            self.check([*arguments, "--names", names], exchanges, code, *words)
        self.check(["devices", "--names", self.file({"devices": 7}, "bad")], [], 2, "bad: devices: is number")

    def test_what_can_not_be_right_is_refused_before_anything_is_sent(self):
        big = self.file("x" * 2098136, "big")

        def faulty(verb, *cases):
            for number, (content, word) in enumerate(cases):
                name = f"{verb[-1]}{number}"
                yield [*verb, self.file(content, name)], f"{name}: {word}"

        for arguments, word in [
                (["wifi", b"net\xff", "--open"], "UTF-8"),
                (["dp"], "name a command: get"), (["dp", "set", "a1"], "DP=VALUE"),
                (["dp", "set", "a1", "0=1"], "1 to 255"),
                (["dp", "set", "a1", "1=1", "1=2"], "twice"), (["dp", "set", "a1", "1="], "no value"),
                (["bind", "a1:p", "a1:q"], "twice"), (["bind", "a1:p", "b"], "CID:PID"),
                (["devices", "--sort", "size"], "unknown column size"),
                (["devices", "--filter", "state"], "COLUMN=TEXT"),
                (["dp", "set", "a1", "--json-dps", '{"1":[]}'], "data point 1"),
                (["group", "add", "g"], "CID"),
                (["channel", "set", "27"], "--force"), (["token", "set", "t" * 65], "1 to 64"),
                (["deactivate"], "--yes"), (["config", "push", "cloud", big], "--yes"),
                (["wifi", "net", "--open", "--password", "x"], "--open"),
                (["log", big], "use --force to overwrite it"), (["config", "pull", "app", big], "--force"),
                (["config", "push", "app", big], "2098135"), (["config", "push", "app", "/no/file"], "/no/file"),
                (["config", "push", "app", self.file("a\0b", "zero")], "byte 2 is zero"),
                (["config", "push", "app", self.file("{} ;", "open")], "does not end with }"),
                (["log", "/no/directory/file"], "/no/directory/file"), (["log", "/dev/null"], "not a regular file"),
                *faulty(["bind"], ('{"products":\n [}', "line 2, column 3"), ("7", "is number, expected an object"),
                        ({}, "has no products"),
                        ([{"cid": "a" * 26, "pid": "p"}], "products[0].cid: has 26 bytes; it may have 1 to 25"),
                        ([{"cid": "a 1", "pid": "p"}], "products[0].cid: expected printable"),
                        ([{"cid": "a1"}], "products[0]: has no pid"),
                        (PRODUCTS * 2, "products[1].cid: 'a1' is given twice")),
                (["linkage", "sync", self.file([], "no_scenes.json")], "give --yes"),
                *faulty(["linkage", "sync"], ({**SCENES, "totalCount": 2}, "totalCount: is 2; it may be 1 to 1"),
                        ({**SCENES, "gmtModified": 1 << 33}, "gmtModified: is 8589934592; it may be 1 to 2147483647"),
                        ([{"sceneId": "s", "actions": [{"cid": "a1", "dps": {"0": 1}}]}],
                         "scenes[0].actions[0].dps: '0' is not a data-point number"),
                        ([{"sceneId": "s", "actions": []}], "scenes[0].actions: has 0 elements; it needs 1"))]:
            code, out, err = run(*arguments, "--gateway", "127.0.0.1:9")
            self.assertEqual((code, out), (2, ""), f"{arguments}: {err}")
            self.assertIn(word, err, f"{arguments} must name what is wrong")

    def test_what_came_of_a_log_is_kept_and_a_file_is_whole(self):
        path = os.path.join(self.directory, "log")
        first, last = b"x" * 1024, b"passwd:hunter2 on a1\n"
        stopped = (FRM_GET_LOG, None, lambda number: segment(number, 3, 1, last), None)
        self.check(["log", path], [stopped], 1, "stopped after segment 1 of 3",
                   f"21 bytes that came are in {path}.partial")
        self.assertEqual(os.listdir(self.directory), ["log.partial"])
        self.check(["log"], [stopped], 1, "hunter2", "what came is above")
        shown = self.check(["log", "--sanitized", "--json"], [(FRM_DEV_LIST, None, (0, BOUND)), stopped], 1,
                           '"complete": false', "passwd:***")
        self.assertNotIn("hunter2", shown)
        endless = (FRM_GET_LOG, None, lambda number: segment(number, 0x7FFFFFFF, 1, b""))
        self.check(["log", path], [endless], 1, "too long to be one (2147483647 segments)")
        whole = (FRM_GET_LOG, None, lambda number: segment(number, 2, 1, first) + segment(number, 2, 2, last))
        self.check(["log", path], [whole], 0, f"{len(first + last)} bytes, is in {path}")
        with open(path, "rb") as file:
            self.assertEqual(file.read(), first + last)
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
        gateway = Gateway(Script(whole).serve).name
        with open("/dev/full", "wb") as full:
            done = subprocess.run([APP, "log", "--gateway", gateway], stdout=full, stderr=subprocess.PIPE, timeout=60,
                                  env={**os.environ, "XDG_STATE_HOME": self.directory})
        kept = os.path.join(self.directory, "engr_app", gateway.replace(":", "_") + ".log")
        self.assertEqual(outcome(done.returncode), 1)
        self.assertIn(f"so it is kept in {kept}".encode(), done.stderr)
        with open(kept, "rb") as file:
            self.assertEqual(file.read(), first + last)
        shown = self.check(["log", "--sanitized"], [(FRM_DEV_LIST, None, (0, BOUND)), whole], 0, "passwd:***\n")
        self.assertNotIn("hunter2", shown)

    def ask(self, typed, *arguments):
        """Runs it on a terminal and types a line; its exit status and what was shown."""
        child, terminal = pty.fork()
        if child == 0:
            os.execv(APP, [APP, *arguments])
        shown = b""
        with contextlib.suppress(OSError):  # the terminal of a program that has ended
            while piece := os.read(terminal, 1024):
                shown += piece
                if shown.endswith(b"[y/N] "):
                    os.write(terminal, typed)
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), shown.decode()

    def test_one_question_is_asked_for_all_gateways(self):
        for typed, code, left in [(b"n\n", 1, 1), (b"\n", 1, 1), (b"y\n", 0, 0), (b"yes\n", 0, 0)]:
            scripts = [Script((FRM_GW_UNACTIVE, None, (0, ""))) for _ in range(2)]
            names = [Gateway(one.serve).name for one in scripts]
            got, shown = self.ask(typed, "deactivate", "--gateway", names[0], "--gateway", names[1])
            self.assertEqual((got, [len(one.left) for one in scripts]), (code, [left] * 2), shown)
            self.assertEqual(shown.count("[y/N]"), 1, shown)
            self.assertIn(f"on 2 gateways: {names[0]}, {names[1]}?", shown)

    def test_what_changes_every_gateway_needs_consent(self):
        for arguments in [["channel", "set", "20"], ["dp", "set", "a1", "1=true"], ["group", "delete", "g"],
                          ["upgrade", __file__, "--version", "2"]]:
            code, out, err = run(*arguments, "--all")
            self.assertEqual((code, out), (2, ""), err)
            self.assertIn("--yes", err)

    def test_join_shows_devices_and_closes_on_interrupt(self):
        script = Script((FRM_PERMIT_JOIN, {"type": 0, "time": 900}, (0, ""), (FRM_SUB_DEV_BIND_RPT, 0, BOUND)),
                        (FRM_PERMIT_JOIN, {"type": 0, "time": 0}, (0, "")))
        with subprocess.Popen([APP, "join", "open", "--seconds", "900", "--gateway", Gateway(script.serve).name],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as opened:
            self.assertEqual(opened.stdout.readline(), b"device a1 joined (product p)\n")
            opened.send_signal(signal.SIGINT)
            out, err = opened.communicate(timeout=60)
        self.assertEqual((opened.returncode, script.left, script.faults), (130, [], []), err)
        self.assertIn(b"1 device joined; joining is closed, as you asked", out)

    def test_a_password_is_never_shown(self):
        asked = (FRM_WIFI_MODIFY, {"ssid": "net", "passwd": SECRET}, (0, ""))
        for more, environment in [(["--password-file", self.file(SECRET + "\n")], None), (["--password", SECRET], None),
                                  ([], {"ENGR_WIFI_PASSWORD": SECRET})]:
            shown = self.check(["wifi", "net", "-v", *more], [KEY_SHOWN, asked], 0, "net", environment=environment)
            self.assertNotIn(SECRET, shown)

    def test_a_password_is_asked_for_without_echo(self):
        script = Script(KEY_SHOWN, (FRM_WIFI_MODIFY, {"ssid": "net", "passwd": SECRET}, (0, "")))
        gateway = Gateway(script.serve).name
        child, terminal = pty.fork()
        if child == 0:
            os.execv(APP, [APP, "wifi", "net", "--gateway", gateway])
        shown = b""
        while b"Wi-Fi password: " not in shown:
            shown += os.read(terminal, 1024)
        os.write(terminal, SECRET.encode() + b"x\x7f\n")
        try:
            while piece := os.read(terminal, 1024):
                shown += piece
        except OSError:
            pass  # the terminal of a program that has ended
        self.assertEqual((os.waitpid(child, 0)[1], script.faults), (0, []), shown)
        self.assertNotIn(SECRET.encode()[:4], shown)
        os.close(terminal)


if __name__ == "__main__":
    unittest.main()
