"""Hosts of every protocol version are heard, although the routing sockets belong to mribd (topology.py).

The receiving host is forced to IGMPv1, v2, v3 and MLDv1, v2 in turn; each joins, receives, and, where its
version has a leave message, leaves with effect. A version 1 host's membership ends by time-out alone.
"""

import unittest

from lab import Receiver, Sender, wait_for
from topology import Network

# Short timers, so that a membership that only time ends does so within the scenario.
OPTIONS = ("--last-member-interval", "1", "--query-interval", "3", "--query-response-interval", "1")


class HostVersions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=OPTIONS)
        cls.groups = ["239.2.0.1", "239.2.0.2", "239.2.0.3", "ff1e::2:1", "ff1e::2:2"]
        cls.sender = Sender(cls.network.hosts["source"], "eth0", cls.groups)

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def join_and_leave(self, family, sysctl, version, group):
        red = self.network.hosts["red"]
        red.sysctl(sysctl, version)
        receiver = Receiver(red, "eth0", group)
        receiver.grows()
        receiver.leave()
        wait_for(
            lambda: not any(group in line and "red" in line for line in self.network.router.mroute(family)),
            f"{group} no longer forwarded to red", 30)

    def test_igmp_version_1(self):
        self.join_and_leave("-4", "net.ipv4.conf.eth0.force_igmp_version", 1, "239.2.0.1")

    def test_igmp_version_2(self):
        self.join_and_leave("-4", "net.ipv4.conf.eth0.force_igmp_version", 2, "239.2.0.2")

    def test_igmp_version_3(self):
        self.join_and_leave("-4", "net.ipv4.conf.eth0.force_igmp_version", 3, "239.2.0.3")

    def test_mld_version_1(self):
        self.join_and_leave("-6", "net.ipv6.conf.eth0.force_mld_version", 1, "ff1e::2:1")

    def test_mld_version_2(self):
        self.join_and_leave("-6", "net.ipv6.conf.eth0.force_mld_version", 2, "ff1e::2:2")


if __name__ == "__main__":
    unittest.main()
