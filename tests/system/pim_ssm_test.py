#!/usr/bin/env python3
"""Source-specific multicast across two routers of mribd, gmpd and pimsmd, both families:

    source 10.1.0.9 ── first 10.2.0.1 ── 10.2.0.2 last ── 10.3.0.9 receiver
    2001:db8:1::9     fe80::2:1          fe80::2:2       2001:db8:3::9
"""

import os
import re
import unittest

import lab
from lab import Daemon, Host, Receiver, Router, Sender, link, wait_for

CONFIG = "[pimsmd]\nhello_interval = 1\njoin_prune_interval = 2\noverride_interval_ms = 200\n"
FAMILIES = ("ipv4", "ipv6")
FLOW = {"ipv4": ("10.1.0.9", "232.1.1.1"), "ipv6": ("2001:db8:1::9", "ff3e::1")}


def start_pimsmd(router, family):
    path = f"/run/{router.name}.toml"
    with open(path, "w") as file:
        file.write(CONFIG)
    return Daemon(router, f"pimsmd-{family}", os.path.join(lab.PROGRAMS, "pimsmd"), "--family", family,
                  "--config", path)


class Across(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.first, cls.last = Router("first"), Router("last")
        cls.source, cls.receiver = Host("source"), Host("receiver")
        link(cls.source, "e0", cls.first, "net")
        link(cls.first, "across", cls.last, "across")
        link(cls.last, "lan", cls.receiver, "e0")
        cls.source.no_offload("e0")
        for host, interface, addresses in (
                (cls.source, "e0", ("10.1.0.9/24", "2001:db8:1::9/64")),
                (cls.first, "net", ("10.1.0.1/24", "2001:db8:1::1/64")),
                (cls.first, "across", ("10.2.0.1/24", "2001:db8:2::1/64", "fe80::2:1/64")),
                (cls.last, "across", ("10.2.0.2/24", "2001:db8:2::2/64", "fe80::2:2/64")),
                (cls.last, "lan", ("10.3.0.1/24", "2001:db8:3::1/64")),
                (cls.receiver, "e0", ("10.3.0.9/24", "2001:db8:3::9/64"))):
            if any(address.startswith("fe80") for address in addresses):
                host.run("ip", "link", "set", interface, "addrgenmode", "none")
                host.run("ip", "-6", "address", "flush", "dev", interface, "scope", "link")
            host.address(interface, *addresses)
        cls.last.route("10.1.0.0/24", "via", "10.2.0.1")
        cls.last.route("2001:db8:1::/64", "via", "fe80::2:1", "dev", "across")
        cls.daemons = {}
        for router in (cls.first, cls.last):
            cls.daemons[router.name, "mribd"] = router.start_mribd()
            for family in FAMILIES:
                cls.daemons[router.name, "gmpd", family] = router.start_gmpd(family)
                cls.daemons[router.name, "pimsmd", family] = start_pimsmd(router, family)

    @classmethod
    def tearDownClass(cls):
        for daemon in reversed(cls.daemons.values()):
            daemon.stop()

    def tearDown(self):
        for name, daemon in self.daemons.items():
            self.assertTrue(daemon.alive(), f"{name}: {daemon.output()}")

    def outputs(self, router, family):
        """Where the kernel of the router sends the flow, nothing while it has no entry."""
        source, group = FLOW[family]
        for line in router.mroute("-4" if family == "ipv4" else "-6"):
            found = re.search(r"\((\S+),\s*(\S+)\)\s+Iif: (\S+)\s+(?:Oifs: (.*?)\s+)?State: resolved", line)
            if found and found.group(1, 2) == (source, group):
                return (found.group(4) or "").split()
        return []

    def test_packets_cross_and_end_with_the_receiver(self):
        for family in FAMILIES:
            source, group = FLOW[family]
            sender = Sender(self.source, "e0", [group], rate=100, source=source)
            receiver = Receiver(self.receiver, "e0", group, source=source)
            receiver.grows(30, by=50)
            self.assertEqual(receiver.repeated(), 0)
            self.assertEqual(self.outputs(self.first, family), ["across"])
            self.assertEqual(self.outputs(self.last, family), ["lan"])
            receiver.leave()
            wait_for(lambda f=family: self.outputs(self.first, f) == [], f"{family}: the first router prunes")
            sender.stop()

    def test_a_pimsmd_that_is_killed_is_told_all_again(self):
        for family in FAMILIES:
            source, group = FLOW[family]
            sender = Sender(self.source, "e0", [group], rate=100, source=source)
            receiver = Receiver(self.receiver, "e0", group, source=source)
            receiver.grows(30, by=20)
            self.daemons["first", "pimsmd", family].kill()
            self.daemons["first", "pimsmd", family] = start_pimsmd(self.first, family)
            wait_for(lambda f=family: self.outputs(self.first, f) == ["across"], "joined again")
            receiver.grows(30, by=20)
            receiver.leave()
            sender.stop()


if __name__ == "__main__":
    unittest.main()
