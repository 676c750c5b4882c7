"""The commissioning walk of the documents, done as it stands there, and large gateways."""

import json
import os
import signal
import subprocess
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor

from documents import Player, read_page
from gateway import BIN_DIR, PATIENCE_S, Gateway

PAGE = "docs/commissioning.md"
LOCAL_KEY = "0123456789abcdef"
DEVICES = {"devices": [{"dev_id": "lamp", "pid": "switch", "state": 1, "online": 1}]}
# Calls that the gateway received in this order, perhaps with others in between.
CALLS = """gw_set_channel gw_get_channel permit_join gw_engineer_add_sub_dev_to_list engr_gw_cntl_init_local
engr_gw_user_token_bind dev_delete_notify engr_gw_unbind_device_inner engr_sf_send_gw_dev_cmd
engr_sf_pack_local_obj_dp_data engr_sf_respone_obj_dp_query engr_sf_send_grp_oper_cmd engr_sf_send_gw_dev_cmd
engr_sf_send_scene_oper_cmd scene_exec engr_sf_send_scene_panel_cmd engr_save_scene_link scene_linkage_scene_exe
get_config_path gw_read_file dev_delete_notify engr_gw_unbind_device_inner get_log_path wd_common_write sync_config
engr_end_notify engr_gw_unactive gw_get_channel""".split()


def environment(key=None):
    path = os.path.abspath(BIN_DIR) + os.pathsep + os.environ["PATH"]
    return {**os.environ, "PATH": path, **({"ENGR_LOCAL_KEY": key} if key else {})}


class Commissioning(unittest.TestCase):
    def play(self, key=None):
        """Plays the page, with the key of a gateway that is activated. Returns what was called, and the log."""
        def activate(text):
            gateway = json.dumps({"gateway": {"active_stat": 2, "local_key": key}})
            text = text.replace("lo         no", "lo         yes", 1)
            return text.replace('{"products"', gateway[:-1] + ', "products"', 1) if '"joining"' in text else text
        with tempfile.TemporaryDirectory(prefix="engr-page-") as directory:
            player = Player(directory, {"ENGR_LOCAL_KEY": key} if key else {}, activate if key else lambda text: text)
            player.play(read_page(PAGE))
            with open(os.path.join(directory, "trace.jsonl"), encoding="utf-8") as trace:
                with open(os.path.join(directory, "gateway.log"), encoding="utf-8") as log:
                    return [json.loads(line)["call"] for line in trace], log.read()

    def test_the_gateway_is_told_what_the_walk_says_whether_it_is_activated_or_not(self):
        for key in (None, LOCAL_KEY):
            with self.subTest(key=key):
                calls, log = self.play(key)
                calls = iter(calls)
                for name in CALLS:
                    self.assertIn(name, calls, "expected among what the gateway was told, in the order of the walk")
                self.assertNotIn("installer-token-1", log)
                self.assertNotIn("lamp1", log)

    def test_a_connection_survives_a_deactivation_and_switches_keys_with_the_next_frame(self):
        with Gateway(site=DEVICES) as gateway:
            gateway.ctl("set", "local_key", LOCAL_KEY)
            gateway.ctl("set", "active_stat", "2")
            command = ["engr_app", "--gateway", gateway.address, "--json", "--accept-deactivated"]
            watcher = subprocess.Popen([*command, "watch"], env=environment(LOCAL_KEY), text=True,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            gateway.wait_for_clients(1)
            gateway.ctl("report", "lamp", '{"1": true}')
            self.assertEqual(json.loads(watcher.stdout.readline())["dps"], {"1": True})
            subprocess.run([*command, "deactivate", "--yes"], env=environment(LOCAL_KEY), check=True,
                           capture_output=True, timeout=PATIENCE_S)
            gateway.ctl("report", "lamp", '{"1": false}')
            self.assertEqual(json.loads(watcher.stdout.readline())["dps"], {"1": False})
            watcher.send_signal(signal.SIGINT)
            out, errors = watcher.communicate(timeout=PATIENCE_S)
            self.assertEqual((watcher.returncode, out), (130, ""), errors)

    def test_ten_thousand_devices_are_listed_whole_while_others_are_served(self):
        devices = [{"dev_id": f"dev{n:020}", "pid": f"pid{n % 7}", "state": 1, "online": n % 2} for n in range(10_000)]
        with Gateway(site={"devices": devices}) as gateway:
            def app(*arguments):
                done = subprocess.run(["engr_app", "--gateway", gateway.address, "--json", *arguments], text=True,
                                      env=environment(), capture_output=True, check=False, timeout=PATIENCE_S)
                self.assertEqual(done.returncode, 0, done.stderr)
                return json.loads(done.stdout)
            with ThreadPoolExecutor() as others:
                busy = others.submit(lambda: [app("devices") for _ in range(3)])
                self.assertEqual(app("ping", "-c", "2", "-i", "0")["answered"], 2)
                busy.result()
            self.assertEqual([(one["cid"], one["online"]) for one in app("devices")],
                             [(one["dev_id"], one["online"] == 1) for one in devices])


if __name__ == "__main__":
    unittest.main()
