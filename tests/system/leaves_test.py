"""One host leaves hundreds of groups with a few packets: the link is asked at a bounded rate, and all of them end
(topology.py)."""

import json
import time
import unittest

from lab import Wire, wait_for
from packets import ALL_REPORTS, IS_EX, TO_IN, ipv4, ipv6, record, report
from topology import GMPD_OPTIONS, Network

COUNT = 400
RATE = 100
NEIGHBOUR = {"ipv4": "10.2.0.77", "ipv6": "fe80::77"}
# Records of each family that a packet of 1500 bytes takes.
TOGETHER = {"ipv4": 150, "ipv6": 60}


def group(family, number):
    return f"239.17.{number // 200}.{number % 200}" if family == "ipv4" else f"ff1e::17:{number:x}"


class Leaves(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=GMPD_OPTIONS)
        cls.wire = Wire(cls.network.hosts["red"], "eth0")

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def red(self, family):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return next(one for one in interfaces if one["interface"] == "red")

    def asked(self, family):
        return self.red(family)["counters"].get("sent_group_queries", 0)

    def say(self, family, kind, first, count):
        records = [record(kind, group(family, number)) for number in range(first, first + count)]
        build = ipv4 if family == "ipv4" else ipv6
        for at in range(0, count, TOGETHER[family]):
            message = report(family, *records[at:at + TOGETHER[family]])
            self.wire.send(build(message, NEIGHBOUR[family], ALL_REPORTS[family]), family)

    def leave_together(self, family):
        wait_for(lambda: self.red(family)["running"], "the protocol on red")
        self.say(family, IS_EX, 1, COUNT)
        wait_for(lambda: self.red(family)["group_count"] >= COUNT, "all groups joined")
        others = self.red(family)["group_count"] - COUNT
        before, began = self.asked(family), time.monotonic()
        self.say(family, TO_IN, 1, COUNT)
        while self.red(family)["group_count"] > others:
            asked = self.asked(family) - before
            # A second more for the one that had begun, one for that of the clocks.
            self.assertLessEqual(asked, RATE * (time.monotonic() - began + 2), "queries in this time")
            time.sleep(0.2)
        self.assertGreaterEqual(self.asked(family) - before, 2 * COUNT, "each asked about twice")
        self.assertGreater(self.red(family)["counters"]["delayed_group_queries"], 0)

    def test_igmp(self):
        self.leave_together("ipv4")

    def test_mld(self):
        self.leave_together("ipv6")

    def test_groups_without_members_are_not_asked_about(self):
        before = self.asked("ipv4")
        received = self.red("ipv4")["counters"].get("received_reports_v3", 0)
        self.say("ipv4", TO_IN, 5000, COUNT)
        wait_for(lambda: self.red("ipv4")["counters"].get("received_reports_v3", 0) >= received + 3, "leaves heard")
        self.assertEqual(self.asked("ipv4"), before)


if __name__ == "__main__":
    unittest.main()
