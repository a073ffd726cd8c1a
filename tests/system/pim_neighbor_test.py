#!/usr/bin/env python3
"""Two routers with pimsmd, and behind the second one a speaker that joins as a router would:

    source network          transit network                speaker's network
    10.1.0.0/24   first ── 10.2.0.1   10.2.0.2 ── second ── 10.3.0.2   10.3.0.9
    2001:db8:1::/64         fe80::2:1  fe80::2:2             fe80::3:2  fe80::3:9
"""

import json
import os
import unittest

import lab
from lab import Daemon, Host, Router, link, wait_for
from pim_speaker import Speaker

CONFIG = """[pimsmd]
hello_interval = 1
join_prune_interval = 1
override_interval_ms = 200
propagation_delay_ms = 100
"""
FAMILIES = ("ipv4", "ipv6")
NEIGHBORS = {"ipv4": ("10.2.0.1", "10.2.0.2"), "ipv6": ("fe80::2:1", "fe80::2:2")}
SPEAKER = {"ipv4": ("10.3.0.2", "10.3.0.9"), "ipv6": ("fe80::3:2", "fe80::3:9")}
FLOW = {"ipv4": ("232.1.1.1", "10.1.0.9"), "ipv6": ("ff3e::1", "2001:db8:1::9")}


def start(router, family, more=""):
    path = f"/run/{router.name}.{family}.toml"
    with open(path, "w") as file:
        file.write(CONFIG + more)
    return Daemon(router, f"pimsmd-{family}", os.path.join(lab.PROGRAMS, "pimsmd"), "--family", family,
                  "--config", path)


class Neighbors(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.first, cls.second, cls.behind = Router("first"), Router("second"), Host("behind")
        source = Host("source")
        link(source, "e0", cls.first, "net")
        link(cls.first, "across", cls.second, "across")
        link(cls.second, "lan", cls.behind, "e0")
        for host, interface, addresses in (
                (cls.first, "net", ("10.1.0.1/24", "2001:db8:1::1/64")),
                (cls.first, "across", ("10.2.0.1/24", "2001:db8:2::1/64", "fe80::2:1/64")),
                (cls.second, "across", ("10.2.0.2/24", "2001:db8:2::2/64", "fe80::2:2/64")),
                (cls.second, "lan", ("10.3.0.2/24", "2001:db8:3::2/64", "fe80::3:2/64")),
                (cls.behind, "e0", ("10.3.0.9/24", "2001:db8:3::9/64", "fe80::3:9/64"))):
            if any(address.startswith("fe80") for address in addresses):
                host.run("ip", "link", "set", interface, "addrgenmode", "none")
                host.run("ip", "-6", "address", "flush", "dev", interface, "scope", "link")
            host.address(interface, *addresses)
        cls.second.route("10.1.0.0/24", "via", "10.2.0.1")
        cls.second.route("2001:db8:1::/64", "via", "fe80::2:1", "dev", "across")
        cls.daemons = {(router.name, family): start(router, family)
                       for router in (cls.first, cls.second) for family in FAMILIES}

    def status(self, router, family):
        return json.loads(self.daemons[router, family].status())

    def link_of(self, router, family, interface):
        return {link["interface"]: link for link in self.status(router, family)["links"]}[interface]

    def neighbors(self, router, family, interface):
        links = {link["interface"]: link for link in self.status(router, family)["links"]}
        return {one["address"] for one in links.get(interface, {"neighbors": []})["neighbors"]}

    def each_is_neighbor(self):
        for family in FAMILIES:
            for router, other in (("first", 1), ("second", 0)):
                wait_for(lambda r=router, f=family, o=other: self.neighbors(r, f, "across") == {NEIGHBORS[f][o]},
                         f"{family} neighbor of {router}")

    def test_they_become_neighbors_and_elect_a_designated_router(self):
        self.each_is_neighbor()
        for family in FAMILIES:
            for router in ("first", "second"):
                found = self.link_of(router, family, "across")
                self.assertEqual(found["designated_router"], NEIGHBORS[family][1])
                self.assertEqual(found["prune_delay_ms"], 300)
            self.assertTrue(self.link_of("first", family, "net")["designated"])

    def test_a_priority_moves_the_designated_router(self):
        self.each_is_neighbor()
        for family in FAMILIES:
            daemon = self.daemons["first", family]
            path = f"/run/first.{family}.toml"
            with open(path, "a") as file:
                file.write('[[pimsmd.interface]]\nname = "across"\ndr_priority = 7\n'
                           '[[pimsmd.interface]]\nname = "net"\n')
            daemon.reload()
            wait_for(lambda f=family: self.link_of("second", f, "across")["designated_router"] == NEIGHBORS[f][0],
                     f"the designated router of {family} elsewhere")
            with open(path, "w") as file:
                file.write(CONFIG)
            daemon.reload()
            wait_for(lambda f=family: self.link_of("second", f, "across")["designated"], "and back")

    def test_a_join_goes_up_to_the_source_and_a_prune_follows(self):
        self.each_is_neighbor()
        for family in FAMILIES:
            upstream, own = SPEAKER[family]
            speaker = Speaker(self.behind, "e0", family, own)
            speaker.hello()
            wait_for(lambda f=family, o=own: self.neighbors("second", f, "lan") == {o}, "the speaker known")
            speaker.join(upstream, *FLOW[family])
            for router in ("second", "first"):
                wait_for(lambda r=router, f=family: self.status(r, f)["entries"] == 2, f"the Join at {router}, {family}")
            speaker.join(upstream, *FLOW[family], prune=True)
            for router in ("second", "first"):
                wait_for(lambda r=router, f=family: self.status(r, f)["entries"] == 0, f"the Prune at {router}, {family}")
            speaker.hello(holdtime=0)
            speaker.close()
            wait_for(lambda f=family: not self.neighbors("second", f, "lan"), "the speaker gone")

    def test_an_interface_that_goes_and_comes_is_followed(self):
        self.each_is_neighbor()
        self.first.run("ip", "link", "set", "across", "down")
        for family in FAMILIES:
            wait_for(lambda f=family: "across" not in {one["interface"] for one in self.status("first", f)["links"]},
                     "PIM ended on the interface")
        self.first.run("ip", "link", "set", "across", "up")
        self.first.address("across", "2001:db8:2::1/64", "fe80::2:1/64")
        self.each_is_neighbor()

    def test_one_that_ends_says_goodbye_and_one_that_is_killed_is_forgotten(self):
        self.each_is_neighbor()
        for family, end in (("ipv4", Daemon.stop), ("ipv6", Daemon.kill)):
            end(self.daemons["first", family])
            wait_for(lambda f=family: not self.neighbors("second", f, "across"), f"{family} without the first")
            self.daemons["first", family] = start(self.first, family)
        self.each_is_neighbor()

    @classmethod
    def tearDownClass(cls):
        for daemon in cls.daemons.values():
            daemon.stop()

    def tearDown(self):
        for (router, family), daemon in self.daemons.items():
            self.assertTrue(daemon.alive(), f"{router} {family}: {daemon.output()}")
            self.assertNotIn("error:", daemon.output())


if __name__ == "__main__":
    unittest.main()
