#!/usr/bin/env python3
"""Five routers in a ring, 200 flows of both families, half of them source-specific; links are cut and mended, the RP dies:

         east ──── e1 ───┐                      b is the RP, e takes its place;
       a ──── b ──── c ── west                  d is the router that tells all others of both
        \\           |
         e ──────── d
         |          |
       under      right

east and west send, right, under and a third host beside west, left, receive. What is cut, and in which order, is random.
The further argument is the number of cuts, 2 without it; MCAST_PROPERTY_SEED repeats a run.
"""

import os
import random
import sys
import time
import unittest

from flows import FlowReceiver, FlowSender
from pim_network import FAMILIES, FAST, PimNetwork, address, candidate

RING = {1: ("a", "b"), 2: ("b", "c"), 3: ("c", "d"), 4: ("d", "e"), 5: ("e", "a")}
LINKS = RING | {11: ("a", "east"), 12: ("c", "west"), 13: ("d", "right"), 14: ("e", "under"), 15: ("c", "left")}
RP, NEXT_RP = 2, 5
RATE = 10
DETECTION_S = 0.3  # what a routing protocol takes to see a link go
ALLOWED_S = 1.0
GROUPS = 25  # of each kind and family
CUTS = int(sys.argv.pop(2)) if len(sys.argv) > 2 and sys.argv[2].isdigit() else 2


def groups_of(family):
    """Those with an RP and the source-specific ones."""
    if family == "ipv4":
        return ([f"239.5.0.{n}" for n in range(1, GROUPS + 1)], [f"232.5.0.{n}" for n in range(1, GROUPS + 1)])
    return ([f"ff0e::5:{n}" for n in range(1, GROUPS + 1)], [f"ff3e::5:{n}" for n in range(1, GROUPS + 1)])


class Ring(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        seed = int(os.environ.get("MCAST_PROPERTY_SEED", random.SystemRandom().randrange(1 << 32)))
        print(f"MCAST_PROPERTY_SEED={seed}", flush=True)
        cls.random = random.Random(seed)
        cls.network = PimNetwork("abcde", ("east", "west", "right", "under", "left"), LINKS)
        texts = {"b": candidate(RP, None, 10), "e": candidate(NEXT_RP, 50, 20), "d": candidate(4, 100)}
        cls.network.start({name: FAST + texts.get(name, "") for name in "abcde"})
        cls.network.wait_rp(RP)
        cls.start_flows()

    @classmethod
    def start_flows(cls):
        nodes = cls.network.nodes
        at = {"east": 11, "west": 12}
        cls.sources = [address(family, at[name], nodes[name].number) for name in at for family in FAMILIES]
        cls.receivers = {}
        for name in ("right", "under", "left"):
            pairs = []
            for family in FAMILIES:
                any_source, specific = groups_of(family)
                mine = [one for one in cls.sources if (":" in one) == (family == "ipv6")]
                pairs += [("", group) for group in any_source if cls.random.random() < 0.7]
                pairs += [(one, group) for group in specific for one in mine if cls.random.random() < 0.7]
            interface = next(iter(nodes[name].links.values()))
            cls.receivers[name] = FlowReceiver(cls.network[name], interface, pairs, cls.sources)
        cls.senders = []
        for name, number in at.items():
            pairs = [(address(family, number, nodes[name].number), group)
                     for family in FAMILIES for kind in groups_of(family) for group in kind]
            cls.senders.append(FlowSender(cls.network[name], f"e{number}", pairs, RATE))

    @classmethod
    def tearDownClass(cls):
        cls.network.stop()

    def explained(self, action, *arguments):
        try:
            return action(*arguments)
        except AssertionError as failure:
            raise AssertionError(f"{failure}\n{self.network.told()}") from failure

    def all_flow(self, what):
        now = time.monotonic()
        for receiver in self.receivers.values():
            self.explained(lambda r=receiver: r.wait_all(what, after=now))

    def report(self, what, begin, allowed_s):
        """Prints the longest gap of every receiver since the time; none may be longer than allowed."""
        end = time.monotonic()
        for name, receiver in self.receivers.items():
            gap, pair = receiver.longest_gap(begin, end)
            print(f"{what}: {name} missed {receiver.lost(begin, end)} packets of {len(receiver.expected)} flows, "
                  f"at most {gap:.2f} s in a row", flush=True)
            self.assertLessEqual(gap, allowed_s + 2.0 / RATE, f"{what}: {name} without {pair}")

    def cut_and_mend(self, number):
        carrier = self.random.random() < 0.5
        what = f"link {'-'.join(RING[number])} {'cut' if carrier else 'silent'}"
        begin = time.monotonic()
        self.network.cut(number, carrier=carrier)
        time.sleep(DETECTION_S)
        self.network.down.add(number)
        self.network.move_routes()
        detected_s = time.monotonic() - begin
        self.all_flow(what)
        self.report(what, begin, detected_s + ALLOWED_S)

        begin = time.monotonic()
        self.network.mend(number)
        self.network.down.remove(number)
        self.network.wait_neighbors()
        self.network.move_routes()
        time.sleep(ALLOWED_S)
        self.all_flow("mended")
        self.report(f"link {'-'.join(RING[number])} mended", begin, ALLOWED_S)

    def lose_rp(self):
        begin = time.monotonic()
        self.network.power_off("b")
        time.sleep(DETECTION_S)
        self.network.down.update(self.network.nodes["b"].links)
        self.network.move_routes("b")
        detected_s = time.monotonic() - begin
        self.all_flow("RP gone")
        self.report("RP gone", begin, detected_s + ALLOWED_S)
        self.explained(lambda: self.network.wait_rp(NEXT_RP, "b"))
        print(f"RP gone: all routers had the next one {time.monotonic() - begin:.1f} s later", flush=True)

    def test_every_packet_comes_at_most_once_and_gaps_are_short(self):
        self.all_flow("begin")
        time.sleep(1)
        for number in self.random.sample(sorted(RING), min(CUTS, len(RING))):
            self.cut_and_mend(number)
        self.lose_rp()
        self.all_flow("next RP")
        for name, receiver in self.receivers.items():
            self.assertEqual(receiver.repeated(), {}, name)
        for sender in self.senders:
            self.assertGreater(sender.stop(), 0)


if __name__ == "__main__":
    unittest.main()
