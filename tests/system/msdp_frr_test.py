"""msdpd and FRR's pimd as MSDP peers.

   near                 router                      frr                 far
   10.1.0.2 eth0 --- src      mid -------- mid            far --- eth0 10.2.0.2
                  10.1.0.1    10.9.0.1, .3     10.9.0.2     10.2.0.1
                     mribd, msdpd              zebra, pimd: RP

From 10.9.0.1 msdpd connects to FRR, from 10.9.0.3 it listens.
"""

import re
import unittest

from frr import Frr
from lab import Host, Sender, link, wait_for
from msdp_topology import MsdpRouter, peer

NEAR, FAR = "10.1.0.2", "10.2.0.2"
GROUPS = {NEAR: "239.1.1.1", FAR: "239.2.2.2"}

FRR_CONFIG = """
interface far
 ip pim
 ip igmp
interface mid
 ip pim
ip pim rp 10.9.0.2 239.0.0.0/8
ip msdp peer {0} source 10.9.0.2
"""


class FrrTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router = MsdpRouter("router", "10.9.0.1")
        host = Host("frr", forwarding=True)
        near, far = Host("near"), Host("far")
        link(cls.router, "src", near, "eth0")
        link(cls.router, "mid", host, "mid")
        link(host, "far", far, "eth0")
        cls.router.address("src", "10.1.0.1/24")
        cls.router.address("mid", "10.9.0.1/24", "10.9.0.3/24")
        host.address("mid", "10.9.0.2/24")
        host.address("far", "10.2.0.1/24")
        near.address("eth0", f"{NEAR}/24")
        far.address("eth0", f"{FAR}/24")
        near.route("default", "via", "10.1.0.1")
        far.route("default", "via", "10.2.0.1")
        cls.router.route("10.2.0.0/24", "via", "10.9.0.2")
        host.route("10.1.0.0/24", "via", "10.9.0.1")
        cls.frr = Frr(host, FRR_CONFIG.format("10.9.0.1"))
        cls.router.configure(peer("10.9.0.2", "10.9.0.1"))
        cls.router.start()
        cls.senders = [Sender(near, "eth0", [GROUPS[NEAR]]), Sender(far, "eth0", [GROUPS[FAR]])]

    @classmethod
    def tearDownClass(cls):
        cls.router.stop()

    def both_know_both(self):
        self.router.established("10.9.0.2")
        self.router.learns(FAR, GROUPS[FAR], "10.9.0.2", "10.9.0.2")
        wait_for(lambda: re.search(rf"{NEAR} +{GROUPS[NEAR]} +10\.9\.0\.1 +n", self.frr.show("ip msdp sa")),
                 "the near source in FRR's table")
        wait_for(lambda: any(f"({FAR}, {GROUPS[FAR]})" in line for line in self.router.remote_sources()),
                 "the far source in mribd")

    def test_1_sources_of_both_sides_reach_the_other(self):
        self.both_know_both()
        self.assertEqual(self.router.tables()["rpf"],
                         [{"originator": "10.9.0.2", "peer": "10.9.0.2", "rule": "originator", "entries": 1}])

    def test_2_frr_is_restarted(self):
        self.frr.kill()
        wait_for(lambda: self.router.peer("10.9.0.2")["state"] == "connecting", "the end of the connection")
        self.assertIn((FAR, GROUPS[FAR]), self.router.cache())
        self.frr.start()
        self.both_know_both()
        self.assertEqual(self.router.count("10.9.0.2", "connections"), 2)

    def test_3_msdpd_is_restarted(self):
        self.router.msdpd.kill()
        self.assertTrue(self.router.remote_sources(), "mribd keeps what it was told")
        self.router.start_msdpd()
        self.both_know_both()

    def test_4_mribd_is_restarted(self):
        self.router.mribd.kill()
        self.router.mribd = self.router.start_mribd("--config", self.router.config_path)
        self.both_know_both()
        self.assertTrue(self.router.tables()["mrib_connected"])

    def test_5_the_other_role(self):
        self.frr.configure("no ip msdp peer 10.9.0.1", "ip msdp peer 10.9.0.3 source 10.9.0.2")
        self.router.configure(peer("10.9.0.2", "10.9.0.3"))
        self.router.reload()
        wait_for(lambda: self.router.peer("10.9.0.2")["local_address"] == "10.9.0.3", "the new address")
        # FRR tries again every 30 seconds.
        wait_for(lambda: self.router.peer("10.9.0.2")["state"] == "established", "FRR's connection", 45)
        self.router.learns(FAR, GROUPS[FAR], "10.9.0.2", "10.9.0.2")
        self.assertEqual(self.router.tables()["refused_connections"], 0)


if __name__ == "__main__":
    unittest.main()
