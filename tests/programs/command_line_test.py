"""The command line itself: wrong words, help, settings, the gateway in use, and Ctrl-C."""

import json
import os
import pty
import re
import shutil
import signal
import subprocess
import unittest

import user_home
from gateway import PATIENCE_S, Gateway, program

CHANNEL = {"first": 15, "second": 20}


def app(*arguments, **environment):
    done = subprocess.run([program("engr_app"), *arguments], capture_output=True, text=True, timeout=PATIENCE_S,
                          check=False, env={**os.environ, **environment}, stdin=subprocess.DEVNULL)
    return done.returncode, done.stdout, done.stderr


class Usage(unittest.TestCase):
    WRONG = [
        ("chanel get", "unknown command 'chanel'; did you mean 'channel'? See engr_app --help"),
        ("--gateway 127.0.0.1 chanel get", "unknown command 'chanel'; did you mean 'channel'?"),
        ("channel sett 12", "unknown command 'sett'; did you mean 'set'? See engr_app channel --help"),
        ("help devcies", "unknown command 'devcies'; did you mean 'devices'?"),
        ("xyzzy", "unknown command 'xyzzy'; see engr_app --help"),
        ("--gatway 127.0.0.1 devices", "unknown option '--gatway'; did you mean '--gateway'?"),
        ("devices more", "unexpected argument 'more'; see engr_app devices --help"),
        ("", "name a command; see engr_app --help"),
        ("channel", "name a command: get, set; see engr_app channel --help"),
        ("unbind", "CID is missing; see engr_app unbind --help"),
        ("--timeout abc devices", "--timeout: invalid value 'abc': use a number from 0.01 to 86400"),
        ("watch --for -3", "--for: invalid value '-3': use a number greater than 0"),
        ("channel set abc", "N: 'abc' is not a number; see engr_app channel set --help"),
        ("devices --gateway", "--gateway needs a value: ADDRESS|ID"),
        ("devices --timeout 1 --timeout 2", "--timeout is given more than once"),
        ("devices --json=maybe", "--json"),
        ("-q -v devices", "exclude each other"),
        ("--gateway 127.0.0.300 devices", "127.0.0.300 is not an IPv4 address"),
        ("devices --gateway 127.0.0.1:70000", "the port must be 1 to 65535"),
        (f"--gateway {'x' * 26} devices", "at most 25 characters"),
    ]

    def test_what_is_wrong_is_said_in_a_sentence_or_as_json(self):
        for line, sentence in self.WRONG:
            with self.subTest(line):
                code, out, err = app(*line.split())
                self.assertEqual((code, out), (2, ""), err)
                self.assertTrue(err.startswith("engr_app: ") and err.count("\n") == 1, err)
                self.assertIn(sentence, err)
                code, out, err = app("--json", *line.split())
                self.assertEqual((code, err, json.loads(out)["error"]["kind"]), (2, "", "usage"))
                self.assertIn(sentence, json.loads(out)["error"]["message"])

    def test_help_fits_the_page_and_names_what_a_verb_takes(self):
        whole = app("--help")[1]
        for verb in re.findall(r"(?m)^  ([a-z]+) ", whole.split("Commands:\n")[1].split("\n\n")[0]):
            shown = app(verb, "--help")[1]
            self.assertEqual(app("help", verb)[1], shown)
            lines = [line for line in shown.splitlines() if not line.startswith("  engr_app")]
            self.assertLessEqual(max(map(len, lines)), 80, shown)
            self.assertTrue(verb == "help" or "--gateway ADDRESS|ID" in shown.split("Global options")[1])
        self.assertLessEqual(max(map(len, whole.splitlines())), 80)
        for status in ("0", "1", "2", "3", "4", "5", "6", "7", "130"):
            self.assertRegex(whole, rf"(?m)^ +{status}  \w")
        leaf = app("help", "channel", "set")[1]
        self.assertIn("\nUsage: engr_app channel set [OPTIONS] N\n", leaf)
        self.assertIn("  engr_app channel set 15\n", leaf)
        self.assertNotIn("  engr_app channel get", leaf, "the examples of another verb")


class Settings(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gateways = {}
        for name, channel in CHANNEL.items():
            cls.gateways[name] = Gateway(site={"gateway": {"gw_id": name, "channel": channel}})
            cls.addClassCleanup(cls.gateways[name].close)

    def setUp(self):
        user_home.write_config()
        self.addCleanup(shutil.rmtree, user_home.DIRECTORY, ignore_errors=True)

    def silence(self):
        """None of the gateways announces itself until the end of the test."""
        for gateway in self.gateways.values():
            gateway.ctl("network", "down")
            self.addCleanup(gateway.ctl, "network", "up")

    def channel(self, *arguments, **environment):
        code, out, err = app("channel", "get", *arguments, **environment)
        self.assertEqual(code, 0, err)
        return int(out.split()[-1]), err

    def test_an_option_wins_over_the_environment_over_the_file_over_the_gateway_in_use(self):
        first, second = (self.gateways[name].address for name in CHANNEL)
        self.assertEqual(app("use", first)[0], 0)
        self.assertEqual(self.channel()[0], CHANNEL["first"], "the one in use")
        user_home.write_config(f'gateway = "{second}"\n')
        self.assertEqual(self.channel()[0], CHANNEL["second"], "the one in the file")
        self.assertEqual(self.channel(ENGR_GATEWAY=first)[0], CHANNEL["first"], "the one in the environment")
        self.assertEqual(self.channel("--gateway", second, ENGR_GATEWAY=first)[0], CHANNEL["second"], "the option")
        self.silence()
        code, out, err = app("channel", "get", "--json", ENGR_GATEWAY=f"{first},{second}")
        self.assertEqual((code, len(json.loads(out))), (0, 2), err)
        self.assertEqual(app("discover", "--listen", "0.01", ENGR_GATEWAY=f"{first},{second}")[0], 3,
                         "what concerns no gateway passes it over")

    def test_a_fault_in_a_file_is_a_warning_and_one_in_the_environment_an_error(self):
        address = self.gateways["first"].address
        for text, words in [("gatway = 1\n", "unknown setting 'gatway'; did you mean 'gateway'?"),
                            ("interface = nowhere0\n", "interface is not used: there is no interface 'nowhere0'"),
                            ("[x]\ny = 1\n", "unknown setting 'x.y'"),
                            ("timeout = soon\n", "timeout is not used: invalid value 'soon'")]:
            user_home.write_config(text)
            channel, err = self.channel("--gateway", address)
            self.assertEqual(channel, CHANNEL["first"])
            self.assertIn(words, err)
            self.assertEqual(err.count("\n"), 1, err)
            self.assertEqual(self.channel("--gateway", address, "--quiet")[1], "")
        user_home.write_config("")
        code, _, err = app("devices", ENGR_INTERFACE="nowhere0")
        self.assertEqual(code, 2)
        self.assertIn("ENGR_INTERFACE: there is no interface 'nowhere0'", err)
        for kind, name in (("state", "gateway.json"), ("cache", "gateways.json")):
            path = os.path.join(user_home.DIRECTORY, kind, "engr_app")
            os.makedirs(path)
            with open(os.path.join(path, name), "w", encoding="utf-8") as file:
                file.write('[{"id": 5}, 7, {"id": "first", "address": "nonsense"}' + ("]" if kind == "cache" else ""))
        code, out, err = app("--gateway", "first", "channel", "get")
        self.assertEqual((code, out.split()[-1]), (0, "15"), err)
        self.assertIn("gateway.json is broken and is not used", app("use")[2])
        code, _, err = app("--gateway", "first", "channel", "get", XDG_CACHE_HOME="/proc/nowhere")
        self.assertEqual((code, err), (0, ""), "what can't be kept fails no command")

    def test_a_gateway_in_use_is_found_without_listening_until_it_moves(self):
        with Gateway(site={"gateway": {"gw_id": "mover", "channel": 12}}) as before:
            code, out, err = app("use", "mover")
            self.assertEqual((code, out), (0, f"gateway mover ({before.address}) is in use from now on\n"), err)
            self.assertIn(f"heard last at {before.address} on lo, less than a minute ago", app("use")[1])
            before.ctl("network", "down")  # it announces itself no more
            self.assertEqual(self.channel("--listen", "0.01")[0], 12)
        with Gateway(site={"gateway": {"gw_id": "another"}}, address=before.address):
            code, _, err = app("channel", "get", "--listen", "0.01")
            self.assertEqual(code, 3, "another gateway at its address gets nothing")
            self.assertIn(f"gateway mover is no longer the device at {before.address}", err)
        with Gateway(site={"gateway": {"gw_id": "mover", "channel": 13}}):
            channel, err = self.channel()
            self.assertEqual(channel, 13)
            self.assertIn(f"gateway mover does not answer at {before.address}, where it was heard last: listening", err)
        self.assertEqual(app("use", "--none")[0], 0)
        self.assertIn("no gateway is in use", app("use")[1])

    def test_a_gateway_that_was_heard_too_long_ago_is_listened_for(self):
        self.assertEqual(app("use", "first")[0], 0)
        self.silence()
        path = os.path.join(user_home.DIRECTORY, "cache", "engr_app", "gateways.json")
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
        with open(path, encoding="utf-8") as file:
            known = json.load(file)
        for one in known:
            one.update(heard=one["heard"] - 1000, link_address="")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(known, file)
        code, _, err = app("channel", "get", "--listen", "0.01")
        self.assertEqual(code, 3)
        self.assertIn("gateway first was not heard on lo", err)


class Interrupts(unittest.TestCase):
    def interrupted(self, *arguments, at):
        """Ends a program by Ctrl-C once its terminal has shown a text; what it showed after that."""
        terminal, slave = pty.openpty()
        with subprocess.Popen([program("engr_app"), *arguments], stdout=subprocess.PIPE, stderr=slave) as running:
            os.close(slave)
            shown = b""
            while at not in shown:
                shown += os.read(terminal, 4096)
            running.send_signal(signal.SIGINT)
            try:
                out, _ = running.communicate(timeout=PATIENCE_S)
            except subprocess.TimeoutExpired:
                running.kill()
                raise
            try:
                while piece := os.read(terminal, 4096):
                    shown += piece
            except OSError:
                pass  # the end of a terminal
        os.close(terminal)
        return running.returncode, out, shown.partition(at)[2]

    def test_a_gateway_is_shown_when_it_is_heard(self):
        with Gateway(site={"gateway": {"gw_id": "early"}}), \
                subprocess.Popen([program("engr_app"), "discover", "--listen", "1000"], stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, text=True) as running:
            shown = [running.stdout.readline().split("\t")[0] for _ in range(2)]
            running.send_signal(signal.SIGINT)
            _, err = running.communicate(timeout=PATIENCE_S)
        self.assertEqual((shown, running.returncode, err), (["ID", "early"], 130, "engr_app: interrupted\n"))

    def test_ctrl_c_ends_every_wait_at_once_with_one_status(self):
        gateway = Gateway()
        self.addCleanup(gateway.close)
        named = ("--gateway", gateway.address, "--timeout", "1000")
        self.assertEqual(self.interrupted("watch", *named, at=b"Ctrl-C ends it")[:2], (130, b""))
        gateway.process.send_signal(signal.SIGSTOP)  # takes connections, and answers nothing
        for arguments, at in [(("devices", "--listen", "1000"), b"listening"),
                              (("discover", "--listen", "1000"), b"listening"),
                              (("watch", "--listen", "1000"), b"listening"),
                              (("channel", "get", "-v", *named), b"FRM_"),
                              (("watch", "-v", *named), b"FRM_")]:
            code, out, end = self.interrupted(*arguments, at=at)
            self.assertEqual((code, out), (130, b""), arguments)
            self.assertTrue(end.endswith(b"\rengr_app: interrupted\r\n"), end)


if __name__ == "__main__":
    unittest.main()
