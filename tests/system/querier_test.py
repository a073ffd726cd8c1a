"""Two routers on one link elect the querier; when it dies the other takes over.

      low  eth0 ---------- eth0  high
   10.9.0.1, fe80::1      10.9.0.2, fe80::2
"""

import json
import signal
import unittest

from lab import Router, link, wait_for

# The other router is given up after 2 * 2 + 1 / 2 seconds without its queries.
OPTIONS = ("--query-interval", "2", "--query-response-interval", "1")


class Querier(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.low, cls.high = Router("low"), Router("high")
        for router in (cls.low, cls.high):
            router.sysctl("net.ipv6.conf.default.addr_gen_mode", 1)
        link(cls.low, "eth0", cls.high, "eth0")
        cls.low.address("eth0", "10.9.0.1/24", "fe80::1/64")
        cls.high.address("eth0", "10.9.0.2/24", "fe80::2/64")

    def querier(self, daemon):
        """What the daemon thinks of its one interface's querier."""
        interfaces = json.loads(daemon.status())["interfaces"]
        return interfaces[0]["querier"] if interfaces and interfaces[0]["running"] else {}

    def elect(self, family, address):
        high = self.high.start_gmpd(family, *OPTIONS)
        wait_for(lambda: self.querier(high).get("this_router"), "the only router being the querier")
        low = self.low.start_gmpd(family, *OPTIONS)
        wait_for(lambda: self.querier(high).get("address") == address, "the lower address winning")
        self.assertFalse(self.querier(high)["this_router"])
        self.assertTrue(self.querier(low)["this_router"])
        low.kill(signal.SIGKILL)
        wait_for(lambda: self.querier(high).get("this_router"), "the other taking over")
        low = self.low.start_gmpd(family, *OPTIONS)
        wait_for(lambda: self.querier(high).get("address") == address, "the lower address winning again")
        for daemon in (low, high):
            self.assertEqual(daemon.stop(), 0)

    def test_igmp(self):
        self.elect("ipv4", "10.9.0.1")

    def test_mld(self):
        self.elect("ipv6", "fe80::1")


if __name__ == "__main__":
    unittest.main()
