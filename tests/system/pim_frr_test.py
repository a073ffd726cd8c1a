#!/usr/bin/env python3
"""pimsmd beside FRRouting's pimd, IPv4, which is the nearer to the source:

    10.1.0.0/24  frr 10.2.0.1 ── 10.2.0.2 ours 10.3.0.2 ── 10.3.0.9 speaker, joins as a router would
"""

import json
import os
import unittest

import frr
import lab
from lab import Daemon, Host, Router, link, wait_for
from pim_speaker import Speaker

CONFIG = "[pimsmd]\nhello_interval = 1\njoin_prune_interval = 2\n"
FRR_CONFIG = "interface across\n ip pim\n ip pim hello 1 4\ninterface net\n ip pim\n ip igmp\n"
FLOW = ("232.1.1.1", "10.1.0.9")


class BesideFrr(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.theirs, cls.ours, cls.behind = Router("theirs"), Router("ours"), Host("behind")
        source = Host("source")
        link(source, "e0", cls.theirs, "net")
        link(cls.theirs, "across", cls.ours, "across")
        link(cls.ours, "lan", cls.behind, "e0")
        source.address("e0", "10.1.0.9/24")
        cls.theirs.address("net", "10.1.0.1/24")
        cls.theirs.address("across", "10.2.0.1/24")
        cls.ours.address("across", "10.2.0.2/24")
        cls.ours.address("lan", "10.3.0.2/24")
        cls.behind.address("e0", "10.3.0.9/24")
        cls.ours.route("10.1.0.0/24", "via", "10.2.0.1")
        cls.theirs.route("10.3.0.0/24", "via", "10.2.0.2")
        cls.configure("")
        cls.pimsmd = Daemon(cls.ours, "pimsmd", os.path.join(lab.PROGRAMS, "pimsmd"), "--config", "/run/ours.toml")
        cls.frr = frr.Frr(cls.theirs, FRR_CONFIG)
        cls.speaker = Speaker(cls.behind, "e0", "ipv4", "10.3.0.9")

    @classmethod
    def tearDownClass(cls):
        cls.speaker.close()
        cls.frr.stop()
        cls.pimsmd.stop()

    @staticmethod
    def configure(more):
        with open("/run/ours.toml", "w") as file:
            file.write(CONFIG + more)

    def link_of(self, interface):
        return {one["interface"]: one for one in json.loads(self.pimsmd.status())["links"]}[interface]

    def neighbors(self):
        return {one["address"]: one for one in self.link_of("across")["neighbors"]}

    def joins_at_frr(self):
        groups = self.frr.show_json("ip pim join").get("across", {})
        return {(group, source) for group, sources in groups.items() if isinstance(sources, dict)
                for source in sources}

    def each_is_neighbor(self):
        wait_for(lambda: set(self.neighbors()) == {"10.2.0.1"}, "FRR as neighbor of ours", 30)
        wait_for(lambda: self.frr.show_json("ip pim neighbor").get("across", {}).get("10.2.0.2"),
                 "ours as neighbor of FRR", 30)

    def test_1_neighbors_agree_on_what_they_said(self):
        self.each_is_neighbor()
        theirs = self.neighbors()["10.2.0.1"]
        self.assertEqual((theirs["dr_priority"], theirs["propagation_ms"], theirs["override_ms"]), (1, 500, 2500))
        ours = self.frr.show_json("ip pim neighbor 10.2.0.2")["across"]["10.2.0.2"]
        self.assertEqual(ours["drPriority"], 1, ours)
        self.assertEqual(ours["generationId"], self.link_of("across")["generation"], ours)
        self.assertTrue(ours["helloOptionLanPruneDelay"], ours)

    def test_2_a_priority_moves_the_designated_router_in_both(self):
        def both_say(address):
            theirs = self.frr.show_json("ip pim interface across").get("across", {}).get("drAddress")
            return self.link_of("across")["designated_router"] == address and theirs == address

        self.each_is_neighbor()
        wait_for(lambda: both_say("10.2.0.2"), "the higher address designated")
        self.frr.configure("interface across", "ip pim drpriority 5")
        wait_for(lambda: both_say("10.2.0.1"), "FRR designated by its priority")
        self.configure('[[pimsmd.interface]]\nname = "across"\ndr_priority = 6\n[[pimsmd.interface]]\nname = "lan"\n')
        self.pimsmd.reload()
        wait_for(lambda: both_say("10.2.0.2"), "ours designated by its priority")

    def join(self, prune=False):
        self.speaker.hello()
        wait_for(lambda: self.link_of("lan")["neighbors"], "the speaker known")
        self.speaker.join("10.3.0.2", *FLOW, prune=prune)

    def test_3_a_join_of_ours_reaches_frr_and_a_prune_ends_it(self):
        self.each_is_neighbor()
        self.join()
        wait_for(lambda: FLOW in self.joins_at_frr(), "the Join at FRR")
        self.join(prune=True)
        wait_for(lambda: FLOW not in self.joins_at_frr(), "the Prune at FRR")

    def test_4_frr_that_starts_again_is_told_the_joins_at_once(self):
        self.each_is_neighbor()
        self.join()
        wait_for(lambda: FLOW in self.joins_at_frr(), "the Join at FRR")
        self.frr.kill()
        self.frr.start()
        wait_for(lambda: FLOW in self.joins_at_frr(), "the Join at FRR again", 30)
        self.join(prune=True)
        wait_for(lambda: FLOW not in self.joins_at_frr(), "the Prune at FRR")

    def test_5_a_join_of_frr_reaches_ours(self):
        self.each_is_neighbor()
        self.frr.configure("interface net", "ip igmp join 232.1.1.1 10.3.0.9")
        wait_for(lambda: json.loads(self.pimsmd.status())["entries"] == 2, "FRR's Join", 30)
        self.frr.configure("interface net", "no ip igmp join 232.1.1.1 10.3.0.9")
        wait_for(lambda: json.loads(self.pimsmd.status())["entries"] == 0, "FRR's Prune", 30)

    def tearDown(self):
        self.assertTrue(self.pimsmd.alive(), self.pimsmd.output())


if __name__ == "__main__":
    unittest.main()
