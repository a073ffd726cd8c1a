"""What gmpd does about what the MRIB process says: the range of source-specific multicast, boundaries that come
and go while traffic flows, and links where another router is designated (network of topology.py).
"""

import json
import signal
import unittest

from lab import Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

CONFIG = "/run/policy.toml"
RED = '[[mribd.interface]]\nname = "red"\n'
BOUNDED = RED + 'boundaries = ["239.255.0.0/16", "ff15::/16"]\n'
SCOPED = {"ipv4": "239.255.1.1", "ipv6": "ff15::1:1"}
GROUPS = {"ipv4": "232.1.1.1", "ipv6": "ff3e::8000:1"}
SOURCES = {"ipv4": "10.1.0.2", "ipv6": "fd00:1::2"}


def configure(text):
    with open(CONFIG, "w") as file:
        file.write(text)


class PolicyTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        configure("")
        cls.network = Network(start=False)
        cls.network.mribd = cls.network.router.start_mribd("--config", CONFIG)
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = cls.network.router.start_gmpd(family, "--config", CONFIG, *GMPD_OPTIONS)

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def interface(self, family, name):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return next((one for one in interfaces if one["interface"] == name), {})

    def reload(self, text):
        configure(text)
        self.network.mribd.process.send_signal(signal.SIGHUP)

    def count(self, family, name):
        return self.interface(family, "red")["counters"].get(name, 0)

    def stopped(self, family, receiver):
        wait_for(lambda: not any("red" in line for line in self.network.router.mroute(family)), "red pruned")
        # What the receiver says is a tenth of a second old.
        wait_for(receiver.stays, "the end of red's traffic")

    def test_a_boundary_comes_and_goes(self):
        sender = Sender(self.network.hosts["source"], "eth0", list(SCOPED.values()))
        for family, group in SCOPED.items():
            with self.subTest(group=group):
                red = Receiver(self.network.hosts["red"], "eth0", group)
                blue = Receiver(self.network.hosts["blue"], "eth0", group)
                red.grows()
                self.reload(BOUNDED)
                self.stopped("-4" if family == "ipv4" else "-6", red)
                blue.grows()
                again = Receiver(self.network.hosts["red"], "eth0", group[:-1] + "2")
                wait_for(lambda f=family: self.count(f, "refused_boundary"), "the new join being refused")
                self.reload("")
                red.grows()
                for receiver in (red, blue, again):
                    receiver.leave()
        sender.stop()

    def test_another_routers_link_is_silent_until_it_is_ours(self):
        sender = Sender(self.network.hosts["source"], "eth0", ["239.1.3.1"])
        red = Receiver(self.network.hosts["red"], "eth0", "239.1.3.1")
        red.grows()
        self.reload(RED + "dr = false\n")
        self.stopped("-4", red)
        groups = [one["group"] for one in self.interface("ipv4", "red")["groups"]]
        self.assertIn("239.1.3.1", groups, "the membership is kept")
        self.reload("")
        red.grows()
        red.leave()
        sender.stop()

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

    def test_igmp_joins_of_any_source_in_the_range_are_ignored(self):
        self.check("ipv4")

    def test_mld_joins_of_any_source_in_the_range_are_ignored(self):
        self.check("ipv6")


if __name__ == "__main__":
    unittest.main()
