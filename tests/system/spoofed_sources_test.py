"""Made-up sources by the thousand fill the table of forwarding entries, and a new flow finds room (topology.py).

blue's link sends one packet for each of three times as many sources as there may be entries: first to a group that
nobody wants, then to one that red receives.
"""

import re
import unittest

from lab import Receiver, Sender, Wire, wait_for
from packets import ipv4
from topology import Network

LIMIT = 1000
WANTED = ["239.7.0.1", "239.7.0.2"]
UNWANTED = "239.7.9.9"
# What a sender's first packet is, to the receivers' port; without a checksum.
DATAGRAM = bytes.fromhex("1388138800100000") + b"packet 0"


class SpoofedSources(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        cls.network.mribd = cls.network.router.start_mribd("--max-entries", str(LIMIT))
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = cls.network.router.start_gmpd(family, *cls.network.gmpd_options)
        # What blue sends comes from where the unicast routes lead.
        cls.network.router.route("10.77.0.0/16", "via", "10.3.0.2")
        cls.wire = Wire(cls.network.hosts["blue"], "eth0")

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def counter(self, name):
        found = re.search(rf"^ipv4\n(?:  .*\n)*?  entries: .*?\b{name} (\d+)", self.network.mribd.status(), re.M)
        return int(found.group(1)) if found else 0

    def entries(self):
        found = re.search(r"^  entries: (\d+)", self.network.mribd.status(), re.M)
        return int(found.group(1)) if found else 0

    def flood(self, group, first):
        """One packet of each source."""
        for number in range(3 * LIMIT):
            source = f"10.77.{first + number // 250}.{number % 250 + 1}"
            self.wire.send(ipv4(DATAGRAM, source, group, ttl=8, options=b"", protocol=17), "ipv4")

    def test_new_flow_finds_room(self):
        receivers = [Receiver(self.network.hosts["red"], "eth0", group) for group in WANTED]
        wait_for(lambda: all(f"member (*, {group})" in self.network.mribd.status() for group in WANTED), "the joins")
        self.flood(UNWANTED, 1)
        wait_for(lambda: self.entries() == LIMIT, "the table full")
        sender = Sender(self.network.hosts["source"], "eth0", WANTED[:1])
        receivers[0].grows()
        self.flood(WANTED[1], 100)
        wait_for(lambda: receivers[1].total() > LIMIT // 2, "the flood at the receiver")
        second = Sender(self.network.hosts["source"], "eth0", WANTED[1:])
        wait_for(lambda: "10.1.0.2" in receivers[1].counts(), "the new flow among the flood", 60)
        receivers[0].grows()
        self.assertLessEqual(self.entries(), LIMIT)
        self.assertGreater(self.counter("displaced"), LIMIT)
        for one in (sender, second):
            one.stop()


if __name__ == "__main__":
    unittest.main()
