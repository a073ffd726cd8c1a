"""Hosts of every protocol version side by side on one link are heard, although the routing sockets belong to mribd.

      source  eth0 ---- src  router  lan ---- switch ---- eth0  host1   IGMPv1, MLDv1
      10.1.0.2             10.7.0.1              |------- eth0  host2   IGMPv2, MLDv1
                           fd00:7::1             +------- eth0  host3   IGMPv3, MLDv2

All three join one group, and each one of its own. The older ones keep the shared group when the newest leaves,
whose leave does not count while they are present; a version 1 host has no leave, so that time alone ends its
memberships.
"""

import json
import unittest

from lab import Host, Receiver, Segment, Sender, link, wait_for
from topology import Network

# Short timers: a version 1 host is forgotten after 2 * 2 + 1 seconds.
OPTIONS = ("--last-member-interval", "1", "--query-interval", "2", "--query-response-interval", "1")
VERSIONS = {"ipv4": ("force_igmp_version", (1, 2, 3)), "ipv6": ("force_mld_version", (1, 1, 2))}
SHARED = {"ipv4": "239.2.0.9", "ipv6": "ff1e::2:9"}
OLDEST = {"ipv4": "version_1_host_s", "ipv6": "version_2_host_s"}
OWN = {"ipv4": ["239.2.0.1", "239.2.0.2", "239.2.0.3"], "ipv6": ["ff1e::2:1", "ff1e::2:2", "ff1e::2:3"]}


class HostVersions(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=OPTIONS)
        cls.segment = Segment("switch")
        cls.segment.attach(cls.network.router, "lan")
        cls.network.router.address("lan", "10.7.0.1/24", "fd00:7::1/64")
        cls.hosts = [cls.attach(number) for number in (1, 2, 3)]
        groups = [*SHARED.values(), *OWN["ipv4"], *OWN["ipv6"]]
        cls.sender = Sender(cls.network.hosts["source"], "eth0", groups)

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    @classmethod
    def attach(cls, number):
        host = Host(f"host{number}")
        cls.segment.attach(host, "eth0")
        host.address("eth0", f"10.7.0.{number + 1}/24", f"fd00:7::{number + 1}/64")
        for sysctl, versions in VERSIONS.values():
            family = "ipv4" if "igmp" in sysctl else "ipv6"
            host.sysctl(f"net.{family}.conf.eth0.{sysctl}", versions[number - 1])
        return host

    def lan(self, family):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return next(one for one in interfaces if one["interface"] == "lan")

    def group(self, family, address):
        return next((one for one in self.lan(family)["groups"] if one["group"] == address), {})

    def forwarded(self, address):
        entries = self.network.router.mroute("-6" if ":" in address else "-4")
        return any(address in line and "lan" in line for line in entries)

    def marked(self, family, address, name):
        """Waits until the router knows of a host of the version on the group."""
        wait_for(lambda: name in self.group(family, address), f"{name} of {address}")

    def report_of_the_oldest(self, shared):
        """Has host1 join the shared groups anew: others' reports keep it from answering queries, and after five
        seconds it is forgotten."""
        def told():
            for family, receivers in shared.items():
                receivers[0].leave()
                receivers[0] = Receiver(self.hosts[0], "eth0", SHARED[family])
                receivers[0].grows()
            return all(name in self.group(family, SHARED[family]) for family, name in OLDEST.items())
        wait_for(told, "the oldest host's reports")

    def test_versions_side_by_side_on_one_link(self):
        shared = {family: [Receiver(host, "eth0", group) for host in self.hosts] for family, group in SHARED.items()}
        own = [Receiver(host, "eth0", OWN[family][at]) for family in OWN for at, host in enumerate(self.hosts)]
        for receiver in (*shared["ipv4"], *shared["ipv6"], *own):
            receiver.grows()
        for family, name in OLDEST.items():
            self.marked(family, OWN[family][0], name)
            self.assertFalse(set(OLDEST.values()) & set(self.group(family, OWN[family][2])))
        self.marked("ipv4", OWN["ipv4"][1], "version_2_host_s")

        before = self.lan("ipv4")["counters"].get("ignored_for_older_hosts", 0)
        self.report_of_the_oldest(shared)
        for host in (2, 1):
            for receivers in shared.values():
                receivers[host].leave()
            if host == 2:
                wait_for(lambda: self.lan("ipv4")["counters"].get("ignored_for_older_hosts", 0) > before,
                         "the newest host's leave not counting")
            for receivers in shared.values():
                receivers[0].grows(by=50)

        for receiver in (*own, *(receivers[0] for receivers in shared.values())):
            receiver.leave()
        for address in (*OWN["ipv4"], *OWN["ipv6"], *SHARED.values()):
            wait_for(lambda a=address: not self.forwarded(a), f"{address} no longer forwarded", 40)


if __name__ == "__main__":
    unittest.main()
