"""Interfaces come, go, change their name and lose their address while the daemons run (topology.py).

The unconcerned host misses no packet in all that time; the concerned one is served again once its interface is
whole again.
"""

import json
import unittest

from lab import Receiver, Sender, run, wait_for
from topology import Network

GROUP4, GROUP6 = "239.4.0.1", "ff1e::4:1"


class Interfaces(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=("--last-member-interval", "1", "--query-interval", "3",
                                            "--query-response-interval", "1"))
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP4, GROUP6])
        # The kernel keeps few packets of a flow for which there is no entry yet, and drops those that follow.
        wait_for(lambda: cls.network.mribd.status().count("  entry (") == 2, "entries of both flows")
        cls.steady = [Receiver(cls.network.hosts["red"], "eth0", group) for group in (GROUP4, GROUP6)]
        for receiver in cls.steady:
            receiver.grows()

    @classmethod
    def tearDownClass(cls):
        for receiver in cls.steady:
            receiver.grows()
            assert receiver.missed() == 0, f"packets missed on a link that nothing happened to: {receiver.said()}"
        cls.network.assert_healthy()

    def served(self, host, groups=(GROUP4, GROUP6)):
        for group in groups:
            receiver = Receiver(host, "eth0", group)
            receiver.grows(timeout_s=30)
            receiver.leave()

    def test_interface_added_while_running(self):
        green = self.network.attach("green", 4)
        self.served(green)

    def test_interface_deleted_and_made_again(self):
        violet = self.network.attach("violet", 5)
        self.served(violet)
        self.network.router.run("ip", "link", "delete", "violet")
        run("ip", "netns", "delete", "violet")
        violet = self.network.attach("violet", 5)
        self.served(violet)

    def test_interface_renamed(self):
        brown = self.network.attach("brown", 6)
        self.served(brown)
        router = self.network.router
        router.run("ip", "link", "set", "brown", "down")
        router.run("ip", "link", "set", "brown", "name", "tan")
        router.run("ip", "link", "set", "tan", "up")
        router.run("ip", "-6", "address", "replace", "fd00:6::1/64", "dev", "tan")
        self.served(brown)
        for family in ("ipv4", "ipv6"):
            wait_for(lambda f=family: "tan" in self.network.gmpd[f].status(), "the new name in the status")

    def test_interface_renamed_while_it_is_up(self):
        router, white = self.network.router, self.network.attach("white", 7)
        receivers = [Receiver(white, "eth0", group) for group in (GROUP4, GROUP6)]
        for receiver in receivers:
            receiver.grows(timeout_s=30)
        said = router.run("ip", "link", "set", "white", "name", "ivory", check=False)
        if said:
            self.skipTest(f"this kernel renames no interface that is up: {said.strip()}")
        for family in ("ipv4", "ipv6"):
            wait_for(lambda f=family: self.runs(f, "ivory"), "the new name in the status")
        wait_for(lambda: "ivory" in self.network.mribd.status(), "the new name at mribd")
        router.assert_agrees(self.network.mribd)
        for receiver in receivers:
            receiver.grows(by=50)
            self.assertEqual(receiver.missed(), 0)
            receiver.leave()

    def test_interface_down_and_up(self):
        router, blue = self.network.router, self.network.hosts["blue"]
        receivers = [Receiver(blue, "eth0", group) for group in (GROUP4, GROUP6)]
        for receiver in receivers:
            receiver.grows()
        router.run("ip", "link", "set", "blue", "down")
        wait_for(lambda: not any("blue" in line for line in router.mroute("-4") + router.mroute("-6")),
                 "nothing forwarded to a dead interface")
        router.run("ip", "link", "set", "blue", "up")
        router.run("ip", "-6", "address", "replace", "fd00:3::1/64", "dev", "blue")
        for receiver in receivers:
            receiver.grows(timeout_s=30)
            receiver.leave()

    def test_address_removed_and_restored(self):
        router, blue = self.network.router, self.network.hosts["blue"]
        link_local = router.run("ip", "-6", "-o", "address", "show", "dev", "blue", "scope", "link").split()[3]
        for family, group, address in (("ipv4", GROUP4, "10.3.0.1/24"), ("ipv6", GROUP6, link_local)):
            with self.subTest(family=family):
                receiver = Receiver(blue, "eth0", group)
                receiver.grows()
                router.run("ip", "address", "delete", address, "dev", "blue")
                wait_for(lambda f=family: not self.runs(f, "blue"), "gmpd without an address to ask from")
                router.run("ip", "address", "add", address, "dev", "blue")
                wait_for(lambda f=family: self.runs(f, "blue"), "gmpd asking again")
                receiver.grows(timeout_s=30)
                receiver.leave()

    def runs(self, family, name):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return any(one["interface"] == name and one["running"] for one in interfaces)


if __name__ == "__main__":
    unittest.main()
