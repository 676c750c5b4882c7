"""engr_gatewayd and engr_gatewayctl: what lasts, what they refuse, how they start and end."""

import json
import os
import random
import re
import signal
import socket
import subprocess
import tempfile
import time
import unittest
import unittest.mock

from gateway import PATIENCE_S, Gateway, own_address, program

ONE_DEVICE = {"gateway": {"gw_id": "gw1"}, "devices": [{"dev_id": "a", "online": True, "dps": {"1": 0}}]}


def last_number(client, before):
    """The last number that a client prints before it ends, or the one before. Lines that were read together with an
    earlier one wait in its stream, where communicate() does not look."""
    with client:
        return int((client.stdout.read().split() or [before])[-1])


class StoreTest(unittest.TestCase):
    def test_acknowledged_changes_survive_kill_at_any_moment(self):
        chance = random.Random(20)
        with Gateway(site=ONE_DEVICE) as gateway:
            written = 0
            for _ in range(8):
                client = subprocess.Popen(["sh", "-c", 'for n in $(seq $1 9999); do "$2" --timeout 60 --data-dir "$3" '
                                           'set product_key "$n" >/dev/null 2>&1 && echo $n || exit; done', "sh",
                                           str(written + 1), program("engr_gatewayctl"), gateway.data_dir],
                                          stdout=subprocess.PIPE, text=True)
                for _ in range(chance.randrange(1, 6)):  # dies with the next change under way
                    written = int(client.stdout.readline())
                time.sleep(chance.random() / 100)
                gateway.stop(signal.SIGKILL)
                written = last_number(client, written)
                gateway.start()
                kept = int(gateway.status()["gateway"]["product_key"])
                self.assertIn(kept, (written, written + 1), "last acknowledged, or the one under way")
                written = kept

    def test_site_is_read_once_and_changes_persist(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            gateway.ctl("set", "gw_id", "")
            gateway.ctl("set", "local_key", "0123456789abcdef")
            self.assertIn("no app is connected", gateway.run_ctl("report", "a", "1=7", "2=true", "3=auto").stderr)
            gateway.stop()
            gateway.start()
            status = gateway.status()
            self.assertEqual(status["gateway"]["gw_id"], "")
            self.assertEqual(status["devices"], 1)
            self.assertNotIn("0123456789abcdef", json.dumps(status))
            self.assertIn("is not used", gateway.stderr())
            self.assertEqual([(each["dev_id"], each["dps"]) for each in gateway.ctl("devices")],
                             [("a", {"1": 7, "2": True, "3": "auto"})])


class SiteTest(unittest.TestCase):
    def test_demo_gateways_on_several_addresses_have_different_ids(self):
        with Gateway() as gateway, Gateway() as other:
            ids = [one.status()["gateway"]["gw_id"] for one in (gateway, other)]
            self.assertNotEqual(*ids)
            for gw_id in ids:
                self.assertRegex(gw_id, "^engrgw[0-9]{10}$")
            gateway.stop()
            gateway.start()
            self.assertEqual(gateway.status()["gateway"]["gw_id"], ids[0])

    def test_ten_thousand_devices_load_and_are_found(self):
        many = {"devices": [{"dev_id": f"d{number}", "dps": {"1": 0}} for number in range(10_000)]}
        with Gateway(site=many) as gateway:
            self.assertEqual(gateway.status()["devices"], 10_000)
            gateway.ctl("device", "d9999", "online", "1")
            gateway.stop(signal.SIGKILL)
            gateway.start()
            self.assertEqual(gateway.status()["devices"], 10_000)


    def test_a_configuration_that_was_acknowledged_survives_kill_at_any_moment(self):
        chance = random.Random(8)
        with Gateway(site=ONE_DEVICE) as gateway:
            pushed = 0
            for _ in range(6):
                client = subprocess.Popen(["sh", "-c", 'for n in $(seq $1 9999); do echo "{\\"n\\": $n}" | "$2" '
                                           '--gateway "$3" config push app - >/dev/null 2>&1 && echo $n || exit; '
                                           'done', "sh",
                                           str(pushed + 1), program("engr_app"), gateway.address],
                                          stdout=subprocess.PIPE, text=True)
                for _ in range(chance.randrange(1, 4)):
                    pushed = int(client.stdout.readline())
                time.sleep(chance.random() / 20)
                gateway.stop(signal.SIGKILL)
                pushed = last_number(client, pushed)
                gateway.start()
                kept = json.loads(gateway.run_app("config", "pull", "app").stdout)["n"]
                self.assertIn(kept, (pushed, pushed + 1), "last acknowledged, or the one under way")
                pushed = kept


class LogTest(unittest.TestCase):
    def test_a_log_that_was_fetched_is_a_copy_and_leaves_nothing(self):
        with Gateway("--log-level", "4", data_dir="a b'c\"$(d);e") as gateway:
            with open(os.path.join(gateway.data_dir, "upload-0009.log"), "w", encoding="utf-8"):
                pass
            gateway.stop()
            gateway.start()
            fetched = os.path.join(gateway.directory, "fetched")
            for _ in range(2):
                done = gateway.run_app("log", fetched, "--force")
                self.assertEqual(done.returncode, 0, done.stderr)
                log_path = os.path.join(gateway.data_dir, "engr_gatewayd.log")
                with open(fetched, "rb") as file, open(log_path, "rb") as log:
                    content = file.read()
                    self.assertEqual(content, log.read(len(content)))
            gateway.stop()
            self.assertEqual([name for name in os.listdir(gateway.data_dir) if name.startswith("upload")], [])
            self.assertNotIn("e", os.listdir(gateway.directory), "no shell may have read the directory's name")


class StartTest(unittest.TestCase):
    def run_daemon(self, *options):
        return subprocess.run([program("engr_gatewayd"), *options], capture_output=True, text=True,
                              timeout=PATIENCE_S, check=False)

    def test_wrong_usage_is_reported_and_exits_with_2(self):
        cases = [
            (["--interface", "nosuch0"], "no interface 'nosuch0'; there are: lo"),
            (["--address", "127.1"], "not an IPv4 address"),
            (["--address", "192.0.2.1"], "not an address of this host"),
            (["--mode", "2"], "--mode"),
            (["--log-level", "6"], "--log-level"),
            (["--site", "/nonexistent/site"], "/nonexistent/site: cannot be read: No such file"),
            (["--trace", "/nonexistent/trace"], "/nonexistent/trace: cannot be written"),
            (["--scenario", os.path.abspath(__file__)], "line 1, column"),
            (["--unknown"], "--unknown"),
        ]
        for options, complaint in cases:
            with self.subTest(options=options):
                done = self.run_daemon(*options, "--data-dir", "/nonexistent/data")
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertIn(complaint, done.stderr)

    def test_directory_that_cannot_be_used_ends_with_1(self):
        done = self.run_daemon("--data-dir", "/proc/nonexistent")
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot enter the data directory '/proc/nonexistent'", done.stderr)
        with Gateway() as gateway:
            done = self.run_daemon("--data-dir", gateway.data_dir)
            self.assertEqual(done.returncode, 1)
            self.assertIn("another engr_gatewayd runs on", done.stderr)
            self.assertTrue(gateway.status()["listening"], "the first one is not disturbed")

    def test_directory_that_is_not_safe_from_others_ends_with_1(self):
        with tempfile.TemporaryDirectory() as directory:
            os.chmod(directory, 0o770)
            done = self.run_daemon("--data-dir", directory)
            self.assertEqual(done.returncode, 1)
            self.assertIn(f"other users may write in the data directory '{directory}'; keep them out with: chmod go-w",
                          done.stderr)
            os.chmod(directory, 0o755)
            for name in ("engr_gatewayd.log", "gateway.db", "gateway.db-wal"):
                os.mkfifo(os.path.join(directory, name))
                done = self.run_daemon("--data-dir", directory)
                self.assertEqual(done.returncode, 1)
                self.assertIn(f"{name} in the data directory '{directory}' is not a regular file", done.stderr)
                os.remove(os.path.join(directory, name))
            if os.geteuid() != 0:
                self.skipTest("only root can give a directory away")
            os.chown(directory, 65534, -1)
            done = self.run_daemon("--data-dir", directory)
            self.assertEqual(done.returncode, 1)
            self.assertIn(f"the data directory '{directory}' belongs to user 65534", done.stderr)
            self.assertEqual(os.listdir(directory), [])

    def test_files_are_private_but_configurations_are_as_the_agent_makes_them(self):
        with Gateway(site=ONE_DEVICE, trace=True) as gateway:
            for kind in ("app", "cloud"):
                self.assertEqual(gateway.run_app("config", "push", kind, "-", "--yes", text="{}").returncode, 0)
            modes = {name: os.stat(os.path.join(gateway.data_dir, name)).st_mode & 0o777
                     for name in os.listdir(gateway.data_dir)}
            configs = {name: modes.pop(name) for name in ("app.config", "cloud.config")}
            self.assertEqual(configs, {"app.config": 0o755, "cloud.config": 0o755})
            self.assertEqual(set(modes.values()), {0o600}, modes)
            self.assertEqual(os.stat(gateway.data_dir).st_mode & 0o777, 0o700)
            self.assertEqual(os.stat(os.path.join(gateway.directory, "trace.jsonl")).st_mode & 0o777, 0o600)

    def test_a_pipe_in_the_place_of_a_configuration_does_not_block_the_server(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            os.mkfifo(os.path.join(gateway.data_dir, "app.config"))
            self.assertEqual(gateway.run_app("config", "push", "app", "-", text="{}").returncode, 0)
            self.assertEqual(gateway.run_app("config", "pull", "app").stdout, "{}\n")

    def test_taken_port_ends_the_start_or_is_used_once_free(self):
        address = own_address()
        with socket.socket() as other:
            other.bind((address, 6668))
            other.listen()
            ended = Gateway(address=address, ready=False)
            self.assertEqual((ended.read_line(), ended.wait()), ("", 1))
            self.assertIn(f"6668 on lo ({address}) is taken by another program, perhaps another gateway; end that",
                          ended.stderr())
            ended.close()
            gateway = Gateway("--log-level", "0", "--wait-for-address", address=address, ready=False)
            bound = time.monotonic() + PATIENCE_S
            while "is taken by another program" not in gateway.stderr():
                self.assertLess(time.monotonic(), bound, gateway.stderr())
                time.sleep(0.02)
        with gateway:
            self.assertIn(f"ready: tcp 6668 on lo ({address}), gateway ", gateway.read_line())

    def test_its_terminal_tells_what_apps_do_and_the_log_only_when_asked(self):
        told = ["connected", "set the channel to 14", "was refused: ", "disconnected"]
        for options, has_activity, has_log in (([], True, False), (["--quiet"], False, False),
                                               (["--log-level", "4"], True, True)):
            with self.subTest(options=options), Gateway(*options, site=ONE_DEVICE) as gateway:
                app = gateway.address
                for channel, code in (("14", 0), ("9", 4)):
                    self.assertEqual(gateway.run_app("channel", "set", "--force", channel).returncode, code)
                    gateway.wait_for_clients(0)  # or the next one is told before this one's end
                gateway.stop()
                lines = [line[9:] for line in gateway.stderr().splitlines() if re.match(r"\d\d:\d\d:\d\d ", line)]
                shown = [next((word for word in told if f"127.0.0.1 {word}" in line), line) for line in lines]
                self.assertEqual(shown, ["connected", told[1], "disconnected", "connected", told[2], "disconnected"]
                                 if has_activity else [], f"{app}: {gateway.stderr()}")
                self.assertEqual("frame_reader.cpp" in gateway.stderr(), has_log)
                with open(os.path.join(gateway.data_dir, "engr_gatewayd.log"), encoding="utf-8") as log:
                    self.assertIn("frame_reader.cpp", log.read())

    def test_a_pushed_configuration_is_told_and_a_read_one_is_not(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            for _ in range(2):
                self.assertEqual(gateway.run_app("config", "push", "app", "-", text='{"n": 1}').returncode, 0)
                self.assertEqual(gateway.run_app("config", "pull", "app").returncode, 0)
            self.assertEqual(gateway.run_app("config", "push", "cloud", "-", "--yes", text='{"n": 2}').returncode, 0)
            pushes = {" pushed app.config, 8 bytes": 2, "127.0.0.1 pushed cloud.config, 8 bytes": 1}
            bound = time.monotonic() + PATIENCE_S
            while {words: gateway.stderr().count(words) for words in pushes} != pushes:
                self.assertLess(time.monotonic(), bound, gateway.stderr())
                time.sleep(0.02)

    def test_the_service_manager_is_told_when_it_is_ready_and_when_it_ends(self):
        with tempfile.TemporaryDirectory() as directory, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(os.path.join(directory, "notify"))
            manager.settimeout(PATIENCE_S)
            with unittest.mock.patch.dict(os.environ, NOTIFY_SOCKET=os.path.join(directory, "notify")):
                gateway = Gateway(site=ONE_DEVICE)
            with gateway:
                self.assertRegex(manager.recv(4096).decode(),
                                 rf"\AREADY=1\nSTATUS=tcp 6668 on lo \({gateway.address}\), gateway gw1 ")
                gateway.stop()
                self.assertEqual(manager.recv(4096), b"STOPPING=1")

    def test_wechat_mode_is_ready_without_a_server(self):
        with Gateway("--mode", "1", trace=True) as gateway:
            self.assertIn(f"ready: wechat on lo ({gateway.address}), gateway ", gateway.ready_line)
            self.assertFalse(gateway.status()["listening"])
            self.assertEqual(gateway.trace()[0], {"call": "ak_lan_rev_active_task", "args": {}, "result": None})


class ControlTest(unittest.TestCase):
    def test_directories_of_any_name_work(self):
        for name in ("a b'c\"$(d);e", "/".join(["x" * 200] * 30)):
            with self.subTest(name=name[:20]), Gateway(data_dir=name) as gateway:
                self.assertEqual(gateway.status()["clients"], 0)
                self.assertEqual(sorted(os.listdir(gateway.directory)), sorted(["stderr", name.split("/")[0]]))

    def test_refusals_list_the_valid_names(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            cases = [
                (["nosuch"], 2, "unknown verb 'nosuch'; there are: status devices set"),
                (["set", "gw_id"], 2, "usage: set FIELD VALUE"),
                (["set", "nosuch", "1"], 2, "no such field; there are: nw_cfg_stat"),
                (["set", "local_key", "short"], 2, "a key has 16, or none"),
                (["device", "z", "online", "1"], 1, "unknown device z"),
                (["join", "z"], 1, "joining is closed"),
                (["report", "a", "{"], 2, "is not valid JSON"),
                (["report", "a", "1=true", "2"], 2, "'2' is not DP=VALUE"),
                (["report", "a", "1=true"], 1, "are stored, but no app is connected"),
                (["fault", "nosuch", "1"], 2, "no such service; there are:"),
                (["callback", "nosuch", "absent"], 2, "no such callback; there are:"),
                (["network", "sideways"], 2, "neither up nor down"),
                (["call", "nosuch"], 2, "no such function; there are: engr_lan_pro_cntl_init"),
                (["call", "engr_lan_data_report_cb", "8", "0", "abc", "4"], 2, "only 3 bytes"),
                (["set", "wf_ssid", b"\xff"], 2, "not valid UTF-8"),
            ]
            for arguments, status, complaint in cases:
                with self.subTest(arguments=arguments):
                    done = subprocess.run([program("engr_gatewayctl"), "--timeout", "60", "--data-dir",
                                           gateway.data_dir, *arguments],
                                          capture_output=True, text=True, timeout=PATIENCE_S, check=False)
                    self.assertEqual((done.returncode, done.stdout), (status, ""))
                    self.assertIn(complaint, done.stderr)
            gateway.stop()
            done = gateway.run_ctl("status")
            self.assertEqual(done.returncode, 1)
            self.assertIn(f"no gateway runs on '{gateway.data_dir}'; start one with: engr_gatewayd", done.stderr)

    def test_the_control_client_finds_the_gateway_that_runs(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            done = subprocess.run([program("engr_gatewayctl"), "--timeout", "60", "status"], capture_output=True,
                                  text=True, timeout=PATIENCE_S, check=False, cwd=gateway.directory)
            if done.returncode == 0:
                self.assertEqual(json.loads(done.stdout)["gateway"]["gw_id"], gateway.status()["gateway"]["gw_id"])
            else:  # others run on this machine, too
                self.assertRegex(done.stderr, f"^engr_gatewayctl: several gateways run; .* {gateway.data_dir}( |$)")

    def test_a_daemon_that_does_not_answer_is_an_error(self):
        with Gateway() as gateway:
            gateway.process.send_signal(signal.SIGSTOP)
            done = subprocess.run([program("engr_gatewayctl"), "--timeout", "1", "--data-dir", gateway.data_dir,
                                   "status"],
                                  capture_output=True, text=True, timeout=PATIENCE_S, check=False)
            gateway.process.send_signal(signal.SIGCONT)
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertIn("has not answered for 1 s", done.stderr)

    def test_a_control_client_that_was_stopped_waits_on(self):
        with tempfile.TemporaryDirectory() as directory, socket.socket(socket.AF_UNIX) as daemon:
            daemon.bind(os.path.join(directory, "control.sock"))
            daemon.listen()
            client = subprocess.Popen([program("engr_gatewayctl"), "--timeout", "60", "--data-dir", directory,
                                       "status"], stdout=subprocess.PIPE, text=True)
            with client, daemon.accept()[0] as connection:
                connection.recv(4096)
                client.send_signal(signal.SIGSTOP)
                os.waitpid(client.pid, os.WUNTRACED)
                client.send_signal(signal.SIGCONT)
                connection.sendall(b'{"result":7}\n')
                self.assertEqual((client.communicate(timeout=PATIENCE_S)[0], client.returncode), ("7\n", 0))

    def test_silent_clients_do_not_delay_others(self):
        with Gateway() as gateway:
            self.assertEqual(os.stat(os.path.join(gateway.data_dir, "control.sock")).st_mode & 0o777, 0o600)
            silent = [socket.socket(socket.AF_UNIX) for _ in range(3)]
            for client in silent:
                client.connect(os.path.join(gateway.data_dir, "control.sock"))
                client.send(b'{"verb": ')
            self.assertEqual(gateway.ctl("call", "engr_lan_pro_cntl_get_valid_connect_cnt"), {"result": 0})
            self.assertEqual(gateway.stop(), 0)
            for client in silent:
                client.close()

    def test_every_exported_function_can_be_called(self):
        header = os.path.join(os.path.dirname(__file__), "../../svc_engineering_mode/include/engr_lan_agent.h")
        with open(header, encoding="utf-8") as file:
            declared = re.findall(r"^(?:int32_t|void) (\w+)\(", file.read(), re.MULTILINE)
        with Gateway(site=ONE_DEVICE) as gateway:
            known = gateway.run_ctl("call", "nosuch").stderr.split("there are:")[1].split()
            self.assertEqual(sorted(known), sorted(declared))

    def test_exported_functions_are_called_with_what_is_given(self):
        with Gateway() as gateway:
            for arguments, result in [(["engr_lan_sub_dev_bind_report", "a"], -2), (["engr_lan_pro_cntl_init"], 0),
                                      (["engr_lan_gw_unactive_report"], -940), (["lpc_close_all_socket"], None),
                                      (["engr_rpt_upload_upgrade_percent", "50", "a", "1"], -940),
                                      (["engr_lan_sub_dev_unbind_report"], -2), (["engr_lan_dp_sata_report"], -940),
                                      (["lan_gw_start_upgrade", "a", "1", "5"], 0), (["kelo_net_recv_nd_size"], -1),
                                      (["engr_lan_get_tcp_key"], 0),
                                      (["engr_lan_gw_subdevice_update", "z", "2", "10", "0", "0"], -901),
                                      (["engr_lan_pro_cntl_exit"], 0), (["engr_lan_pro_cntl_exit"], 0)]:
                self.assertEqual(gateway.ctl("call", *arguments), {"result": result}, arguments)
            status = gateway.status()
            self.assertFalse(status["started"] or status["listening"])

    def test_callbacks_are_absent_or_return_the_given_result(self):
        with Gateway(scenario={"callbacks": {"permit_join": "absent", "scene_exec": -3}}) as gateway:
            callbacks = gateway.status()["callbacks"]
            self.assertEqual(callbacks["scene_exec"], {"result": -3, "count": 0})
            self.assertEqual(callbacks["permit_join"]["result"], "absent")
            gateway.ctl("callback", "permit_join", "present")
            gateway.ctl("callback", "scene_exec", "absent")
            callbacks = gateway.status()["callbacks"]
            self.assertEqual(callbacks["permit_join"]["result"], "present")
            self.assertEqual(callbacks["scene_exec"]["result"], "absent")


if __name__ == "__main__":
    unittest.main()
