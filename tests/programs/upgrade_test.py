"""Firmware from the app to the gateway and to a device: whole images, and power cut at any moment."""

import hashlib
import os
import random
import signal
import subprocess
import tempfile
import unittest
from unittest import mock

from gateway import PATIENCE_S, Gateway, program
from walk_test import Watcher, app

SITE = {
    "gateway": {"gw_id": "upgradegw%d" % os.getpid(), "gw_sw_ver": "1.0.0"},
    "devices": [{"dev_id": "lamp", "pid": "switch", "sw_ver": "1.0.0", "state": 1, "online": 1}],
}
# Targets of an image: options of the app, and the file that the gateway installs.
TARGETS = {"gateway": ([], "firmware-gateway.bin"), "device": (["--cid", "lamp"], "firmware-device.bin")}
LARGE = 64 << 20
DAMAGED_BYTES = 300_000
QUICK = {"install_ms": 1}
# Chunks of one byte: none of the pulled plugs comes after the last of them, however late it comes.
SLOW = {**QUICK, "chunk_size": 1}
NEVER = {**QUICK, "never_start": True}


def md5(path):
    with open(path, "rb") as file:
        return hashlib.md5(file.read()).hexdigest()


def installed_version(gateway, target):
    """As the gateway tells the app; the announcement of the dry run is none."""
    done = app("--gateway", gateway.address, "upgrade", __file__, "--dry-run", "--version", "0", *TARGETS[target][0])
    return dict(line.split(":", 1) for line in done.stdout.splitlines())["installed version"].strip()


def wait_for_upgrade(gateway, state, received=0):
    def is_so(status):
        return status["upgrade"]["state"] == state and status["upgrade"]["received"] >= received
    return gateway.wait_for(f"an upgrade that is {state} with {received} bytes", is_so)["upgrade"]


def peak_kib(process):
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))


def kill_app(_, running, __):
    running.kill()


def interrupt_app(_, running, __):
    running.send_signal(signal.SIGINT)


def kill_gateway_twice(gateway, *_):
    """The app starts again after the first time."""
    for _ in range(2):
        wait_for_upgrade(gateway, "receiving", received=1)
        gateway.stop(signal.SIGKILL)
        gateway.start()


def damage_image(gateway, _, image):
    """Other bytes than announced, in a way that the app, which looks at the time of the change, doesn't see."""
    before = os.stat(image)
    with open(image, "r+b") as file:
        file.write(b"damaged")
    os.utime(image, ns=(before.st_atime_ns, before.st_mtime_ns))
    gateway.ctl("upgrade", "start")


NOTHING = r"\A\Z"
# Scenario, size of the image, state of the upgrade in which the plug is pulled, by what; exit status and words of the
# app; state and words of the gateway afterwards.
PLUGS = {
    "app killed": (SLOW, LARGE, "receiving", kill_app, -9, NOTHING, "failed", "the app left"),
    "app killed before the first chunk": (NEVER, LARGE, "offered", kill_app, -9, NOTHING, "failed",
                                          "the upgrade ended before its transfer began"),
    "Ctrl-C": (SLOW, LARGE, "receiving", interrupt_app, 130, "interrupted at byte .* ended on the gateway, too",
               "failed", "the app left"),
    "gateway killed twice": (SLOW, LARGE, "receiving", kill_gateway_twice, 5,
                             "(?s)starting again, once.*connection .* was lost at byte", "idle", ""),
    "chunk not taken": ({**QUICK, "fail_at": 9000}, DAMAGED_BYTES, "failed", lambda *_: None, 1, "gave up at byte 0",
                        "failed", "byte 9000 cannot be taken"),
    "image damaged": (NEVER, DAMAGED_BYTES, "offered", damage_image, 1, "received the whole image, but did not install",
                      "failed", "the image is damaged: its MD5"),
}


class Upgrade(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name

    def image(self, size):
        """A new image of this many bytes."""
        path = os.path.join(self.directory, f"image-{size}")
        with open(path, "wb") as file:
            file.write(random.Random(size).randbytes(size))
        return path

    def start(self, gateway, target, image, version, *options):
        command = [program("engr_app"), "--gateway", gateway.address, "upgrade", image, "--version", version,
                   *TARGETS[target][0], *options]
        running = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(running.kill)
        return running

    def check_installed(self, gateway, target, image, version, running):
        """The app brings the image to its end, and the gateway has it as it was sent."""
        out, error = running.communicate(timeout=PATIENCE_S)
        self.assertEqual(running.returncode, 0, error)
        self.assertIn(f"now has version {version} ", out)
        self.assertEqual(md5(os.path.join(gateway.data_dir, TARGETS[target][1])), md5(image))
        status = gateway.status()
        self.assertEqual((status["upgrade"]["state"], status["upgrade"]["version"]), ("installed", version))
        if target == "gateway":
            self.assertEqual(status["gateway"]["gw_sw_ver"], version)
        self.assertEqual(installed_version(gateway, target), version)

    def upgrade(self, gateway, target, image, version):
        self.check_installed(gateway, target, image, version, self.start(gateway, target, image, version))

    def test_images_around_the_chunk_size_arrive_unchanged(self):
        for scenario in (QUICK, {**QUICK, "chunk_size": 65536, "remain_len": 30_000}):
            with Gateway(site=SITE, scenario={"upgrade": scenario}) as gateway:
                for target in TARGETS:
                    for size in (1, 524287, 524288, 524289, 1_000_000):
                        with self.subTest(target=target, size=size, scenario=scenario):
                            self.upgrade(gateway, target, self.image(size), f"2.{size}")

    def test_an_empty_image_is_refused_before_anything_is_sent(self):
        record = os.path.join(self.directory, "frames")
        with Gateway(site=SITE) as gateway:
            done = app("--gateway", gateway.address, "--record", record, "upgrade", self.image(0), "--version", "2.0.1")
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertIn("it is empty", done.stderr)
            self.assertEqual(gateway.status()["upgrade"]["state"], "idle")
            with open(record, encoding="utf-8") as file:
                self.assertNotIn('"event":"frame"', file.read(), "expected that no frame was sent")

    # Blocks that a memory checker sets aside would count as growth.
    @mock.patch.dict(os.environ, ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1")
    def test_a_large_image_needs_no_more_memory_than_a_chunk(self):
        image = self.image(LARGE)
        for target in TARGETS:
            with self.subTest(target=target), Gateway(site=SITE, scenario={"upgrade": QUICK}) as gateway:
                before = peak_kib(gateway.process)
                self.upgrade(gateway, target, image, "2.0.1")
                self.assertLess(peak_kib(gateway.process) - before, 8 << 10, "KiB that the daemon grew by")

    def test_other_apps_see_the_progress_and_the_new_version_of_a_device(self):
        for target, cid, last in (("gateway", SITE["gateway"]["gw_id"], 98), ("device", "lamp", 100)):
            with self.subTest(target=target), Gateway(site=SITE, scenario={"upgrade": QUICK}) as gateway:
                watcher = Watcher(gateway)
                gateway.wait_for_clients(1)
                self.upgrade(gateway, target, self.image(5_000_000), "2.0.1")
                percentages = [0]
                while percentages[-1] < last:
                    report = watcher.report()
                    self.assertEqual((report["event"], report["target"], report["cid"]),
                                     ("upgrade_progress", target, cid))
                    percentages.append(report["percent"])
                self.assertEqual(percentages, sorted(set(percentages)), "expected progress that only grows")
                self.assertGreater(len(percentages), 5, percentages)
                if target == "device":
                    report = watcher.report()
                    self.assertEqual((report["event"], report["version"]), ("version", "2.0.1"))
                self.assertEqual(watcher.end()[:2], (130, ""))

    def test_a_version_that_the_gateway_does_not_want_is_refused(self):
        scenario = {"upgrade": {**QUICK, "refuse_same_version": True}}
        for target in TARGETS:
            with self.subTest(target=target), Gateway(site=SITE, scenario=scenario) as gateway:
                done = app("--gateway", gateway.address, "upgrade", self.image(9), "--version", "1.0.0", "--again",
                           *TARGETS[target][0])
                self.assertEqual(done.returncode, 4, done.stdout)
                self.assertIn("refuse", done.stderr)
                self.assertEqual(gateway.status()["upgrade"]["state"], "refused")
                self.upgrade(gateway, target, self.image(9), "2.0.2")

    def test_a_pulled_plug_leaves_the_old_version_and_the_next_try_works(self):
        large = self.image(LARGE)
        for target in TARGETS:
            for name, plug in PLUGS.items():
                image = large if plug[1] == LARGE else self.image(plug[1])
                with self.subTest(name, target=target), \
                        Gateway(site=SITE, scenario={"upgrade": plug[0]}) as gateway:
                    # After this time without a request for a chunk the app asks how the upgrade stands.
                    options = ["--timeout", "5"] if "fail_at" in plug[0] else []
                    self.pull(gateway, self.start(gateway, target, image, "2.0.1", *options), target, image, *plug[2:])
                    self.try_again(gateway, target, wait_to_be_started=plug[0] is NEVER)

    def pull(self, gateway, running, target, image, state, action, exit_status, app_words, end, gateway_words):
        wait_for_upgrade(gateway, state, received=1 if state == "receiving" else 0)
        action(gateway, running, image)
        out, error = running.communicate(timeout=PATIENCE_S)
        self.assertEqual((running.returncode, out), (exit_status, ""), error)
        self.assertRegex(error, app_words)
        if exit_status > 0:
            self.assertRegex(error, r"1\.0\.0 is (still )?installed")
        self.assertIn(gateway_words, wait_for_upgrade(gateway, end)["reason"])
        self.assertIn(gateway_words, gateway.stderr(), "expected the reason in the log")
        self.assertEqual(installed_version(gateway, target), "1.0.0")
        left = set(os.listdir(gateway.data_dir))
        self.assertNotIn(TARGETS[target][1], left)
        self.assertNotIn("firmware.part", left)

    def try_again(self, gateway, target, wait_to_be_started):
        image = self.image(5000)
        running = self.start(gateway, target, image, "2.0.2")
        if wait_to_be_started:
            while wait_for_upgrade(gateway, "offered")["version"] != "2.0.2":
                pass
            gateway.ctl("upgrade", "start")
        self.check_installed(gateway, target, image, "2.0.2", running)


if __name__ == "__main__":
    unittest.main()
