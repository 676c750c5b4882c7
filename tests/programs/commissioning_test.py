"""The commissioning walk of the documents, done as it stands there, and large gateways."""

import json
import os
import re
import signal
import subprocess
import tempfile
import threading
import unittest

from gateway import BIN_DIR, PATIENCE_S, Gateway

DOCUMENT = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "commissioning.md")
LOCAL_KEY = "0123456789abcdef"
DEVICES = {"devices": [{"dev_id": "lamp", "pid": "switch", "state": 1, "online": 1}]}
# Calls that the gateway received in this order, perhaps with others in between.
CALLS = """gw_engineer_add_sub_dev_to_list engr_gw_cntl_init_local engr_gw_user_token_bind gw_set_channel gw_get_channel
permit_join engr_sf_send_gw_dev_cmd engr_sf_pack_local_obj_dp_data engr_sf_send_grp_oper_cmd engr_sf_send_gw_dev_cmd
engr_sf_send_scene_oper_cmd scene_exec engr_sf_respone_obj_dp_query engr_sf_send_scene_panel_cmd engr_save_scene_link
scene_linkage_scene_exe get_config_path gw_read_file dev_delete_notify engr_gw_unbind_device_inner get_log_path
wd_common_write sync_config engr_end_notify engr_gw_unactive gw_get_channel""".split()


def environment(key=None):
    path = os.path.abspath(BIN_DIR) + os.pathsep + os.environ["PATH"]
    return {**os.environ, "PATH": path, **({"ENGR_LOCAL_KEY": key} if key else {})}


def blocks():
    """The fenced blocks of the document: what stands behind the fence, and the text."""
    with open(DOCUMENT, encoding="utf-8") as file:
        return re.findall(r"^```(\S+(?: \S+)?)\n(.*?)^```$", file.read(), re.MULTILINE | re.DOTALL)


def walk_site():
    """The site of the document; its devices join at once."""
    site = json.loads(dict(blocks())["json site.json"])
    for device in site["joining"]:
        device["join_after_ms"] = 1
    return site


class Commissioning(unittest.TestCase):
    def walk(self, gateway, key):
        with tempfile.TemporaryDirectory() as directory:
            for kind, text in blocks():
                if kind.startswith("json "):
                    with open(os.path.join(directory, kind.split()[1]), "w", encoding="utf-8") as file:
                        file.write(text)
                elif kind == "console":
                    self.run_block(text.replace("127.0.0.2", gateway.address).replace("60", "1"), directory, key)
            with open(os.path.join(directory, "gateway.log"), encoding="utf-8") as file:
                log = file.read()
            self.assertNotIn("installer-token-1", log)
            self.assertNotIn("lamp1", log)

    def run_block(self, text, directory, key):
        for command, expected in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", text, re.MULTILINE):
            done = subprocess.run(command, shell=True, cwd=directory, env=environment(key), text=True, check=False,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE_S)
            pattern = ".*".join(map(re.escape, expected.split("...")))
            # Tables are tab-separated in a pipe; the document shows them as on a terminal.
            self.assertRegex(done.stdout.replace("\t", "  "), "\\A" + pattern + "\\Z", f"expected of: {command}")

    def check_told(self, gateway):
        calls = iter(entry["call"] for entry in gateway.trace())
        for name in CALLS:
            self.assertIn(name, calls, f"expected {name} among what the gateway was told, in the order of the walk")

    def test_the_documented_walk_works_on_a_gateway_that_is_not_activated(self):
        with Gateway(site=walk_site(), trace=True) as gateway:
            self.walk(gateway, None)
            self.check_told(gateway)
            status = gateway.status()
            self.assertEqual((status["gateway"]["active_stat"], status["gateway"]["channel"]), (1, 20))

    def test_the_documented_walk_works_on_an_activated_gateway_until_its_key_changes(self):
        with Gateway(site=walk_site(), trace=True) as gateway:
            gateway.ctl("set", "local_key", LOCAL_KEY)
            gateway.ctl("set", "active_stat", "2")
            self.walk(gateway, LOCAL_KEY)
            self.check_told(gateway)

    def test_a_connection_survives_a_deactivation_and_switches_keys_with_the_next_frame(self):
        with Gateway(site=DEVICES) as gateway:
            gateway.ctl("set", "local_key", LOCAL_KEY)
            gateway.ctl("set", "active_stat", "2")
            command = ["engr_app", "--gateway", gateway.address, "--json", "--accept-deactivated"]
            watcher = subprocess.Popen([*command, "watch"], env=environment(LOCAL_KEY), text=True,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            while gateway.status()["clients"] == 0:
                pass
            gateway.ctl("report", "lamp", '{"1": true}')
            self.assertEqual(json.loads(watcher.stdout.readline())["payload"]["dps"], {"1": True})
            subprocess.run([*command, "deactivate", "--yes"], env=environment(LOCAL_KEY), check=True,
                           capture_output=True, timeout=PATIENCE_S)
            gateway.ctl("report", "lamp", '{"1": false}')
            self.assertEqual(json.loads(watcher.stdout.readline())["payload"]["dps"], {"1": False})
            watcher.send_signal(signal.SIGINT)
            out, errors = watcher.communicate(timeout=PATIENCE_S)
            self.assertEqual((watcher.returncode, out), (0, ""), errors)

    def test_ten_thousand_devices_are_listed_whole_while_others_are_served(self):
        devices = [{"dev_id": f"dev{n:020}", "pid": f"pid{n % 7}", "state": 1, "online": n % 2} for n in range(10_000)]
        with Gateway(site={"devices": devices}) as gateway:
            def app(*arguments):
                done = subprocess.run(["engr_app", "--gateway", gateway.address, "--json", *arguments], text=True,
                                      env=environment(), capture_output=True, check=False, timeout=PATIENCE_S)
                self.assertEqual(done.returncode, 0, done.stderr)
                return json.loads(done.stdout)
            busy = threading.Thread(target=lambda: [app("devices") for _ in range(3)])
            busy.start()
            self.assertEqual(app("ping", "-c", "2", "-i", "0")["answered"], 2)
            busy.join()
            self.assertEqual([(one["cid"], one["online"]) for one in app("devices")],
                             [(one["dev_id"], one["online"] == 1) for one in devices])


if __name__ == "__main__":
    unittest.main()
