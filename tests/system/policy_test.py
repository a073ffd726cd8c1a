"""What gmpd does with joins in the range of source-specific multicast, with the MRIB process's default policy.

The shared network, see topology.py.
"""

import json
import unittest

from lab import Receiver, Sender, wait_for
from topology import Network

GROUPS = {"ipv4": "232.1.1.1", "ipv6": "ff3e::8000:1"}
SOURCES = {"ipv4": "10.1.0.2", "ipv6": "fd00:1::2"}


class SourceSpecificRange(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network()

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def interface(self, family, name):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return next((one for one in interfaces if one["interface"] == name), {})

    def check(self, family):
        group, source = GROUPS[family], SOURCES[family]
        wait_for(lambda: self.interface(family, "red").get("reported"), "this router forwarding to red")
        sender = Sender(self.network.hosts["source"], "eth0", [group])
        any_source = Receiver(self.network.hosts["red"], "eth0", group)
        wait_for(lambda: self.interface(family, "red")["counters"].get("ignored_any_source_in_ssm_range"),
                 "the join of any source being counted")
        named = Receiver(self.network.hosts["blue"], "eth0", group, source=source)
        named.grows()
        self.assertTrue(any_source.stays(), "traffic for a join of any source")
        self.assertEqual(any_source.total(), 0)
        red = [one["group"] for one in self.interface(family, "red")["groups"]]
        self.assertNotIn(group, red)
        any_source.leave()
        named.leave()
        sender.stop()

    def test_igmp(self):
        self.check("ipv4")

    def test_mld(self):
        self.check("ipv6")


if __name__ == "__main__":
    unittest.main()
