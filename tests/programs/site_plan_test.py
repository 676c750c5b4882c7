"""Site plans with real gateways: applied, applied again, interrupted, gone on with, and compared with reports."""

import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

from gateway import BIN_DIR, PATIENCE_S, Gateway, program

EXAMPLE = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "plans", "flats.yaml")
PRODUCTS = {"zbdimmer": {"1": {"kind": "bool"}, "2": {"kind": "value", "min": 10, "max": 1000}},
            "zbpanel": {"1": {"kind": "value", "min": 1, "max": 4, "read_only": True}}}
ADDRESSES = [f"127.0.0.{number}" for number in (11, 12, 13)]
TOKEN = "installer-token-1"
# What changes a gateway, as its trace names it; reading is not in it.
CHANGES = {"gw_set_channel", "gw_engineer_add_sub_dev_to_list", "engr_sf_send_grp_oper_cmd",
           "engr_sf_send_scene_oper_cmd", "engr_sf_send_scene_panel_cmd", "engr_save_scene_link",
           "engr_gw_user_token_bind", "dev_delete_notify", "wd_common_write", "sync_config"}


class SitePlanTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        self.plan = os.path.join(self.directory, "flats.yaml")
        shutil.copy(EXAMPLE, self.plan)
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)

    def gateways(self, addresses, joining=(), upgrade=None):
        site = {"products": PRODUCTS, "devices": [], "joining": list(joining)}
        return [self.stack.enter_context(Gateway(site=site, trace=True, address=one,
                                                 scenario={"upgrade": upgrade} if upgrade else None))
                for one in addresses]

    def write(self, text, name="plan.yaml"):
        path = os.path.join(self.directory, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def command(self, *arguments):
        return [program("engr_app"), *arguments]

    def environment(self):
        return {**os.environ, "ENGR_TOKEN": TOKEN}

    def run_app(self, code, *arguments):
        done = subprocess.run(self.command(*arguments), capture_output=True, text=True, timeout=PATIENCE_S,
                              check=False, env=self.environment(), stdin=subprocess.DEVNULL)
        self.assertEqual(done.returncode, code, f"{arguments}: {done.stdout}{done.stderr}")
        self.assertNotIn(TOKEN, done.stdout + done.stderr, "a secret is never shown")
        return done.stdout + done.stderr

    @staticmethod
    def changes(gateway):
        return [entry["call"] for entry in gateway.trace() if entry["call"] in CHANGES]

    def check_site(self, gateway, channel=20):
        status = gateway.status()
        self.assertEqual(status["gateway"]["channel"], channel)
        self.assertEqual(status["groups"], {"all": 2})
        self.assertEqual((status["scenes"], status["linkage"]["scenes"], status["token_bound"]), ({"all": 2}, 1, True))

    def test_a_plan_is_applied_once_and_then_there_is_nothing_to_do(self):
        gateways = self.gateways(ADDRESSES)
        self.assertIn("flat-03\tchannel\tto do\tchannel 15, planned 25", self.run_app(0, "site", "plan", self.plan))
        self.assertEqual([self.changes(one) for one in gateways], [[], [], []], "looking changes nothing")
        reports = [os.path.join(self.directory, "report." + kind) for kind in ("md", "html", "json")]
        self.run_app(0, "site", "apply", self.plan, *(word for one in reports for word in ("--report", one)))
        for channel, gateway in zip((20, 20, 25), gateways):
            self.check_site(gateway, channel)
        made = [self.changes(one) for one in gateways]
        self.assertIn("nothing to do", self.run_app(0, "site", "plan", self.plan))
        self.run_app(0, "site", "apply", self.plan)
        self.assertEqual([self.changes(one) for one in gateways], made, "a second apply changes nothing")
        self.run_app(0, "site", "apply", self.plan, "--again", "--only", "flat-02")
        self.assertGreater(len(self.changes(gateways[1])), len(made[1]))
        self.assertEqual(self.changes(gateways[0]), made[0])
        for path, words in zip(reports, (["| Kitchen | ceiling lamp |", "Signature"], ["<td>ceiling lamp</td>",
                                                                                    "Signature"], ['"read'])):
            with open(path, encoding="utf-8") as file:
                text = file.read()
            for word in words:
                self.assertIn(word, text)
            self.assertNotIn(TOKEN, text)
        self.assertNotRegex(text, "(?s)engr_plan_progress")
        self.compare(reports[2], gateways)

    def compare(self, report, gateways):
        self.assertIn("no difference", self.run_app(0, "site", "diff", report, self.plan))
        gateways[0].run_app("channel", "set", "11")
        gateways[0].run_app("unbind", "a4c1010003")
        later = os.path.join(self.directory, "later.json")
        self.run_app(0, "site", "plan", self.plan, "--report", later)
        told = self.run_app(1, "site", "diff", later, self.plan)
        self.assertIn("flat-01\tchannel\t-\tchannel 11, planned 20\n", told)
        self.assertIn("device a4c1010003 (zbpanel) is missing", told)
        self.assertIn("channel: 20 before, 11 now", self.run_app(1, "site", "diff", report, later))
        self.run_app(2, "site", "diff", report, os.path.join(self.directory, "none.json"))
        # The panel that the gateway has lost gets its scenes again, although they were sent before.
        before = len(self.changes(gateways[0]))
        self.run_app(0, "site", "apply", self.plan)
        self.assertEqual(sorted(self.changes(gateways[0])[before:]),
                         ["engr_sf_send_scene_panel_cmd", "gw_engineer_add_sub_dev_to_list", "gw_set_channel"])

    def test_an_apply_that_is_killed_goes_on_where_it_stopped(self):
        gateway, = self.gateways(ADDRESSES[:1])
        # Stops the application at one step after the other: it is killed while the gateway does it.
        for call in ("gw_set_channel", "engr_sf_send_grp_oper_cmd", "engr_sf_send_scene_panel_cmd"):
            self.kill_at(gateway, call)
        sent = self.changes(gateway)
        self.run_app(0, "site", "apply", self.plan, "--only", "flat-01")
        self.check_site(gateway)
        self.assertEqual(sum(one == "gw_engineer_add_sub_dev_to_list" for one in self.changes(gateway)), 1)
        self.assertNotIn("engr_sf_send_grp_oper_cmd", self.changes(gateway)[len(sent):],
                         "what was done before the last kill is not done again")

    def kill_at(self, gateway, call):
        known = sum(entry["call"] == call for entry in gateway.trace())
        with subprocess.Popen(self.command("site", "apply", self.plan, "--only", "flat-01"), env=self.environment(),
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as running:
            while running.poll() is None and sum(entry["call"] == call for entry in gateway.trace()) == known:
                pass
            running.send_signal(signal.SIGKILL)

    def test_an_activated_gateway_needs_its_own_key(self):
        gateway, = self.gateways(ADDRESSES[:1])
        gateway.ctl("set", "local_key", "0123456789abcdef")
        gateway.ctl("set", "active_stat", "2")
        plan = self.write('{plan: 1, gateways: [{address: %s, channel: 21, key: {file: key}}]}' % ADDRESSES[0])
        for key, code, told in (("", 2, "first line"), ("short", 2, "exactly 16"), ("fedcba9876543210", 1, "decrypted"),
                                ("0123456789abcdef\n", 0, "as planned")):
            self.write(key, "key")
            shown = self.run_app(code, "site", "apply", plan)
            self.assertIn(told, shown)
            self.assertNotIn(key.strip() or "no key", shown)

    def test_an_interrupt_closes_joining_and_leaves_the_rest_undone(self):
        gateway, = self.gateways(ADDRESSES[:1])
        plan = self.write("""{plan: 1, gateways: [{address: %s, devices: [{id: lamp1, product: zbdimmer}],
          join_seconds: 3600, groups: [{id: all, devices: [lamp1]}]}]}""" % ADDRESSES[0])
        with subprocess.Popen(self.command("site", "apply", plan, "--json"), stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL) as running:
            while gateway.status()["joining"]["seconds_left"] == 0:
                self.assertIsNone(running.poll(), "joining is waited for")
            running.send_signal(signal.SIGINT)
            told, _ = running.communicate(timeout=PATIENCE_S)
        self.assertEqual(running.returncode, 1)
        one, = json.loads(told)["gateways"]
        self.assertEqual([step["state"] for step in one["steps"]], ["done", "failed", "not_tried"])
        self.assertEqual((one["error"]["kind"], gateway.status()["joining"]["seconds_left"]), ("cancelled", 0))

    def test_one_that_is_unreachable_does_not_stop_the_others(self):
        gateways = self.gateways([ADDRESSES[0], ADDRESSES[2]])
        told = self.run_app(1, "site", "apply", self.plan)
        self.assertIn("flat-02\t127.0.0.12\tFAILED", told)
        self.assertIn("not as planned: 1 of 3 gateways", told)
        self.check_site(gateways[0])
        self.check_site(gateways[1], 25)

    def test_what_can_not_be_undone_is_confirmed_and_comes_last(self):
        self.write("New firmware", "new.bin")
        self.write("Old firmware", "old.bin")
        plan = """{plan: 1, gateways: [{address: %s, channel: 21, devices: [{id: lamp1, product: zbdimmer}],
          join_seconds: 60, firmware: {gateway: {image: %s, version: %s}, devices: {zbdimmer: {image: new.bin,
          version: "2.5"}}}, configuration: {cloud: {json: {region: eu}}}}]}"""
        joining = [{"dev_id": "lamp1", "pid": "zbdimmer", "sw_ver": "1.0", "join_after_ms": 1}]
        gateway, = self.gateways(ADDRESSES[:1], joining=joining)
        self.run_app(2, "site", "apply", self.write(plan % (ADDRESSES[0], "new.bin", "1.1.0")))
        self.assertEqual(self.changes(gateway), [], "nothing is sent before it is confirmed")
        told = self.run_app(0, "site", "apply", self.write(plan % (ADDRESSES[0], "new.bin", "1.1.0")), "--yes",
                            "--json")
        firmware = [one for one in json.loads(told[:told.rindex("}") + 1])["gateways"][0]["steps"]
                    if one["item"].startswith("firmware")]
        self.assertEqual([(one["item"], one["words"], one["check"]) for one in firmware],
                         [("firmware", "version 1.1.0", "reading"), ("firmware of lamp1", "version 2.5", "reading")])
        self.assertEqual(gateway.status()["gateway"]["gw_sw_ver"], "1.1.0")
        self.assertEqual([one for one in self.changes(gateway) if one != "gw_engineer_add_sub_dev_to_list"],
                         ["gw_set_channel", "wd_common_write", "sync_config"], "the end of engineering is the last")
        downgrade = self.write(plan % (ADDRESSES[0], "old.bin", "1.0.0"))
        self.assertIn("(a downgrade)", self.run_app(0, "site", "plan", downgrade))
        self.assertIn("can't be undone", self.run_app(2, "site", "apply", downgrade))
        self.run_app(0, "site", "apply", downgrade, "--yes")
        self.assertEqual(gateway.status()["gateway"]["gw_sw_ver"], "1.0.0")

    def test_an_upgrade_of_another_app_goes_on(self):
        gateway, = self.gateways(ADDRESSES[:1], upgrade={"never_start": True})
        image = self.write("x" * 1_000_000, "image.bin")
        with subprocess.Popen(self.command("--gateway", gateway.address, "upgrade", image, "--version", "3.0"),
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as upgrading:
            gateway.wait_for("the offer", lambda status: status["upgrade"]["state"] == "offered")
            with subprocess.Popen(self.command("site", "apply", self.plan, "--only", "flat-01", "--timeout", "5"),
                                  env=self.environment(), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                  text=True) as applying:
                while "staying connected until it is over" not in (line := applying.stderr.readline()):
                    self.assertNotEqual(line, "", "expected to be told that an upgrade is waited for")
                gateway.ctl("upgrade", "start")
                told, _ = upgrading.communicate(timeout=PATIENCE_S)
                _, errors = applying.communicate(timeout=PATIENCE_S)
            self.assertEqual(applying.returncode, 0, errors)
        self.assertIn("now has version 3.0", told)
        self.assertNotIn("starting again", told)

    def test_one_gateway_by_id_and_by_address_is_a_mistake(self):
        self.gateways(ADDRESSES[:1])
        plan = self.write("{plan: 1, gateways: [{id: engrgw0000000011, channel: 21}, {address: %s}]}" % ADDRESSES[0])
        self.assertIn("are the same gateway", self.run_app(2, "site", "apply", plan))

    def test_an_exported_plan_is_one_that_changes_nothing(self):
        site = {"products": PRODUCTS, "gateway": {"channel": 17},
                "devices": [{"dev_id": "0012", "pid": "zbdimmer", "online": True}]}
        gateway = self.stack.enter_context(Gateway(site=site, trace=True, address=ADDRESSES[0]))
        gateway.run_app("config", "push", "app", self.write('{"cost": "${5}"}\n'))
        made = os.path.join(self.directory, "made.yaml")
        names = self.write('{"devices": {"0012": {"name": "lamp", "room": "Hall"}}}', "names.json")
        self.assertIn("groups, scenes", self.run_app(0, "--gateway", ADDRESSES[0], "--names", names, "site", "export",
                                                     made))
        before = self.changes(gateway)
        self.run_app(0, "site", "apply", made)
        self.assertEqual(self.changes(gateway), before)
        with open(made, encoding="utf-8") as file:
            self.assertRegex(file.read(), re.compile(
                r'channel: 17$.*id: "0012", product: "zbdimmer", name: "lamp", room: "Hall"', re.S | re.M))


if __name__ == "__main__":
    unittest.main()
