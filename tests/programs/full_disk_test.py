"""engr_gatewayd on a disk without room: a small one, mounted in a namespace of this test's own."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from unittest import mock

from gateway import PATIENCE_S, Gateway, program

MOUNT_AND_RUN = 'mount -t tmpfs -o size=8m none "$1" && shift && exec "$@"'
ONE_DEVICE = {"devices": [{"dev_id": "a", "dps": {"1": 0}}]}


class FullDiskTest(unittest.TestCase):
    def fill(self, path):
        """Leaves no byte on the disk."""
        with open(path, "ab", buffering=0) as file, self.assertRaises(OSError):
            while True:
                file.write(bytes(4096))

    def test_an_image_leaves_room_for_everything_else(self):
        with Gateway(site=ONE_DEVICE, scenario={"upgrade": {"never_start": True}}) as gateway:
            image = os.path.join(gateway.directory, "image")
            with open(image, "wb") as file:
                file.truncate(5 << 20)  # a hole, which takes no room
            done = gateway.run_app("upgrade", image, "--version", "2")
            self.assertIn(done.returncode, (1, 4, 5), done.stderr)
            self.assertIn("there is no room for an image", gateway.status()["upgrade"]["reason"])

    def test_a_partial_image_is_removed_before_anything_is_written(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            gateway.stop(signal.SIGKILL)
            part = os.path.join(gateway.data_dir, "firmware.part")
            self.fill(part)
            gateway.start()
            self.assertFalse(os.path.exists(part))
            gateway.ctl("set", "product_key", "new")

    def test_a_full_disk_loses_nothing_that_was_acknowledged(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            push = ("config", "push", "app", "-")
            self.assertEqual(gateway.run_app(*push, text='{"n": 1}').returncode, 0)
            filler = os.path.join(gateway.directory, "filler")
            for _ in range(2):
                self.fill(filler)
                self.assertEqual(gateway.run_app(*push, text='{"n": 2}').returncode, 4)
                self.assertEqual(json.loads(gateway.run_app("config", "pull", "app").stdout), {"n": 1})
                gateway.stop(signal.SIGKILL)
                gateway.start()
            os.remove(filler)
            self.assertEqual(gateway.run_app(*push, text='{"n": 2}').returncode, 0)
            self.assertEqual(json.loads(gateway.run_app("config", "pull", "app").stdout), {"n": 2})

    def test_a_change_without_room_is_refused_and_leaves_the_one_before(self):
        with Gateway(site=ONE_DEVICE) as gateway:
            gateway.ctl("set", "product_key", 0)
            filler = os.path.join(gateway.directory, "filler")
            self.fill(filler)
            for number in range(1, 1000):  # the store's log has room for some
                done = gateway.run_ctl("set", "product_key", number)
                if done.returncode != 0:
                    break
            self.assertIn("the disk is full", done.stderr)
            for _ in range(2):
                self.assertEqual(gateway.status()["gateway"]["product_key"], str(number - 1))
                gateway.stop(signal.SIGKILL)
                gateway.start()
            os.remove(filler)
            gateway.ctl("set", "product_key", "room")

    def test_a_recording_goes_on_when_there_is_room_again_and_counts_what_is_missing(self):
        disk = os.environ["ENGR_SMALL_DISK"]
        record, filler = (os.path.join(disk, name) for name in ("record.jsonl", "filler"))
        # All but the recording has room.
        with mock.patch.object(tempfile, "tempdir", os.path.dirname(disk)), \
                Gateway("--record", record, site=ONE_DEVICE) as gateway:
            self.fill(filler)
            bound = time.monotonic() + PATIENCE_S
            while "--record:" not in gateway.stderr():  # until the last page of the file is full, too
                self.assertLess(time.monotonic(), bound, "expected that the full disk is told")
                self.assertEqual(gateway.run_app("devices").returncode, 0, "the agent works on")
            gateway.run_app("devices")
            os.remove(filler)
            self.assertEqual(gateway.run_app("channel", "get").returncode, 0)
            gateway.stop()
            self.assertEqual(gateway.stderr().count("--record:"), 1, "a full disk is told once")
        done = subprocess.run([program("engr_session"), "check", record], capture_output=True, text=True, check=False,
                              timeout=PATIENCE_S)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertIn("events are missing", done.stderr)
        with open(record, encoding="utf-8") as file:
            kinds = [json.loads(line).get("event") for line in file]
        self.assertEqual(("lost" in kinds, kinds[-1]), (True, "ended"))


def main():
    """Runs this file again on the small disk, where everything temporary then lies."""
    if "ENGR_SMALL_DISK" in os.environ:
        unittest.main()
    if subprocess.run(["unshare", "-rm", "true"], check=False, stderr=subprocess.DEVNULL).returncode != 0:
        print("skipped: this user may not mount a disk in a namespace")
        sys.exit(77)  # of all tests, which ctest shows
    with tempfile.TemporaryDirectory() as disk:
        environment = {**os.environ, "TMPDIR": disk, "ENGR_SMALL_DISK": disk}
        done = subprocess.run(["unshare", "-rm", "sh", "-c", MOUNT_AND_RUN, "sh", disk, sys.executable, *sys.argv],
                              env=environment, timeout=4 * PATIENCE_S, check=False)
    sys.exit(done.returncode)


if __name__ == "__main__":
    main()
