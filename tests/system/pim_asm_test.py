#!/usr/bin/env python3
"""Any-source multicast across three routers of mribd, gmpd and pimsmd, both families, the RP in the middle:

    source 10.1.0.9 ── first .1 ── 10.2.0.0/24 ── .2 middle .2 ── 10.3.0.0/24 ── .3 last ── 10.4.0.9 receiver
    2001:db8:1::9     fe80::2:1                 fe80::2:2  fe80::3:2           fe80::3:3    2001:db8:4::9
"""

import json
import os
import unittest

import lab
from lab import Daemon, Host, Receiver, Router, Sender, link, wait_for

CONFIG = """[pimsmd]
hello_interval = 1
join_prune_interval = 2
override_interval_ms = 200
register_suppression = 4
register_probe = 1
"""
STATIC = '[[pimsmd.rp]]\naddress = "10.3.0.2"\n[[pimsmd.rp]]\naddress = "2001:db8:3::2"\n'
FAMILIES = ("ipv4", "ipv6")
SOURCE = {"ipv4": "10.1.0.9", "ipv6": "2001:db8:1::9"}
GROUPS = {"ipv4": ("239.1.1.1", "239.1.1.2"), "ipv6": ("ff0e::1", "ff0e::2")}


class Across(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.routers = [Router(name) for name in ("first", "middle", "last")]
        first, middle, last = cls.routers
        cls.source, cls.receiver = Host("source"), Host("receiver")
        link(cls.source, "e0", first, "e1")
        link(first, "e2", middle, "e2")
        link(middle, "e3", last, "e3")
        link(last, "e4", cls.receiver, "e0")
        cls.source.no_offload("e0")
        for host, number, at in ((cls.source, 1, 9), (first, 1, 1), (first, 2, 1), (middle, 2, 2), (middle, 3, 2),
                                 (last, 3, 3), (last, 4, 3), (cls.receiver, 4, 9)):
            interface = f"e{number}" if host in cls.routers else "e0"
            host.run("ip", "link", "set", interface, "addrgenmode", "none")
            host.run("ip", "-6", "address", "flush", "dev", interface, "scope", "link")
            host.address(interface, f"10.{number}.0.{at}/24", f"2001:db8:{number}::{at}/64", f"fe80::{number}:{at}/64")
        for router, to, through, over in ((first, (3, 4), (2, 2), "e2"), (middle, (1,), (2, 1), "e2"),
                                          (middle, (4,), (3, 3), "e3"), (last, (1, 2), (3, 2), "e3")):
            for number in to:
                router.route(f"10.{number}.0.0/24", "via", f"10.{through[0]}.0.{through[1]}")
                router.route(f"2001:db8:{number}::/64", "via", f"fe80::{through[0]}:{through[1]}", "dev", over)
        cls.daemons = {}
        for router in cls.routers:
            router.sysctl("net.ipv4.conf.all.rp_filter", 0)
            with open(f"/run/{router.name}.toml", "w") as file:
                file.write(CONFIG + STATIC)
            cls.daemons[router.name, "mribd"] = router.start_mribd()
            for family in FAMILIES:
                cls.daemons[router.name, "gmpd", family] = router.start_gmpd(family)
                cls.daemons[router.name, "pimsmd", family] = Daemon(
                    router, f"pimsmd-{family}", os.path.join(lab.PROGRAMS, "pimsmd"), "--family", family,
                    "--config", f"/run/{router.name}.toml")
        for family in FAMILIES:
            wait_for(lambda f=family: cls.neighbors("middle", f) == 2, f"neighbors of the middle, {family}", 30)

    @classmethod
    def tearDownClass(cls):
        for daemon in reversed(cls.daemons.values()):
            daemon.stop()

    def tearDown(self):
        for name, daemon in self.daemons.items():
            self.assertTrue(daemon.alive(), f"{name}: {daemon.output()}")

    @classmethod
    def neighbors(cls, router, family):
        status = json.loads(cls.daemons[router, "pimsmd", family].status())
        return sum(len(one["neighbors"]) for one in status["links"])

    def trees(self):
        """What every pimsmd and mribd say, for the report of a failure."""
        return "\n".join(f"{name}:\n{daemon.status()}" for name, daemon in self.daemons.items() if "gmpd" not in name)

    def receives(self, family, group, expects_first):
        receiver = Receiver(self.receiver, "e0", group)
        try:
            receiver.grows(30, by=100)
        except AssertionError as failure:
            raise AssertionError(f"{failure}\n{self.trees()}") from failure
        self.assertEqual(set(receiver.counts()), {SOURCE[family]})
        if expects_first:
            self.assertEqual(receiver.repeated(), 0)
        receiver.leave()

    def test_a_receiver_that_comes_to_a_source_gets_it(self):
        for family in FAMILIES:
            group = GROUPS[family][0]
            sender = Sender(self.source, "e0", [group], rate=100, source=SOURCE[family])
            self.receives(family, group, False)
            sender.stop()

    def test_a_source_that_comes_to_a_receiver_is_heard(self):
        for family in FAMILIES:
            group = GROUPS[family][1]
            receiver = Receiver(self.receiver, "e0", group)
            wait_for(lambda f=family: json.loads(self.daemons["middle", "pimsmd", f].status())["entries"] >= 1,
                     f"the Join at the RP, {family}", 30)
            sender = Sender(self.source, "e0", [group], rate=100, source=SOURCE[family])
            try:
                receiver.grows(30, by=100)
            except AssertionError as failure:
                raise AssertionError(f"{failure}\n{self.trees()}") from failure
            receiver.leave()
            sender.stop()


if __name__ == "__main__":
    unittest.main()
