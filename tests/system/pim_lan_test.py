#!/usr/bin/env python3
"""A LAN with three routers, both families: who acts for its hosts, who forwards to it, and who speaks against a Prune.

    source ── top ──┬── one ───┐
                    ├── two ───┼── LAN ── near, a host
                    └── three ─┘     └── low ── far, a host

top is the RP and has a link to each of the three. All of them hear the hosts; low takes one of them for its way.
"""

import time
import unittest

from lab import Receiver, Sender, wait_for
from pim_network import FAMILIES, FAST, PimNetwork, address

LINKS = {1: ("top", "source"), 2: ("top", "one"), 3: ("top", "two"), 4: ("top", "three"),
         5: ("one", "two", "three", "low", "near"), 6: ("low", "far")}
STATIC = "".join(f'[[pimsmd.rp]]\naddress = "{one}"\n' for one in ("10.0.0.1", "2001:db8::1"))
THREE = ("one", "two", "three")
GROUPS = {"ipv4": ("239.9.0.1", "239.9.0.2", "232.9.0.1"), "ipv6": ("ff0e::9:1", "ff0e::9:2", "ff3e::9:1")}
RATE = 50


class Lan(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = PimNetwork(("top", *THREE, "low"), ("source", "near", "far"), LINKS)
        cls.network.start({name: FAST + STATIC for name in ("top", *THREE, "low")})
        cls.source = {family: address(family, 1, cls.network.nodes["source"].number) for family in FAMILIES}

    @classmethod
    def tearDownClass(cls):
        cls.network.stop()

    def forwarding(self, family, group):
        """Which of the three the kernel lets forward to the LAN."""
        def forwards(name):
            lines = self.network[name].mroute("-4" if family == "ipv4" else "-6")
            return any(f",{group})" in line.replace(" ", "") and "e5" in line.partition("Oifs:")[2] for line in lines)

        return [name for name in THREE if forwards(name)]

    def designated(self, family, name):
        rows = {row["interface"]: row for row in self.network[name].rows("pim-interfaces", family)}
        return rows["e5"]["designated_router"]

    def explained(self, action, *arguments, **more):
        try:
            return action(*arguments, **more)
        except AssertionError as failure:
            raise AssertionError(f"{failure}\n{self.network.told()}") from failure

    def end(self, family, group, *receivers):
        for receiver in receivers:
            receiver.leave()
        wait_for(lambda: self.forwarding(family, group) == [], f"{group} ending on the LAN")

    def test_1_the_designated_router_alone_acts_for_hosts_and_its_death_moves_them(self):
        for family in FAMILIES:
            group = GROUPS[family][0]
            self.assertEqual(len({self.designated(family, name) for name in THREE}), 1)
            sender = Sender(self.network["source"], "e1", [group], rate=RATE, source=self.source[family])
            near = Receiver(self.network["near"], "e5", group)
            self.explained(near.grows, by=RATE)
            # The highest address is that of low, which is a router of the LAN like any other.
            self.assertEqual(self.designated(family, "one"), self.designated(family, "low"))
            self.assertEqual(len(self.forwarding(family, group)), 1, family)
            self.assertEqual(near.repeated(), 0)
            self.end(family, group, near)
            sender.stop()

    def test_2_of_two_that_forward_one_wins_the_assert(self):
        for family in FAMILIES:
            group = GROUPS[family][2]
            network, source = self.network, self.source[family]
            sender = Sender(network["source"], "e1", [group], rate=RATE, source=source)
            far = Receiver(network["far"], "e6", group, source=source)
            self.explained(far.grows, by=RATE)
            self.explained(lambda f=family, g=group: wait_for(lambda: len(self.forwarding(f, g)) == 1, "one forwarding"))
            before = self.forwarding(family, group)[0]
            # low changes its way; what the first one has still lasts a while, and both forward until they hear each other.
            other = next(name for name in THREE if name != before)
            self.route(family, other)
            moved = time.monotonic()
            self.explained(lambda f=family, g=group: wait_for(lambda: len(self.forwarding(f, g)) == 1, "one forwarding"))
            self.explained(far.grows, by=RATE)
            self.assertLess(far.repeats_until(moved + 1) - moved, 1, "packets come twice for longer than an assert takes")
            print(f"{family}: way moved from {before} to {other}, {self.forwarding(family, group)[0]} forwards; "
                  f"{far.missed()} packets missed, {far.repeated()} came twice", flush=True)
            self.route(family, "one")
            self.end(family, group, far)
            sender.stop()

    def route(self, family, name):
        """Has low reach the source over that router of the three."""
        number = self.network.nodes[name].number
        version, prefix, way = (("-4", "10.1.0.0/24", f"10.5.0.{number}") if family == "ipv4" else
                                ("-6", "2001:db8:1::/64", f"fe80::5:{number}"))
        self.network["low"].run("ip", version, "route", "replace", prefix, "via", way, "dev", "e5", "proto", "static")

    def test_3_a_router_that_still_wants_the_packets_speaks_against_a_prune(self):
        for family in FAMILIES:
            group, source = GROUPS[family][2], self.source[family]
            sender = Sender(self.network["source"], "e1", [group], rate=RATE, source=source)
            far = Receiver(self.network["far"], "e6", group, source=source)
            near = Receiver(self.network["near"], "e5", group, source=source)
            self.explained(far.grows, by=RATE)
            self.explained(near.grows, by=RATE)
            missed = far.missed()
            near.leave()
            time.sleep(2)
            far.grows(by=RATE)
            self.assertEqual(far.missed(), missed, f"{family}: packets lost as a host beside left")
            self.end(family, group, far)
            sender.stop()


if __name__ == "__main__":
    unittest.main()
