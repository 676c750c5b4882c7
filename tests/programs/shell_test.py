"""What the programs tell shells and the manual about their command lines."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest
from unittest import mock

from gateway import BIN_DIR, PATIENCE_S, Gateway, program

ROOT = os.path.join(os.path.dirname(__file__), "../..")
SITE = {"devices": [{"dev_id": "lamp1", "online": True}, {"dev_id": "door1"}, {"dev_id": "$(false)"}]}


class CompletionTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.cache = os.path.join(directory.name, "engr_app")
        os.mkdir(self.cache)
        self.environment = {**os.environ, "XDG_CACHE_HOME": directory.name,
                            "PATH": BIN_DIR + os.pathsep + os.environ["PATH"]}

    def complete(self, *words):
        """What bash offers for the last of these words, with the completion that is installed."""
        script = ('for each in /usr/share/bash-completion/bash_completion "$1/packaging/completion/engr_app.bash"; do '
                  '[ ! -e "$each" ] || . "$each"; done; shift; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) '
                  'COMP_LINE=$* COMP_POINT=${#COMP_LINE}; compopt() { :; }; _engr_complete; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        done = subprocess.run(["bash", "-c", script, "bash", ROOT, *words], capture_output=True, text=True, check=True,
                              timeout=PATIENCE_S, env=self.environment, cwd=self.cache)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def test_bash_knows_verbs_options_and_values(self):
        with open(os.path.join(self.cache, "gateways.json"), "w", encoding="utf-8") as file:
            json.dump([{"id": "gateway1", "address": "10.0.0.7", "port": 6668, "interface": "eth0"},
                       {"id": "evil;reboot", "address": "10.0.0.8"}, 5], file)
        cases = [
            (("engr_app", "de"), ["devices", "deactivate"]),
            (("engr_app", "channel", ""), ["get", "set"]),
            (("engr_app", "--gateway", "x", "upgrade", "--dr"), ["--dry-run"]),
            (("engr_app", "--json", "devices", "--tim"), ["--timeout"]),
            (("engr_app", "--gateway", ""), ["10.0.0.7", "10.0.0.8", "gateway1"]),
            (("engr_app", "--interface", "l"), ["lo"]),
            (("engr_app", "config", "push", ""), ["cloud", "app"]),
            (("engr_app", "upgrade", "gate"), ["gateways.json"]),
            (("engr_gatewayd", "--log"), ["--log-level"]),
            (("engr_gatewayd", "--site", "gate"), ["gateways.json"]),
            (("engr_gatewayd", "--mode", ""), ["0", "1"]),
            (("engr_gatewayd", "--console", "--tr"), ["--trace"]),
            (("engr_gatewayd", "--console", "x", "--tr"), ["--trace"]),
            (("engr_replay", "--as", ""), ["fuzz-seed", "scenario", "test"]),
            (("engr_gatewayctl", "callback", "x", ""), ["absent", "present"]),
            (("engr_gatewayctl", "--data-dir", "x", "wifi"), ["wifi-config-needed", "wifi-mode"]),
        ]
        for words, offered in cases:
            with self.subTest(words=words):
                self.assertEqual(sorted(self.complete(*words)), sorted(offered))

    def test_devices_and_groups_are_known_once_they_were_seen(self):
        self.assertEqual(self.complete("engr_app", "dp", "get", ""), [])
        with Gateway(site=SITE) as gateway, mock.patch.dict(os.environ, self.environment):
            self.assertEqual(gateway.run_app("devices").returncode, 0)
            self.assertEqual(gateway.run_app("group", "add", "hall", "lamp1").returncode, 0)
            self.assertEqual(gateway.run_app("group", "add", "hall", "nosuch").returncode, 4)
        self.assertEqual(self.complete("engr_app", "dp", "get", ""), ["door1", "lamp1"],
                         "expected no id that means something to a shell")
        self.assertEqual(self.complete("engr_app", "unbind", "door1", "l"), ["lamp1"])
        self.assertEqual(self.complete("engr_app", "group", "set", ""), ["hall"])

    @unittest.skipUnless(shutil.which("zsh"), "no zsh")
    def test_zsh_reads_its_completion(self):
        subprocess.run(["zsh", "-n", os.path.join(ROOT, "packaging/completion/_engr_app")], check=True,
                       timeout=PATIENCE_S)


class ManualTest(unittest.TestCase):
    @unittest.skipUnless(shutil.which("mandoc"), "no mandoc")
    def test_what_programs_say_for_their_manual_pages_is_sound(self):
        for name, words in (("engr_app", ["channel set", "interface"]), ("engr_gatewayd", ["wait\\-for\\-address"]),
                            ("engr_gatewayctl", ["fault", "timeout"]), ("engr_replay", ["shrink"]),
                            ("engr_session", ["export", "pcapng"])):
            with self.subTest(program=name):
                said = subprocess.run([program(name), "__manual"], capture_output=True, text=True, check=True,
                                      timeout=PATIENCE_S).stdout
                for word in words:
                    self.assertIn(word, said)
                done = subprocess.run(["mandoc", "-Tlint", "-Wwarning"], capture_output=True, text=True, check=False,
                                      timeout=PATIENCE_S, input=f".Dd May 1, 2026\n.Dt X 1\n.Os\n{said}")
                self.assertEqual((done.returncode, done.stdout), (0, ""), done.stderr)


if __name__ == "__main__":
    unittest.main()
