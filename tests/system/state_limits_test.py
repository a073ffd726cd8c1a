"""One host reports half a million sources: the daemons hold what their limits say, a host on another link is heard,
and the memory is given back when it is over (topology.py)."""

import json
import re
import unittest

from lab import Receiver, Sender, Wire, wait_for
from packets import ALL_REPORTS, ALLOW, ipv4, record, report
from topology import Network

# A membership that is not confirmed ends after 2 * 5 + 1 seconds.
OPTIONS = ("--query-interval", "5", "--query-response-interval", "1", "--last-member-interval", "1")
GROUP = "239.18.0.1"
NEIGHBOUR = "10.2.0.77"
MOST_OF_A_HOST = 65536


class StateLimits(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=OPTIONS)
        cls.gmpd = cls.network.gmpd["ipv4"]
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP])
        cls.wire = Wire(cls.network.hosts["red"], "eth0")

    @classmethod
    def tearDownClass(cls):
        cls.sender.stop()
        cls.network.assert_healthy()

    def red(self):
        interfaces = json.loads(self.gmpd.status())["interfaces"]
        return next(one for one in interfaces if one["interface"] == "red")

    def resident_mib(self, daemon):
        with open(f"/proc/{daemon.process.pid}/status") as status:
            return int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1)) / 1024

    def test_a_host_takes_what_its_limit_says_and_no_more(self):
        wait_for(lambda: self.red()["running"], "the protocol on red")
        at_first = {daemon: self.resident_mib(daemon) for daemon in (self.gmpd, self.network.mribd)}
        for packet in range(1500):
            sources = [f"10.{packet % 250}.{number}.1" for number in range(1, 251)]
            group = f"239.19.{packet // 250}.{packet % 250}"
            self.wire.send(ipv4(report("ipv4", record(ALLOW, group, sources)), NEIGHBOUR, ALL_REPORTS["ipv4"]), "ipv4")
        wait_for(lambda: self.red()["counters"].get("refused_host_limit", 0) > 0, "the limit", 60)
        for daemon, before in at_first.items():
            self.assertLess(self.resident_mib(daemon), before + 100)
        receiver = Receiver(self.network.hosts["blue"], "eth0", GROUP)
        receiver.grows(60)
        held = sum(1 + len(group["sources"]) for group in self.red()["groups"])
        self.assertLessEqual(held, MOST_OF_A_HOST)
        wait_for(lambda: not self.red()["groups"], "everything expired", 60)
        for daemon, before in at_first.items():
            wait_for(lambda d=daemon, b=before: self.resident_mib(d) < b + 16, f"{daemon.name} giving memory back", 10)
        receiver.grows(60)


if __name__ == "__main__":
    unittest.main()
