"""The programs on hosts of their own: what is found, what a cut cable does to it, and the provisioning walk."""

import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest

from gateway import PATIENCE_S, Gateway, program
from hosts import Network

SITE = {"gateway": {"gw_id": "netgw1"}, "devices": [{"dev_id": "lamp", "online": 1, "dps": {"1": 0}}]}


def command(host, *arguments):
    return [*host.enter, program("engr_app"), "--interface", "eth0", *arguments]


def app(host, *arguments):
    """Runs engr_app on a host; the finished process with its texts."""
    return subprocess.run(command(host, *arguments), capture_output=True, text=True, timeout=PATIENCE_S, check=False)


def start_app(host, *arguments):
    return subprocess.Popen(command(host, *arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def end(process):
    process.send_signal(signal.SIGINT)
    return process.communicate(timeout=PATIENCE_S)


class SilentPeer:
    """A watching app whose cable is cut. It takes the gateway more than half a minute to notice."""

    def __init__(self):
        self.network = Network("gateway", "app")
        self.host = self.network.hosts["app"]
        self.gateway = Gateway(host=self.network.hosts["gateway"], site=SITE)
        self.watcher = start_app(self.host, "--gateway", self.gateway.address, "--json", "watch")
        self.gateway.wait_for("one client", lambda status: status["clients"] == 1)
        self.gateway.ctl("report", "lamp", '{"1": 1}')
        self.watcher.stdout.readline()
        self.host.cut()

    def close(self):
        self.watcher.kill()
        self.watcher.communicate()
        self.gateway.close()
        self.network.close()


def setUpModule():
    global silent_peer
    try:
        with Network("host"):
            pass
    except OSError as problem:
        print(f"skipped: no hosts in network namespaces here: {problem}")
        sys.exit(77)  # of all tests, which ctest shows
    # Its time passes while the other tests run.
    silent_peer = SilentPeer()
    unittest.addModuleCleanup(silent_peer.close)


class NetworkTest(unittest.TestCase):
    def setUp(self):
        network = Network("gateway", "first", "second")
        self.addCleanup(network.close)
        self.first, self.second = network.hosts["first"], network.hosts["second"]
        self.gateway_host = network.hosts["gateway"]

    def check(self, host, *arguments, code=0, word=""):
        done = app(host, *arguments)
        self.assertEqual(done.returncode, code, f"{arguments}: {done.stdout}{done.stderr}")
        self.assertIn(word, done.stdout if code == 0 else done.stderr)

    def test_a_gateway_is_found_from_every_host_with_the_address_it_has_now(self):
        with Gateway(host=self.gateway_host, site=SITE):
            for move in (False, True):
                if move:
                    self.gateway_host.move(self.gateway_host.address.replace(".0.1", ".0.77"))
                finders = [start_app(host, "--json", "discover") for host in (self.first, self.second)]
                for finder in finders:
                    out, err = finder.communicate(timeout=PATIENCE_S)
                    found = [(one["id"], one["address"], one["told_address"]) for one in json.loads(out)]
                    self.assertEqual(found, [("netgw1", self.gateway_host.address, self.gateway_host.address)], err)
                self.check(self.second, "devices", "--gateway", self.gateway_host.address, word="lamp")
            self.gateway_host.cut()
            self.check(self.second, "devices", "--gateway", self.gateway_host.address, "--timeout", "1", code=5,
                       word="can't be reached")
            self.gateway_host.plug()
            self.check(self.first, "devices", "--gateway", "netgw1", word="lamp")

    def test_a_cut_during_a_request_is_reported_and_affects_no_other_app(self):
        with Gateway(host=self.gateway_host, site=SITE) as gateway:
            chosen = ("devices", "--gateway", gateway.address)
            gateway.process.send_signal(signal.SIGSTOP)  # so that it has the request, but has not answered
            asking = start_app(self.first, *chosen, "-v", "--timeout", "2")
            self.assertIn("FRM_DEV_LIST", asking.stderr.readline())
            self.first.cut()
            gateway.process.send_signal(signal.SIGCONT)
            self.check(self.second, *chosen, word="lamp")
            with asking:
                err = asking.stderr.read()  # also what came together with its first line
            self.assertEqual(asking.returncode, 5)
            self.assertIn("did not answer within 2 s", err)
            self.check(self.first, *chosen, "--timeout", "1", code=5, word="can't be reached")
            self.first.plug()
            self.check(self.first, *chosen, word="lamp")

    def test_reports_of_a_short_cut_come_late_but_once_and_to_others_at_once(self):
        with Gateway(host=self.gateway_host, site=SITE) as gateway:
            watchers = [start_app(host, "--gateway", gateway.address, "--json", "watch")
                        for host in (self.first, self.second)]
            try:
                gateway.wait_for("two clients", lambda status: status["clients"] == 2)
                for value in (1, 2, 3):
                    if value == 2:
                        self.first.cut()
                    self.assertEqual(gateway.ctl("report", "lamp", f'{{"1": {value}}}')["result"], 0)
                    self.assertEqual(json.loads(watchers[1].stdout.readline())["dps"], {"1": value})
                self.first.plug()
                shown = [json.loads(watchers[0].stdout.readline())["dps"]["1"] for _ in range(3)]
                self.assertEqual(shown, [1, 2, 3])
            finally:
                ends = [end(watcher) for watcher in watchers]
            for out, err in ends:
                self.assertEqual((out, "connection" in err), ("", False), f"each report once, no new connection: {err}")

    def test_a_cut_during_an_upgrade_ends_it_on_both_sides_and_the_next_one_works(self):
        with tempfile.NamedTemporaryFile() as image, Gateway(host=self.gateway_host, site=SITE,
                                                             scenario={"upgrade": {"chunk_size": 1}}) as gateway:
            image.write(os.urandom(4_000_000))
            image.flush()
            chosen = ("upgrade", image.name, "--version", "2.0.1", "--gateway", gateway.address)
            # It stays to the end: an upgrade fails when any app leaves.
            watcher = start_app(self.second, "--gateway", gateway.address, "--json", "watch")
            try:
                gateway.wait_for("the watcher", lambda status: status["clients"] == 1)
                running = start_app(self.first, *chosen, "--timeout", "2")
                gateway.wait_for("a chunk", lambda status: status["upgrade"]["received"] > 0)
                self.first.cut()
                _, err = running.communicate(timeout=PATIENCE_S)
                self.assertEqual(running.returncode, 5)
                self.assertRegex(err, "at byte [1-9][0-9]* of 4000000")
                gateway.ctl("report", "lamp", '{"1": 1}')
                while '"dps"' not in (line := watcher.stdout.readline()):
                    self.assertNotEqual(line, "", "the watcher ended without the report")
                self.first.plug()
                status = gateway.wait_for("the end of the lost app and of its upgrade",
                                          lambda now: (now["clients"], now["upgrade"]["state"]) == (1, "failed"))
                self.assertNotEqual(status["gateway"]["gw_sw_ver"], "2.0.1")
                image.truncate(10_000)
                self.check(self.first, *chosen, word="version 2.0.1")
                self.assertEqual(gateway.status()["gateway"]["gw_sw_ver"], "2.0.1")
            finally:
                end(watcher)


class ProvisionTest(unittest.TestCase):
    def test_a_gateway_that_could_not_join_reports_it_on_its_network_only_and_joins_at_the_second_try(self):
        with Network("gateway", "app") as network, Network("bystander") as other:
            for host in network.hosts.values():
                other.connect(host)
            host = network.hosts["app"]
            with Gateway("--ap", host=network.hosts["gateway"], site=SITE) as gateway:
                def provision(name, *more):
                    return app(host, "provision", "--ssid", name, "--password", "sesame", "--token", "t0ken",
                               "--yes", *more)
                gateway.ctl("fault", "wf_station_connect", "-1")
                done = provision("garage", "--plain")
                self.assertEqual(done.returncode, 4, done.stdout)
                self.assertIn("could not join network garage", done.stderr)
                gateway.wait_for("its own second try",
                                 lambda status: status["faults"]["wf_station_connect"]["count"] == 2)
                gateway.ctl("fault", "wf_station_connect", "off")
                done = provision("office", "--gateway", "netgw1")
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertIn(f"gateway netgw1 appeared at {gateway.address}", done.stdout)
                status = gateway.status()
                self.assertEqual((status["wifi"]["ssid"], status["gateway"]["nw_cfg_stat"], status["token_bound"]),
                                 ("office", 0, True))
            self.assertGreater(host.received(), 0)
            self.assertEqual(other.hosts["bystander"].received(), 0, "broadcasts stay on the interface named")


class SilentPeerTest(unittest.TestCase):
    def test_a_silent_peer_is_dropped_and_connects_again_when_its_cable_is_back(self):
        gateway, watcher = silent_peer.gateway, silent_peer.watcher
        # The keep-alive of TCP takes 35 s; without it a client stays for two minutes.
        gateway.wait_for("no client", lambda status: status["clients"] == 0)
        silent_peer.host.plug()
        gateway.wait_for("the client", lambda status: status["clients"] == 1)
        gateway.ctl("report", "lamp", '{"1": 2}')
        self.assertEqual(json.loads(watcher.stdout.readline())["dps"], {"1": 2})
        _, err = end(watcher)
        self.assertRegex(err, "(?s)lost the connection: reports may be missed from here.*reconnected")


if __name__ == "__main__":
    unittest.main()
