"""Joins, leaves and time-outs of both families, any-source and source-specific (network of topology.py).

red joins a group of each family, blue joins one of them from one source; what each receives, what the kernel
forwards and what the daemons say must agree, and a leave must stop exactly what was left. A host that vanishes
without a leave is forgotten after the membership interval.
"""

import json
import unittest

from lab import Receiver, Sender, Wire, wait_for
from packets import ALL_REPORTS, ALLOW, IS_EX, packet, record, report
from topology import Network

# A membership that nobody confirms lasts 2 * 2 + 1 seconds.
OPTIONS = ("--last-member-interval", "1", "--query-interval", "2", "--query-response-interval", "1")
FAMILIES = {"-4": "ipv4", "-6": "ipv6"}
GROUPS = {"-4": "239.1.1.1", "-6": "ff1e::1:1"}
SPECIFIC_GROUPS = {"-4": "239.1.2.1", "-6": "ff1e::2:1"}
VANISHED_GROUPS = {"-4": "239.1.3.1", "-6": "ff1e::3:1"}
SOURCES = {"-4": "10.1.0.2", "-6": "fd00:1::2"}
# A neighbour on red's link that has no kernel behind it.
VANISHED = {"-4": "10.2.0.77", "-6": "fe80::77"}


class JoinLeave(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=OPTIONS)
        # The source gets further addresses later; these go on sending from the first.
        cls.senders = [Sender(cls.network.hosts["source"], "eth0", [GROUPS[family], VANISHED_GROUPS[family]],
                              source=source) for family, source in SOURCES.items()]

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def outputs(self, family, group):
        return " ".join(line for line in self.network.router.mroute(family) if group in line)

    def pruned(self, groups, port):
        for family, group in groups.items():
            wait_for(lambda f=family, g=group: port not in self.outputs(f, g), f"{group} no longer forwarded to {port}")

    def join(self, host, groups, sources=None):
        return {family: Receiver(self.network.hosts[host], "eth0", group, sources[family] if sources else None)
                for family, group in groups.items()}

    def test_any_source_join_forwards_and_leave_stops(self):
        red = self.join("red", GROUPS)
        for family, receiver in red.items():
            receiver.grows()
            self.assertEqual(list(receiver.counts()), [SOURCES[family]])
            self.assertRegex(self.outputs(family, GROUPS[family]),
                             rf"\({SOURCES[family]},\s*{GROUPS[family]}\)\s+Iif: src\s+Oifs: red")
            self.assertIn(GROUPS[family], self.network.gmpd[FAMILIES[family]].status())
            self.assertIn(f"member (*, {GROUPS[family]}): red", self.network.mribd.status())
        for receiver in red.values():
            receiver.leave()
        self.pruned(GROUPS, "red")
        for family, group in GROUPS.items():
            wait_for(lambda f=family, g=group: g not in self.network.gmpd[FAMILIES[f]].status(),
                     f"{group} gone from gmpd's status")

    def test_source_specific_join_gets_that_source_only(self):
        host = self.network.hosts["source"]
        others = {family: source + "2" for family, source in SOURCES.items()}
        host.address("eth0", others["-4"] + "/24", others["-6"] + "/64")
        senders = [Sender(host, "eth0", list(SPECIFIC_GROUPS.values()), source=address)
                   for address in (*SOURCES.values(), *others.values())]
        blue = self.join("blue", SPECIFIC_GROUPS, SOURCES)
        for family, receiver in blue.items():
            receiver.grows(by=20)
            self.assertEqual(list(receiver.counts()), [SOURCES[family]])
        red = self.join("red", SPECIFIC_GROUPS)
        for family, receiver in red.items():
            both = {SOURCES[family], others[family]}
            wait_for(lambda r=receiver, b=both: set(r.counts()) == b, "both sources at red")
            self.assertEqual(list(blue[family].counts()), [SOURCES[family]])
            blue[family].leave()
        self.pruned(SPECIFIC_GROUPS, "blue")
        for receiver in red.values():
            receiver.grows()
            receiver.leave()
        for sender in senders:
            sender.stop()

    def test_two_receivers_of_one_group_are_one_entry(self):
        both = [self.join(host, GROUPS) for host in ("red", "blue")]
        for family, group in GROUPS.items():
            for receivers in both:
                receivers[family].grows()
            entries = [line for line in self.network.router.mroute(family) if group in line]
            self.assertEqual(len(entries), 1)
            self.assertRegex(entries[0], r"Oifs:.*red.*blue|Oifs:.*blue.*red")
            both[0][family].leave()
        self.pruned(GROUPS, "red")
        for receiver in both[1].values():
            receiver.grows()
            receiver.leave()
        self.pruned(GROUPS, "blue")

    def test_a_host_that_vanishes_is_forgotten_in_time(self):
        wire = Wire(self.network.hosts["red"], "eth0")
        for family, group in VANISHED_GROUPS.items():
            name = FAMILIES[family]
            wait_for(lambda n=name: self.red(n).get("running"), "gmpd serving red")
            # One group for any source, one for a named one: each kind has a timer of its own.
            records = (record(IS_EX, group), record(ALLOW, group[:-1] + "2", (SOURCES[family],)))
            wire.send(packet(report(name, *records), VANISHED[family], ALL_REPORTS[name]), name)
        for family, group in VANISHED_GROUPS.items():
            wait_for(lambda f=family, g=group: "red" in self.outputs(f, g), f"{group} forwarded to red")
            wait_for(lambda g=group: f"{g[:-1]}2): red" in self.network.mribd.status(), "the named source at mribd")
        leaves = {name: self.red(name)["counters"].get("received_leaves", 0) for name in FAMILIES.values()}
        self.pruned(VANISHED_GROUPS, "red")
        for family, group in VANISHED_GROUPS.items():
            name = FAMILIES[family]
            named = f"{group[:-1]}2): red"
            wait_for(lambda n=named: n not in self.network.mribd.status(), "the named source forgotten")
            self.assertEqual(self.red(name)["counters"].get("received_leaves", 0), leaves[name])

    def red(self, name):
        interfaces = json.loads(self.network.gmpd[name].status())["interfaces"]
        return next((one for one in interfaces if one["interface"] == "red"), {})


if __name__ == "__main__":
    unittest.main()
