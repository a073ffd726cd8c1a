"""Instances with overlapping groups do not see each other: two routers with the same addresses, groups and local
ports beside each other, and two instances of one mribd as its clients see them.

      a-source ---- a-router ---- a-red        b-source ---- b-router ---- b-red
      10.1.0.2      mribd, gmpd x 2            10.1.0.2      mribd, gmpd x 2           the same addresses twice
                    + ---- a-blue                            + ---- b-blue

vpn_instances_test has the instances of one router with traffic.
"""

import json
import unittest

from lab import Receiver, Sender, matches, wait_for
from msdp_client import MsdpClient
from topology import GMPD_OPTIONS, Network

GROUPS = ("239.14.0.1", "ff1e::14:1")
CONFIG = "/run/instances.toml"
BOUNDARY = '[[mribd.interface]]\nname = "red"\nboundaries = ["239.14.0.0/16", "ff1e::14:0/112"]\n'
TWO_INSTANCES = """[[mribd.instance]]
ssm_acl.ipv4 = 2001

[[mribd.instance]]
vrf = 5
ssm_acl.ipv4 = 2005
"""


def configure(text):
    with open(CONFIG, "w") as file:
        file.write(text)


class TwoRouters(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        configure("")
        cls.networks = [Network(start=False, prefix=prefix) for prefix in ("a-", "b-")]
        first, second = cls.networks
        first.mribd = first.router.start_mribd("--config", CONFIG)
        first.mribd.status()
        # The second router's gmpd finds no mribd: the first one's is none of its business.
        for network in (second, first):
            network.gmpd = {family: network.router.start_gmpd(family, *GMPD_OPTIONS) for family in ("ipv4", "ipv6")}
        for gmpd in first.gmpd.values():
            wait_for(lambda g=gmpd: cls.connected(g), "the first router's gmpd connected")
        for gmpd in second.gmpd.values():
            assert not cls.connected(gmpd), "gmpd connected to another router's mribd"
        second.mribd = second.router.start_mribd()
        for gmpd in second.gmpd.values():
            wait_for(lambda g=gmpd: cls.connected(g), "the second router's gmpd connected")
        cls.senders = [Sender(network.hosts["source"], "eth0", GROUPS) for network in cls.networks]

    @classmethod
    def tearDownClass(cls):
        for network in cls.networks:
            network.assert_healthy()

    @staticmethod
    def connected(gmpd):
        return json.loads(gmpd.status())["mrib_connected"]

    def test_each_forwards_what_its_own_hosts_joined(self):
        first, second = self.networks
        red = [Receiver(first.hosts["red"], "eth0", group) for group in GROUPS]
        blue = [Receiver(second.hosts["blue"], "eth0", group) for group in GROUPS]
        for receiver in (*red, *blue):
            receiver.grows()
        for network, port in ((first, "red"), (second, "blue")):
            entries = network.router.mroute("-4") + network.router.mroute("-6")
            self.assertEqual([line.split("Oifs:")[1].split()[0] for line in entries], [port] * 2)
            for group in GROUPS:
                self.assertRegex(network.mribd.status(), rf"member \(\*, {group}\): {port}\[client \d+\]\n")

        configure(BOUNDARY)
        first.mribd.reload()
        wait_for(lambda: not any("red" in line for line in first.router.mroute("-4") + first.router.mroute("-6")),
                 "the first router's boundary")
        first.mribd.kill()
        for receiver in blue:
            receiver.grows(by=20)
        configure("")
        first.mribd = first.router.start_mribd("--config", CONFIG)
        for receiver in red:
            receiver.grows()
        for receiver in (*red, *blue):
            receiver.leave()


class OneRouterTwoInstances(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        configure(TWO_INSTANCES)
        cls.network = Network(start=False, prefix="c-")
        cls.network.mribd = cls.network.router.start_mribd("--config", CONFIG)
        cls.network.mribd.status()

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def status_shows(self, pattern, present=True):
        wait_for(lambda: matches(pattern, self.network.mribd.status()) == present,
                 f"{pattern} {'in' if present else 'gone from'} mribd's status")

    def configure(self, text):
        configure(text)
        self.network.mribd.reload()

    def sees(self, client, number, what):
        client.command(f"instance {number}")
        wait_for(lambda: client.view().startswith(f"show: {what}"), f"{what} of instance {number} at the client")

    def test_state_and_policy_are_told_for_each(self):
        client = MsdpClient(self.network.router)
        self.sees(client, 0, "vrf 1, acl 2001")
        self.sees(client, 5, "vrf 1, acl 2005")
        self.configure(TWO_INSTANCES + "enabled = false\n")
        self.sees(client, 5, "vrf 0")
        self.sees(client, 0, "vrf 1, acl 2001")
        self.configure(TWO_INSTANCES.replace("2001", "2002"))
        self.sees(client, 0, "vrf 1, acl 2002")
        self.sees(client, 5, "vrf 1, acl 2005")
        self.configure(TWO_INSTANCES)
        self.sees(client, 0, "vrf 1, acl 2001")
        self.assertEqual(client.stop(), 0)

    def test_the_same_remote_source_is_kept_for_each(self):
        client = MsdpClient(self.network.router)
        self.sees(client, 5, "vrf 1")
        both = {number: rf"remote source \(192\.0\.2\.1, 239\.14\.1\.1\): instance {number}" for number in (0, 5)}
        for number in both:
            client.command(f"instance {number}")
            client.command("remote 239.14.1.1 192.0.2.1")
            self.status_shows(both[number])
        client.command("delete 239.14.1.1 192.0.2.1")
        self.status_shows(both[5], present=False)
        self.status_shows(both[0])
        client.command("instance 0")
        client.command("delete 0.0.0.0 0.0.0.0")
        self.status_shows(both[0], present=False)
        self.assertEqual(client.stop(), 0)


if __name__ == "__main__":
    unittest.main()
