"""Joins and leaves of both families, any-source and source-specific (network of topology.py).

red joins a group of each family, blue joins one of them from one source; what each receives, what the kernel
forwards and what the daemons say must agree, and a leave must stop exactly what was left.
"""

import unittest

from lab import Receiver, Sender, wait_for
from topology import Network

GROUP4, GROUP6 = "239.1.1.1", "ff1e::1:1"
SOURCE4, SOURCE6 = "10.1.0.2", "fd00:1::2"


class JoinLeave(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network()
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP4, GROUP6])

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def outputs(self, family):
        return " ".join(self.network.router.mroute(family))

    def test_any_source_join_forwards_and_leave_stops(self):
        for family, group, source in (("-4", GROUP4, SOURCE4), ("-6", GROUP6, SOURCE6)):
            with self.subTest(group=group):
                red = Receiver(self.network.hosts["red"], "eth0", group)
                red.grows()
                self.assertEqual(list(red.counts()), [source])
                self.assertRegex(self.outputs(family), rf"\({source},\s*{group}\)\s+Iif: src\s+Oifs: red")
                red.leave()
                wait_for(lambda f=family: "red" not in self.outputs(f), "red pruned")

    def test_source_specific_join_gets_that_source_only(self):
        for family, group, source in (("-4", "239.1.2.1", SOURCE4), ("-6", "ff1e::2:1", SOURCE6)):
            with self.subTest(group=group):
                host = self.network.hosts["source"]
                other = source + "2"
                host.address("eth0", other + ("/24" if family == "-4" else "/64"))
                senders = [Sender(host, "eth0", [group], source=address) for address in (source, other)]
                blue = Receiver(self.network.hosts["blue"], "eth0", group, source)
                blue.grows(by=20)
                self.assertEqual(list(blue.counts()), [source])
                everything = Receiver(self.network.hosts["red"], "eth0", group)
                wait_for(lambda: set(everything.counts()) == {source, other}, "both sources at red")
                self.assertEqual(list(blue.counts()), [source])
                blue.leave()
                wait_for(lambda f=family: "blue" not in self.outputs(f), "blue pruned")
                everything.grows()
                everything.leave()
                for sender in senders:
                    sender.stop()

    def test_two_receivers_of_one_group_are_one_entry(self):
        both = [Receiver(self.network.hosts[name], "eth0", GROUP4) for name in ("red", "blue")]
        for receiver in both:
            receiver.grows()
        entries = [line for line in self.network.router.mroute("-4") if GROUP4 in line]
        self.assertEqual(len(entries), 1)
        self.assertRegex(entries[0], r"Oifs:.*red.*blue|Oifs:.*blue.*red")
        both[0].leave()
        wait_for(lambda: "red" not in self.outputs("-4"), "red pruned")
        both[1].grows()
        both[1].leave()
        wait_for(lambda: "blue" not in self.outputs("-4"), "blue pruned")

    def test_status_names_the_joined_group(self):
        red = Receiver(self.network.hosts["red"], "eth0", GROUP4)
        red.grows()
        self.assertIn(GROUP4, self.network.mribd.status())
        self.assertIn(GROUP4, self.network.gmpd["ipv4"].status())
        red.leave()
        wait_for(lambda: GROUP4 not in self.network.gmpd["ipv4"].status(), "the group gone from gmpd's status")


if __name__ == "__main__":
    unittest.main()
