"""The Python package and a program in C against the real gateway, through the shared library of the C interface."""
import asyncio
import json
import os
import subprocess
import sys
import unittest

from programs.gateway import Gateway as Daemon
from programs.gateway import PATIENCE_S, program

import engr_lan
from engr_lan import Gateway, discover

EXAMPLES = os.path.join(os.path.dirname(engr_lan.__file__), "..", "examples")
SITE = {
    "gateway": {"gw_id": "pythongw00000001"},
    "devices": [
        {"dev_id": "lamp", "pid": "switch", "state": 1, "online": 1, "dps": {"1": True}},
        {"dev_id": "door", "pid": "sensor", "state": 1, "online": 0},
    ],
}


def soon(work):
    """A bound against hanging, not a measure of speed."""
    return asyncio.wait_for(work, PATIENCE_S)


async def first_report(reports, name):
    async for report in reports:
        if report.name == name:
            return report


class Package(unittest.IsolatedAsyncioTestCase):
    async def test_devices_and_data_points_are_read_and_changed_and_the_change_is_reported(self):
        with Daemon(site=SITE) as daemon:
            async with Gateway(daemon.address, interface="lo") as gateway:
                devices = await soon(gateway.devices())
                self.assertEqual([(one.id, one.product_id, one.online) for one in devices],
                                 [("lamp", "switch", True), ("door", "sensor", False)])
                self.assertEqual(await soon(gateway.data_points("lamp")), {"1": True})
                reports = gateway.reports()
                await soon(gateway.set_data_points("lamp", {"1": False}))
                report = await soon(first_report(reports, "FRM_DP_REPORT"))
                self.assertEqual(report.payload["dps"], {"1": False})
                await soon(gateway.query_data_points("lamp", [1]))
                self.assertEqual((await soon(first_report(reports, "FRM_DP_REPORT"))).payload["dps"], {"1": False})

    async def test_what_goes_wrong_is_raised(self):
        with Daemon(site=SITE) as daemon:
            async with Gateway(daemon.address) as gateway:
                with self.assertRaises(engr_lan.Refused) as refused:
                    await soon(gateway.data_points("nobody"))
                self.assertEqual(refused.exception.reason, "devid not found")
                with self.assertRaises(engr_lan.NotAccepted):
                    await soon(gateway.request("FRM_TP_CMD", {"cid": "nobody", "dps": {"1": True}}, timeout=0.05))
                self.assertEqual(await soon(gateway.request("FRM_NOP", {}, timeout=0.05)), "", "it has no answer")
                with self.assertRaises(ValueError):
                    await gateway.request("FRM_NO_SUCH_TYPE")
                reports = gateway.reports()
                daemon.stop()
                with self.assertRaises(engr_lan.LanError) as lost:
                    await soon(anext(reports))
                self.assertEqual(lost.exception.kind, "connection_lost")
                with self.assertRaises(engr_lan.LanError):
                    await soon(gateway.devices())
            with self.assertRaises(ValueError):
                await Gateway(daemon.address, local_key="short").__aenter__()
            daemon.start()

    async def test_a_gateway_is_found_and_read_with_its_own_seeds_only(self):
        other = engr_lan.Seeds(key2="another-seed-002", key3="another-seed-003")
        strangers = []

        async def listen_with_other_seeds():
            async for announced in discover(interface="lo", timeout=None, seeds=other):
                strangers.append(announced)

        with Daemon(site=SITE) as daemon:
            listening = asyncio.create_task(listen_with_other_seeds())
            found = await anext(discover(interface="lo", timeout=PATIENCE_S))
            listening.cancel()
            self.assertEqual((found.id, found.address, found.activated), ("pythongw00000001", daemon.address, False))
            self.assertEqual(strangers, [])
            async with Gateway(daemon.address, seeds=other) as gateway:
                with self.assertRaises(engr_lan.LanError) as failed:
                    await soon(gateway.devices())
                self.assertEqual(failed.exception.kind, "wrong_key")

    async def test_the_log_comes_whole_and_says_how_far_it_is(self):
        with Daemon("--log-level", "4", site=SITE) as daemon:
            steps = []
            async with Gateway(daemon.address) as gateway:
                for _ in range(20):  # each leaves lines in the log
                    await soon(gateway.devices())
                log = await soon(gateway.log(lambda *step: steps.append(step)))
            with open(os.path.join(daemon.data_dir, "engr_gatewayd.log"), "rb") as file:
                self.assertEqual(log, file.read(len(log)))
            self.assertEqual({total for _, total in steps}, {-(-len(log) // 1024) * 1024}, "segments of 1 KiB")

    def image(self, daemon, size=1_500_000):
        path = os.path.join(daemon.directory, "image")
        with open(path, "wb") as file:
            file.write(os.urandom(size))
        return path

    async def test_an_image_is_brought_to_the_gateway_and_to_a_device(self):
        with Daemon(site=SITE) as daemon:
            path, steps = self.image(daemon), []
            async with Gateway(daemon.address) as gateway:
                await soon(gateway.upgrade(path, "2.0.1", on_progress=lambda *step: steps.append(step)))
                self.assertEqual(steps[-1], (1_500_000, 1_500_000))
                self.assertEqual(daemon.status()["gateway"]["gw_sw_ver"], "2.0.1")
                self.assertEqual(await soon(gateway.upgrade(path, "2.0.1")), "2.0.1", "installed already")
                await soon(gateway.upgrade(path, "1.4", "lamp"))
                self.assertEqual(await soon(gateway.upgrade(path, "1.4", "lamp", again=True)), "1.4")
                for error, arguments in [(engr_lan.UnknownDevice, (path, "1.4", "nobody")),
                                         (ValueError, (path, "2.0.1.2.0.12")), (ValueError, ("/no/file", "1"))]:
                    with self.assertRaises(error):
                        await soon(gateway.upgrade(*arguments))

    async def test_an_upgrade_that_the_gateway_gives_up_is_started_once_more(self):
        with Daemon(site=SITE, scenario={"upgrade": {"fail_at": 700_000}}, trace=True) as daemon:
            path = self.image(daemon)
            async with Gateway(daemon.address, timeout=2) as gateway:
                with self.assertRaises(engr_lan.UpgradeFailed):
                    await soon(gateway.upgrade(path, "2.0.1"))
            offers = [entry for entry in daemon.trace() if entry["call"] == "gw_lan_ug_cb"]
            self.assertEqual(len(offers), 2, "expected the image to be offered again, once")

    async def test_an_image_that_is_not_what_was_announced_is_not_installed(self):
        with Daemon(site=SITE, scenario={"upgrade": {"never_start": True}}) as daemon:
            path = self.image(daemon)
            async with Gateway(daemon.address) as gateway:
                upgrade = asyncio.create_task(gateway.upgrade(path, "2.0.1"))
                await soon(asyncio.to_thread(daemon.wait_for, "the offer",
                                             lambda status: status["upgrade"]["state"] == "offered"))
                with open(path, "r+b") as file:
                    file.write(bytes(1000))
                daemon.ctl("upgrade", "start")
                with self.assertRaises(engr_lan.UpgradeFailed) as failed:
                    await soon(upgrade)
                self.assertIn("has the whole image", failed.exception.detail)

    async def test_a_gateway_without_a_network_reports_its_failure_or_appears(self):
        with Daemon("--ap", site=SITE) as daemon:
            async def provision(network, **options):
                return await soon(engr_lan.provision(SITE["gateway"]["gw_id"], network, "sesame", "t0ken",
                                                     interface="lo", **options))
            daemon.ctl("fault", "wf_station_connect", "-1")
            with self.assertRaises(engr_lan.WifiFailure) as failed:
                await provision("garage")
            self.assertEqual((failed.exception.address, failed.exception.result), (daemon.address, -1))
            daemon.wait_for("its own second try",
                            lambda status: status["faults"]["wf_station_connect"]["count"] == 2)
            daemon.ctl("fault", "wf_station_connect", "off")
            sent = []
            found = await provision("office", on_progress=lambda *step: sent.append(step))
            self.assertEqual((found.address, found.needs_wifi_setup, found.interface), (daemon.address, False, "lo"))
            self.assertEqual(daemon.status()["wifi"]["ssid"], "office")
            self.assertEqual(sent[0], (1, 10))

            with self.assertRaises(engr_lan.LanError) as failed:
                await provision("cellar", listen=0)
            self.assertEqual(failed.exception.kind, "not_waiting")
            with self.assertRaises(engr_lan.TimedOut):
                await provision("cellar", force=True, listen=0, timeout=0.01)
            for wrong in ({"network": "n" * 33}, {"network": ""}, {"network": "n", "password": "p" * 250}):
                with self.assertRaises((ValueError, engr_lan.LanError)):
                    await soon(engr_lan.provision(None, **{"password": "", "token": "t0ken", **wrong}, interface="lo"))


class Programs(unittest.TestCase):
    def run_program(self, *command):
        return subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE_S, check=True).stdout

    def test_six_lines_list_the_devices(self):
        path = os.path.join(EXAMPLES, "list_devices.py")
        with open(path, encoding="utf-8") as file:
            self.assertEqual(sum(1 for line in file if not line.startswith("#")), 6)
        with Daemon(site=SITE):
            out = self.run_program(sys.executable, path)
        self.assertIn("Device(id='lamp', product_id='switch', online=True)", out)

    def test_a_program_in_c_lists_the_devices(self):
        with Daemon(site=SITE) as daemon:
            products = json.loads(self.run_program(program("list_devices_c"), daemon.address))["products"]
        self.assertEqual([one["cid"] for one in products], ["lamp", "door"])

    def test_a_program_in_c_gives_a_gateway_its_network_and_an_image(self):
        with Daemon("--ap", site=SITE) as daemon:
            image = os.path.join(daemon.directory, "image")
            with open(image, "wb") as file:
                file.write(bytes(1_500_000))
            out = self.run_program(program("set_up_c"), "lo", SITE["gateway"]["gw_id"], "office", "sesame", "t0ken",
                                   image, "2.0.1")
            status = daemon.status()
        self.assertIn(f"gateway pythongw00000001 has joined at {daemon.address}", out)
        self.assertIn('"upgraded":true', out)
        self.assertEqual((status["wifi"]["ssid"], status["gateway"]["gw_sw_ver"]), ("office", "2.0.1"))


if __name__ == "__main__":
    unittest.main()
