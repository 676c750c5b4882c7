"""An app with several network interfaces: where it hears gateways, how it reaches them, and where secrets go."""

import json
import subprocess
import sys
import unittest

from gateway import PATIENCE_S, Gateway, program
from hosts import Network


def app(host, *arguments):
    done = subprocess.run([*host.enter, program("engr_app"), *arguments], capture_output=True, text=True,
                          timeout=PATIENCE_S, check=False, stdin=subprocess.DEVNULL)
    return done.returncode, done.stdout, done.stderr


def site(name, channel=15):
    return {"gateway": {"gw_id": name, "channel": channel}}


def setUpModule():
    try:
        with Network("host"):
            pass
    except OSError as problem:
        print(f"skipped: no hosts in network namespaces here: {problem}")
        sys.exit(77)  # of all tests, which ctest shows


class Interfaces(unittest.TestCase):
    def network(self, *names):
        made = Network(*names)
        self.addCleanup(made.close)
        return made

    def gateway(self, host, *options, **more):
        made = Gateway(*options, host=host, **more)
        self.addCleanup(made.close)
        return made

    def test_gateways_are_heard_on_all_interfaces_and_reached_by_the_routing_table(self):
        left, right = self.network("app", "gateway"), self.network("gateway")
        host = left.hosts["app"]
        right.connect(host)
        gateways = {name: self.gateway(network.hosts["gateway"], site=site(name))
                    for name, network in (("gwleft", left), ("gwright", right))}
        addresses = {name: gateway.address for name, gateway in gateways.items()}
        code, out, err = app(host, "discover")
        rows = [line.split("\t") for line in out.splitlines()]
        self.assertEqual((code, rows[0], sorted(row[:3] for row in rows[1:])),
                         (0, ["ID", "ADDRESS", "INTERFACE", "ACTIVATED", "NEEDS WI-FI"],
                          [["gwleft", addresses["gwleft"], "eth0"], ["gwright", addresses["gwright"], "eth1"]]), err)
        code, out, err = app(host, "--interface", "eth1", "discover", "--json")
        self.assertEqual([(one["id"], one["interface"]) for one in json.loads(out)], [("gwright", "eth1")], err)
        for name, address in addresses.items():
            for named in (name, address):
                self.assertEqual(app(host, "channel", "get", "--gateway", named)[0], 0)
        code, _, err = app(host, "channel", "get", "--interface", "eth0", "--gateway", addresses["gwright"],
                           "--timeout", "0.5")
        self.assertEqual(code, 5, f"--interface confines: {err}")
        for gateway in gateways.values():
            gateway.ctl("network", "down")  # it announces itself no more
        code, _, err = app(host, "--listen", "0.01", "devices")
        self.assertEqual(code, 3)
        self.assertIn("no gateway was heard on eth0, eth1 and lo within", err)

    def test_a_gateway_whose_address_another_one_has_got_is_found_anew(self):
        network = self.network("app", "one", "two")
        hosts = network.hosts

        def start():
            return [self.gateway(hosts[name], site=site(name, channel)) for name, channel in (("one", 11), ("two", 12))]
        gateways = start()
        self.assertEqual(app(hosts["app"], "discover")[0], 0)
        for name, channel in (("one", 11), ("two", 12)):
            self.assertIn(f"is on channel {channel}", app(hosts["app"], "channel", "get", "--gateway", name)[1])
        addresses = [one.address for one in gateways]
        for one in gateways:
            one.stop()
        hosts["one"].move(addresses[1])
        hosts["two"].move(addresses[0])
        hosts["app"].run("ip", "neighbour", "flush", "dev", "eth0")
        start()
        code, out, err = app(hosts["app"], "channel", "get", "--gateway", "one")
        self.assertEqual((code, out), (0, f"gateway one ({addresses[1]}) is on channel 11\n"), err)
        self.assertIn(f"gateway one is no longer the device at {addresses[0]}", err)

    def test_secrets_go_out_only_where_a_gateway_needs_them(self):
        network, other = self.network("app", "gateway"), self.network("bystander")
        host = network.hosts["app"]
        other.connect(host)
        gateway = self.gateway(network.hosts["gateway"], "--ap", site=site("fresh"))
        wanted = ("provision", "--ssid", "office", "--open", "--token", "t0ken")
        code, _, err = app(host, *wanted)
        self.assertEqual((code, "give --yes" in err), (2, True), err)
        code, out, err = app(host, *wanted, "--yes")
        self.assertEqual((code, out), (0, f"gateway fresh appeared at {gateway.address} on eth0: it has joined its "
                                          "network\n"), err)
        for more, words in [((), "no gateway on eth0, eth1 and lo says that it needs Wi-Fi (1 heard): --force"),
                            (("--gateway", "fresh"), "gateway fresh does not say that it needs Wi-Fi"),
                            (("--gateway", "other", "--listen", "0.1"), "gateway other was not heard")]:
            code, _, err = app(host, *wanted, "--yes", *more)
            self.assertEqual(code, 3, err)
            self.assertIn(words, err)
        code, _, err = app(host, *wanted, "--yes", "--force", "--listen", "0.1")
        self.assertEqual(code, 2)
        self.assertIn("name with --interface where to broadcast", err)
        self.assertEqual(other.hosts["bystander"].received(), 0, "nothing goes out where no gateway needs it")


if __name__ == "__main__":
    unittest.main()
