"""Hosts on a network of their own: network namespaces, cabled to a switch that the test holds in its hands.

    with Network("gateway", "app") as network:
        network.hosts["app"].run("ip", "address")       # a program on that host
        network.hosts["app"].cut()                      # its cable is out: no carrier, no packet, no word to anybody
        network.hosts["app"].plug()

Nothing leaves the namespaces, the first of which tests/isolated makes. A host has eth0 with an address, and its
namespace ends with the test, however it ends.
"""

import itertools
import json
import os
import subprocess

from gateway import PATIENCE_S

_numbers = itertools.count(1)


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE_S, check=False)
    if done.returncode != 0:
        raise OSError(f"{' '.join(command)}: {done.stderr}")
    return done.stdout


class Host:
    def __init__(self):
        self.address = None  # of eth0
        self._ports = []
        # It lives until its input ends, which it does with the test.
        self._keeper = subprocess.Popen(["unshare", "--net", "sh", "-c", "ip link set lo up && echo up && exec cat"],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.enter = ("nsenter", f"--net=/proc/{self._keeper.pid}/ns/net")
        if self._keeper.stdout.readline() != b"up\n":
            self.close()
            raise OSError("no network namespace for a host")

    def run(self, *command):
        return run(*self.enter, *command)

    def connect(self, switch, address):
        """Lays a cable from the next interface (eth0, eth1) to a switch."""
        port, interface = f"port{next(_numbers)}", f"eth{len(self._ports)}"
        run("ip", "link", "add", port, "type", "veth", "peer", "name", interface, "netns",
            str(self._keeper.pid))
        self._ports.append(port)
        run("ip", "link", "set", port, "master", switch, "addrgenmode", "none", "up")
        self.run("ip", "link", "set", interface, "addrgenmode", "none", "up")
        self.run("ip", "address", "add", f"{address}/24", "broadcast", "+", "dev", interface)
        self.address = self.address or address
        self._wait_for_carrier(interface)

    def move(self, address):
        """Replaces the address of eth0."""
        self.run("ip", "address", "flush", "dev", "eth0")
        self.run("ip", "address", "add", f"{address}/24", "broadcast", "+", "dev", "eth0")
        self.address = address

    def cut(self):
        run("ip", "link", "set", self._ports[0], "down")
        self._wait_for_carrier("eth0", False)

    def plug(self):
        run("ip", "link", "set", self._ports[0], "up")
        self._wait_for_carrier("eth0")
        # A search for a neighbour that began during the cut would fail, and connections with it.
        self.run("ip", "neighbour", "flush", "dev", "eth0")

    def received(self):
        """Number of IPv4 packets that ever arrived."""
        names, numbers = [line.split() for line in self.run("cat", "/proc/net/snmp").splitlines()
                          if line.startswith("Ip:")]
        return int(numbers[names.index("InReceives")])

    def _wait_for_carrier(self, interface, there=True):
        for _ in range(10_000):
            flags = json.loads(self.run("ip", "-json", "link", "show", interface))[0]["flags"]
            if ("LOWER_UP" in flags and "NO-CARRIER" not in flags) == there:
                return
        raise OSError(f"{interface} does not get or lose its carrier")

    def close(self):
        self._keeper.stdin.close()
        self._keeper.wait(PATIENCE_S)
        self._keeper.stdout.close()


class Network:
    """A switch with a host for each name, 10.N.0.1 and so on in this order."""

    def __init__(self, *names):
        if "ENGR_ISOLATED" not in os.environ:
            raise RuntimeError("this would change the network of this computer; run it by tests/isolated")
        self._number, self._cables, self.hosts = next(_numbers), 0, {}
        run("ip", "link", "add", self._switch(), "type", "bridge", "mcast_snooping", "0")
        try:
            run("ip", "link", "set", self._switch(), "addrgenmode", "none", "up")
            for name in names:
                self.hosts[name] = Host()
                self.connect(self.hosts[name])
        except BaseException:
            self.close()
            raise

    def _switch(self):
        return f"switch{self._number}"

    def connect(self, host):
        """Also for a host of another network, which gets a second interface by it."""
        self._cables += 1
        host.connect(self._switch(), f"10.{self._number}.0.{self._cables}")

    def close(self):
        for host in self.hosts.values():
            host.close()
        run("ip", "link", "delete", self._switch())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
