"""Election with another implementation, FRRouting's pimd as the other querier of the link (IGMP; Debian's FRRouting
has no MLD daemon).

      frr  eth0 ----------- switch ---------- lan  router  gmpd, mribd
      zebra, pimd             |                    10.9.0.2
      10.9.0.1, later .9      |
                            eth0  host  10.9.0.100

With the lower address FRRouting asks and gmpd follows; with the higher one it is the other way round. Both hear the
host's join all the time.
"""

import json
import unittest

from frr import Frr
from lab import Host, Receiver, Router, Segment, wait_for

GROUP = "239.8.0.1"
# Longer than FRRouting's, so that following it shows.
OPTIONS = ("--query-interval", "3", "--query-response-interval", "1")
CONFIGURATION = """interface eth0
 ip igmp
 ip igmp version 3
 ip igmp query-max-response-time 10
 ip igmp query-interval 2
"""


class WithFrr(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        segment, cls.other, cls.router, cls.host = Segment("switch"), Host("frr"), Router("router"), Host("host")
        for host, interface in ((cls.other, "eth0"), (cls.router, "lan"), (cls.host, "eth0")):
            segment.attach(host, interface)
        cls.other.address("eth0", "10.9.0.1/24")
        cls.router.address("lan", "10.9.0.2/24")
        cls.host.address("eth0", "10.9.0.100/24")
        cls.frr = Frr(cls.other, CONFIGURATION)
        cls.mribd = cls.router.start_mribd()
        cls.gmpd = cls.router.start_gmpd("ipv4", *OPTIONS)

    @classmethod
    def tearDownClass(cls):
        for daemon in (cls.gmpd, cls.mribd):
            assert daemon.stop() == 0, daemon.output()[-2000:]
        cls.frr.stop()

    def lan(self):
        interfaces = json.loads(self.gmpd.status())["interfaces"]
        return next((one for one in interfaces if one.get("running")), {})

    def agree_on(self, address, ours):
        wait_for(lambda: self.lan().get("querier", {}).get("address") == address, f"gmpd taking {address} as querier")
        self.assertEqual(self.lan()["querier"]["this_router"], ours)
        wait_for(lambda: self.frr.show_json("ip igmp interface").get("eth0", {}).get("querierIp") == address,
                 f"FRRouting taking {address} as querier")
        self.assertEqual("querier" in self.frr.show_json("ip igmp interface")["eth0"], not ours)

    def test_the_lower_address_asks_and_both_hear_the_host(self):
        receiver = Receiver(self.host, "eth0", GROUP)
        self.agree_on("10.9.0.1", False)
        wait_for(lambda: [one["group"] for one in self.lan()["groups"]] == [GROUP], "the join at gmpd")
        wait_for(lambda: GROUP in json.dumps(self.frr.show_json("ip igmp groups")), "the join at FRRouting")
        # gmpd follows what the querier says of its timers.
        self.assertEqual(self.lan()["querier"]["query_interval_s"], 2)
        wait_for(lambda: "another querier" in self.mribd.status(), "mribd leaving the link to the querier")
        heard = self.lan()["counters"]["received_queries_v3"]
        wait_for(lambda: self.lan()["counters"]["received_queries_v3"] > heard, "further queries of FRRouting")

        self.other.run("ip", "address", "delete", "10.9.0.1/24", "dev", "eth0")
        self.other.address("eth0", "10.9.0.9/24")
        self.agree_on("10.9.0.2", True)
        wait_for(lambda: "another querier" not in self.mribd.status(), "mribd forwarding to the link")
        self.assertEqual([one["group"] for one in self.lan()["groups"]], [GROUP])
        self.assertIn(GROUP, json.dumps(self.frr.show_json("ip igmp groups")))
        # FRRouting drops what it finds wrong in a query, and would take the role over.
        for _ in range(2):
            sent = self.lan()["counters"]["sent_general_queries"]
            wait_for(lambda s=sent: self.lan()["counters"]["sent_general_queries"] > s, "further queries of gmpd")
        self.agree_on("10.9.0.2", True)
        receiver.leave()


if __name__ == "__main__":
    unittest.main()
