"""Two of our routers between the same two links: one of them forwards, both for seconds at most, and the other takes over,
also where the querier goes on asking and only its forwarding ends.

                               +--- src  low  lan ---+
      source  eth0 --- first --|    10.1.0.1 10.2.0.1|--- second --- eth0  host
      10.1.0.9                 +--- src  high lan ---+                     10.2.0.9
                                    10.1.0.2 10.2.0.2

The sender numbers its packets, so that the receiver sees which come twice.
"""

import json
import time
import unittest

from lab import Host, Receiver, Router, Segment, Sender, wait_for

# Who is silent for 2 * 2 + 1 / 2 seconds is no querier any more.
OPTIONS = ("--query-interval", "2", "--query-response-interval", "1", "--last-member-interval", "1")
GROUPS = {"ipv4": "239.15.0.1", "ipv6": "ff1e::15:1"}


class Redundancy(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.first, cls.second = Segment("first"), Segment("second")
        cls.source, cls.host = Host("source"), Host("host")
        cls.low, cls.high = Router("low"), Router("high")
        for number, (name, segment, host) in enumerate((("source", cls.first, cls.source),
                                                        ("host", cls.second, cls.host)), 1):
            segment.attach(host, "eth0")
            host.address("eth0", f"10.{number}.0.9/24", f"fd00:{number}::9/64")
            host.route("default", "via", f"10.{number}.0.1")
            host.route("default", "via", f"fd00:{number}::1")
        cls.daemons = {}
        for number, router in ((1, cls.low), (2, cls.high)):
            router.sysctl("net.ipv6.conf.default.addr_gen_mode", 1)
            for side, (segment, interface) in enumerate(((cls.first, "src"), (cls.second, "lan")), 1):
                segment.attach(router, interface)
                router.address(interface, f"10.{side}.0.{number}/24", f"fd00:{side}::{number}/64",
                               f"fe80::{side}:{number}/64")
            cls.daemons[router] = [router.start_mribd(), *(cls.start_gmpd(router, family) for family in GROUPS)]
        cls.sender = Sender(cls.source, "eth0", GROUPS.values())
        cls.receivers = {family: Receiver(cls.host, "eth0", group) for family, group in GROUPS.items()}

    @classmethod
    def start_gmpd(cls, router, family):
        return router.start_gmpd(family, "--interface", "lan", *OPTIONS)

    @classmethod
    def tearDownClass(cls):
        for router, daemons in cls.daemons.items():
            router.assert_agrees(daemons[0])
            for daemon in reversed(daemons):
                assert daemon.stop() == 0, daemon.output()[-2000:]

    def forwards(self, router):
        return any("lan" in line for line in router.mroute("-4")) + any("lan" in line for line in router.mroute("-6"))

    def interface(self, gmpd):
        return json.loads(gmpd.status())["interfaces"][0]

    def gives_up_asking(self, gmpd):
        wait_for(lambda: not self.interface(gmpd)["querier"]["this_router"], "the other router asking", 20)

    def only_one_forwards(self, one, other):
        # At the start one may forward before the other has heard the joins: neither has stopped for the other yet.
        def settled():
            if self.forwards(one) != 2 or self.forwards(other) != 0:
                return False
            since = time.monotonic()
            return all(receiver.repeats_until(since + 1) < since for receiver in self.receivers.values())

        wait_for(settled, f"{one.name} alone forwarding, and no packet twice for a second", 30)

    def test_one_forwards_and_the_other_takes_over(self):
        self.only_one_forwards(self.low, self.high)
        # Both know the host's joins: who does not forward is ready to.
        for daemon in self.daemons[self.high][1:]:
            self.gives_up_asking(daemon)
            self.assertTrue(set(GROUPS.values()) & {one["group"] for one in self.interface(daemon)["groups"]})
        for gmpd in self.daemons[self.low][1:]:
            gmpd.kill()
        self.only_one_forwards(self.high, self.low)
        self.daemons[self.low][1:] = [self.start_gmpd(self.low, family) for family in GROUPS]
        self.only_one_forwards(self.low, self.high)
        self.daemons[self.low][0].kill()
        wait_for(lambda: self.forwards(self.high) == 2, "the other forwarding in place of a querier that does not", 30)
        for receiver in self.receivers.values():
            receiver.grows()
        for daemon in self.daemons[self.high][1:]:
            self.gives_up_asking(daemon)
        self.daemons[self.low][0] = self.low.start_mribd()
        self.only_one_forwards(self.low, self.high)


if __name__ == "__main__":
    unittest.main()
