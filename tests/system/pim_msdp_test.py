#!/usr/bin/env python3
"""Sources cross two PIM domains by MSDP: each domain has an RP of its own, of mribd, gmpd, pimsmd and msdpd.

    source 10.1.0.9 ── first .1 ── 10.2.0.0/24 ── .2 home .2 ── 10.3.0.0/24 ── .3 far .3 ── 10.4.0.9 receiver
                                                  RP of its domain             RP of the other

home hears of the source in Registers alone, and far in home's announcements alone.
"""

import json
import os
import unittest

import lab
from lab import Daemon, Host, Receiver, Router, Sender, link, wait_for
from msdp_topology import MsdpRouter, peer

CONFIG = """[pimsmd]
hello_interval = 1
join_prune_interval = 2
override_interval_ms = 200
[[pimsmd.rp]]
address = "{}"
"""
SOURCE = "10.1.0.9"
HOME, FAR = "10.3.0.2", "10.3.0.3"
RECEIVER_FIRST, SOURCE_FIRST, UNWANTED = "239.1.1.1", "239.1.1.2", "239.1.1.3"


class AcrossDomains(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.first, cls.home, cls.far = Router("first"), MsdpRouter("home"), MsdpRouter("far")
        cls.source, cls.receiver = Host("source"), Host("receiver")
        cls.join_hosts()
        with open("/run/first.toml", "w") as file:
            file.write(CONFIG.format(HOME))
        cls.home.configure(peer(FAR, HOME) + CONFIG.format(HOME))
        cls.far.configure(peer(HOME, FAR) + CONFIG.format(FAR))
        cls.others = []
        cls.pimsmd = {}
        cls.mribd = cls.first.start_mribd()
        cls.others.append(cls.mribd)
        for router in (cls.home, cls.far):
            router.start()
        for router in (cls.first, cls.home, cls.far):
            cls.others.append(router.start_gmpd("ipv4"))
            cls.pimsmd[router.name] = Daemon(router, "pimsmd", os.path.join(lab.PROGRAMS, "pimsmd"), "--config",
                                             f"/run/{router.name}.toml")
        cls.others += cls.pimsmd.values()
        wait_for(lambda: cls.neighbors("home") == 2 and cls.neighbors("far") == 1, "PIM neighbors", 30)
        cls.home.established(FAR)

    @classmethod
    def join_hosts(cls):
        link(cls.source, "e0", cls.first, "e1")
        link(cls.first, "e2", cls.home, "e2")
        link(cls.home, "e3", cls.far, "e3")
        link(cls.far, "e4", cls.receiver, "e0")
        cls.source.no_offload("e0")
        for host, interface, address in ((cls.source, "e0", SOURCE), (cls.first, "e1", "10.1.0.1"),
                                         (cls.first, "e2", "10.2.0.1"), (cls.home, "e2", "10.2.0.2"),
                                         (cls.home, "e3", HOME), (cls.far, "e3", FAR), (cls.far, "e4", "10.4.0.3"),
                                         (cls.receiver, "e0", "10.4.0.9")):
            host.address(interface, f"{address}/24")
        for router, prefix, through in ((cls.first, "10.3.0.0/24", "10.2.0.2"), (cls.first, "10.4.0.0/24", "10.2.0.2"),
                                        (cls.home, "10.1.0.0/24", "10.2.0.1"), (cls.home, "10.4.0.0/24", FAR),
                                        (cls.far, "10.1.0.0/24", HOME), (cls.far, "10.2.0.0/24", HOME)):
            router.route(prefix, "via", through)
        for router in (cls.first, cls.home, cls.far):
            router.sysctl("net.ipv4.conf.all.rp_filter", 0)

    @classmethod
    def tearDownClass(cls):
        for daemon in reversed(cls.others):
            daemon.stop()
        cls.far.stop()
        cls.home.stop()

    def tearDown(self):
        for daemon in self.others:
            self.assertTrue(daemon.alive(), daemon.output())

    @classmethod
    def neighbors(cls, name):
        return sum(len(one["neighbors"]) for one in json.loads(cls.pimsmd[name].status())["links"])

    def explained(self, action):
        """Runs it; a failure comes with what every pimsmd and mribd say."""
        try:
            return action()
        except AssertionError as failure:
            told = [daemon.status() for daemon in (*self.pimsmd.values(), self.home.mribd, self.far.mribd)]
            raise AssertionError("\n".join((str(failure), *told))) from failure

    def announced(self, group):
        self.explained(lambda: self.far.learns(SOURCE, group, HOME, HOME))
        self.assertIn(f"local source ({SOURCE}, {group}): rp {HOME}", self.home.mribd.status())
        self.explained(lambda: wait_for(lambda: any(f"({SOURCE}, {group})" in one for one in self.far.remote_sources()),
                                        "the remote source at mribd"))

    def test_a_receiver_gets_a_source_of_the_other_domain(self):
        receiver = Receiver(self.receiver, "e0", RECEIVER_FIRST)
        wait_for(lambda: f"member (*, {RECEIVER_FIRST})" in self.far.mribd.status(), "the receiver at mribd")
        sender = Sender(self.source, "e0", [RECEIVER_FIRST], rate=100)
        self.announced(RECEIVER_FIRST)
        self.explained(lambda: receiver.grows(30, by=100))
        self.assertEqual(set(receiver.counts()), {SOURCE})
        self.assertEqual(receiver.repeated(), 0)
        receiver.leave()
        sender.stop()

    def test_a_receiver_that_comes_later_gets_it_too(self):
        sender = Sender(self.source, "e0", [SOURCE_FIRST], rate=100)
        self.announced(SOURCE_FIRST)
        receiver = Receiver(self.receiver, "e0", SOURCE_FIRST)
        self.explained(lambda: receiver.grows(30, by=100))
        self.assertEqual(set(receiver.counts()), {SOURCE})
        receiver.leave()
        sender.stop()

    def test_what_nobody_listens_to_does_not_cross(self):
        sender = Sender(self.source, "e0", [UNWANTED], rate=100)
        self.announced(UNWANTED)
        trees = json.loads(self.pimsmd["far"].status())
        self.assertNotIn(UNWANTED, json.dumps(trees))
        self.assertNotIn(f"entry ({SOURCE}, {UNWANTED})", self.far.mribd.status())
        sender.stop()


if __name__ == "__main__":
    unittest.main()
