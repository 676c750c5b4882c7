"""The programs with each other: an app finds a gateway, sees its devices and its reports, whatever other clients do."""

import json
import os
import signal
import socket
import subprocess
import unittest

from gateway import PATIENCE_S, Gateway, program
from lan_codec import FRM_DEV_LIST, FRM_KEEPALIVE, FRM_RAW_34, frame, request

LOCAL_KEY = "0123456789abcdef"
SITE = {
    "gateway": {"gw_id": "walkgw%d" % os.getpid()},
    "devices": [
        {"dev_id": "lamp", "pid": "switch", "state": 1, "online": 1, "dps": {"1": True}},
        {"dev_id": "door", "pid": "sensor", "state": 1, "online": 0},
    ],
}


def app(*arguments, environment=None):
    """Runs engr_app; the finished process with its texts."""
    return subprocess.run([program("engr_app"), *arguments], capture_output=True, text=True, timeout=PATIENCE_S,
                          check=False, env={**os.environ, **(environment or {})})


class Watcher:
    """engr_app watch in the background."""

    def __init__(self, gateway, *arguments):
        command = [program("engr_app"), "--gateway", gateway.address, "--json", *arguments, "watch"]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def report(self):
        return json.loads(self.process.stdout.readline())

    def end(self):
        self.process.send_signal(signal.SIGINT)
        out, error = self.process.communicate(timeout=PATIENCE_S)
        return self.process.returncode, out, error


class Walk(unittest.TestCase):
    def test_an_app_finds_the_gateway_and_sees_its_devices(self):
        with Gateway(site=SITE) as gateway:
            gw_id = SITE["gateway"]["gw_id"]
            self.assertEqual(gateway.ready_line, f"ready: tcp 6668 on lo ({gateway.address}), gateway {gw_id} with "
                             f"2 devices, data in {gateway.data_dir}")
            found = json.loads(app("--json", "discover").stdout)
            self.assertIn((gw_id, gateway.address), [(one["id"], one["address"]) for one in found])
            for chosen in (gw_id, gateway.address):
                devices = json.loads(app("--gateway", chosen, "--json", "devices").stdout)
                self.assertEqual([(one["cid"], one["pid"], one["online"]) for one in devices],
                                 [("lamp", "switch", True), ("door", "sensor", False)])
            self.assertEqual(app("--gateway", gateway.address, "ping", "-c", "1").returncode, 0)
            self.assertIn("right", app("--gateway", gateway.address, "info").stdout)

    def test_an_activated_gateway_requires_its_own_key(self):
        with Gateway(site=SITE) as gateway:
            gateway.ctl("set", "local_key", LOCAL_KEY)
            gateway.ctl("set", "active_stat", "2")
            for key, status, word in ((None, 6, "--local-key"), ("X" * 16, 6, "not the gateway's"), (LOCAL_KEY, 0, "")):
                done = app("--gateway", gateway.address, "devices", environment={"ENGR_LOCAL_KEY": key or ""})
                self.assertEqual(done.returncode, status, done.stderr)
                self.assertIn(word, done.stderr)
            gateway.run_ctl("report", "lamp", '{"1": false}')
            self.assertNotIn(LOCAL_KEY, gateway.stderr(), "no key may stand in the log")

    def test_ten_watchers_see_every_report_and_an_eleventh_app_explains_its_failure(self):
        with Gateway(site=SITE) as gateway:
            watchers = [Watcher(gateway) for _ in range(10)]
            try:
                gateway.wait_for_clients(10)
                refused = app("--gateway", gateway.address, "devices")
                self.assertEqual(refused.returncode, 5)
                self.assertIn("10", refused.stderr)
                self.assertEqual(gateway.ctl("report", "lamp", '{"1": false}')["result"], 0)
                self.assertEqual(gateway.ctl("call", "engr_lan_sub_dev_bind_report", "new", "p")["result"], 0)
                for watcher in watchers:
                    report = watcher.report()
                    self.assertEqual((report["event"], report["cid"], report["dps"]),
                                     ("data_points", "lamp", {"1": False}))
                    self.assertEqual(watcher.report()["devices"], [{"cid": "new", "pid": "p"}])
            finally:
                ends = [watcher.end() for watcher in watchers]
            self.assertEqual([status for status, _, _ in ends], [130] * 10, ends)

    def test_hostile_clients_do_not_disturb_the_others(self):
        with Gateway(site=SITE) as gateway, socket.create_connection((gateway.address, 6668)) as sound:
            sound_request = request(1, FRM_DEV_LIST)
            hostile = (b"", b"\x00", os.urandom(700), sound_request[:-1], sound_request[:-4] + b"\x00" * 4,
                       sound_request[:12] + b"\xff" * 12, request(1, FRM_KEEPALIVE, b"payload"),
                       request(1, 100, b"no cipher"), request(1, FRM_RAW_34, b"raw"), request(1, 2**31, b"x" * 16),
                       b"\x00\x00\x55\xaa" * 100)
            for turn in range(1000):
                with socket.create_connection((gateway.address, 6668)) as client:
                    client.sendall(hostile[turn % len(hostile)])
                sound.sendall(request(turn, FRM_KEEPALIVE))
                answer = sound.recv(28, socket.MSG_WAITALL)
                self.assertEqual(answer, frame(0, FRM_KEEPALIVE, 0), "the keep-alive's answer")
            self.assertEqual(app("--gateway", gateway.address, "devices").returncode, 0)

    def test_ctrl_c_under_load_stops_the_daemon_cleanly(self):
        with Gateway(site=SITE) as gateway:
            deaf = [socket.create_connection((gateway.address, 6668)) for _ in range(9)]
            try:
                for one in deaf:
                    one.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                    one.sendall(request(1, FRM_DEV_LIST) * 20)
                deaf[0].sendall(request(1, FRM_DEV_LIST, b"x" * 100_000)[:50_000])
                for _ in range(20):
                    gateway.ctl("report", "lamp", '{"1": true}')
                self.assertEqual(gateway.stop(signal.SIGINT), 0)
            finally:
                for one in deaf:
                    one.close()

    def test_the_agent_starts_and_stops_under_connected_apps(self):
        with Gateway(site=SITE) as gateway:
            watcher = Watcher(gateway)
            gateway.wait_for_clients(1)
            for _ in range(20):
                self.assertEqual(gateway.ctl("call", "engr_lan_pro_cntl_exit")["result"], 0)
                self.assertEqual(gateway.ctl("call", "engr_lan_pro_cntl_init", 0)["result"], 0)
            self.assertEqual(app("--gateway", gateway.address, "devices").returncode, 0)
            self.assertEqual(watcher.end()[0], 130)


if __name__ == "__main__":
    unittest.main()
