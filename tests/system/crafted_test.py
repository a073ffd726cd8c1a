"""Packets of independent makers: scapy's own IGMP and MLD layers, right ones and fuzzed ones, and a flood of
trafgen's. Every packet is accounted for, and the flood neither stops the router's timers nor its service.

      network of topology.py, and      router  wild ---- eth0  ghost
                                            10.8.0.1           no IP of its own: scapy and trafgen
"""

import json
import os
import subprocess
import unittest

from lab import SKIPPED, Host, Process, Receiver, Sender, link, needs, wait_for
from packets import ipv4
from topology import Network

# Debian's modules belong to Debian's interpreter, whichever runs this.
PYTHON = "/usr/bin/python3"
needs("trafgen", "netsniff-ng")
HAS_SCAPY = [PYTHON, "-c", "import scapy.contrib.igmpv3"]
if not os.path.exists(PYTHON) or subprocess.run(HAS_SCAPY, check=False, stderr=subprocess.DEVNULL).returncode != 0:
    print("skipped: scapy is not installed (Debian package python3-scapy)")
    raise SystemExit(SKIPPED)

SCAPY = r"""
import random, sys
from scapy.all import (Ether, IP, IPOption_Router_Alert, IPv6, IPv6ExtHdrHopByHop, RouterAlert, ICMPv6MLReport,
                       ICMPv6MLReport2, ICMPv6MLDone, ICMPv6MLDMultAddrRec, ICMPv6MLQuery2, conf, fuzz, raw)
from scapy.contrib.igmp import IGMP
from scapy.contrib.igmpv3 import IGMPv3, IGMPv3mr, IGMPv3gr, IGMPv3mq
random.seed(7)
wire = conf.L2socket(iface="eth0")
alert = [IPOption_Router_Alert()]
def v4(to, message):
    return Ether(dst="01:00:5e:00:00:16") / IP(src="10.8.0.2", dst=to, ttl=1, options=alert) / message
def v6(to, message):
    header = IPv6(src="fe80::2", dst=to, hlim=1) / IPv6ExtHdrHopByHop(options=RouterAlert(value=0))
    return Ether(dst="33:33:00:00:00:16") / header / message
if sys.argv[1] == "right":
    packets = [
        v4("224.0.0.22", IGMPv3(type=0x22) / IGMPv3mr(records=[
            IGMPv3gr(rtype=4, maddr="239.12.0.1"), IGMPv3gr(rtype=5, maddr="239.12.0.2", srcaddrs=["10.1.0.2"])])),
        v4("239.12.0.3", IGMP(type=0x16, gaddr="239.12.0.3")),
        v4("239.12.0.4", IGMP(type=0x12, gaddr="239.12.0.4")),
        v6("ff02::16", ICMPv6MLReport2(records=[
            ICMPv6MLDMultAddrRec(rtype=4, dst="ff1e::12:1"),
            ICMPv6MLDMultAddrRec(rtype=5, dst="ff1e::12:2", sources=["fd00:1::2"])])),
        v6("ff1e::12:3", ICMPv6MLReport(mladdr="ff1e::12:3")),
    ]
else:
    count = int(sys.argv[2])
    kinds = [
        lambda: v4("224.0.0.22", fuzz(IGMPv3(type=0x22) / IGMPv3mr())),
        lambda: v4("224.0.0.22", IGMPv3(type=0x22) / IGMPv3mr(numgrp=random.randrange(4), records=[
            fuzz(IGMPv3gr(rtype=random.randrange(8)))])),
        lambda: v4("224.0.0.1", fuzz(IGMPv3(type=0x11) / IGMPv3mq())),
        lambda: v4("239.12.9.9", fuzz(IGMP())),
        lambda: v6("ff02::16", ICMPv6MLReport2(records_number=random.randrange(4), records=[
            fuzz(ICMPv6MLDMultAddrRec(rtype=random.randrange(8)))])),
        lambda: v6("ff02::1", fuzz(ICMPv6MLQuery2(type=130))),
        lambda: v6("ff02::2", fuzz(ICMPv6MLDone(type=132))),
    ]
    def made(kind):
        while True:  # some of what it makes up does not fit into its own fields
            try:
                return raw(kind())
            except ValueError:
                pass
    packets = [made(kind) for kind in kinds for _ in range(count)]
for packet in packets:
    wire.send(raw(packet))
"""
FUZZED = 60  # of each kind, four of them IGMP and three MLD
FLOOD = 40000
GROUPS = ("239.13.0.1", "ff1e::13:1")
OPTIONS = ("--last-member-interval", "1", "--query-interval", "2", "--query-response-interval", "1",
           "--max-groups", "1000")


class Crafted(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=OPTIONS)
        cls.ghost = Host("ghost")
        cls.ghost.sysctl("net.ipv6.conf.default.disable_ipv6", 1)
        link(cls.network.router, "wild", cls.ghost, "eth0")
        cls.network.router.address("wild", "10.8.0.1/24", "fd00:8::1/64")
        cls.sender = Sender(cls.network.hosts["source"], "eth0", GROUPS)
        cls.receivers = [Receiver(cls.network.hosts["blue"], "eth0", group) for group in GROUPS]
        for receiver in cls.receivers:
            receiver.grows()
        for family in cls.network.gmpd:
            wait_for(lambda f=family: cls.interface(f).get("running"), "gmpd serving the wild link")

    @classmethod
    def tearDownClass(cls):
        for receiver in cls.receivers:
            receiver.grows()
        cls.network.assert_healthy()

    @classmethod
    def interface(cls, family, name="wild"):
        interfaces = json.loads(cls.network.gmpd[family].status())["interfaces"]
        return next((one for one in interfaces if one["interface"] == name), {})

    def accounted(self, family):
        """How many packets of the wild link have a counter, good ones and dropped ones."""
        return sum(count for name, count in self.interface(family)["counters"].items()
                   if name.startswith(("dropped_", "received_")) and name != "received_older_queries")

    def scapy(self, *words):
        self.ghost.run(PYTHON, "-c", SCAPY, *words)

    def test_what_scapy_makes_is_understood(self):
        dropped = {family: self.dropped(family) for family in self.network.gmpd}
        self.scapy("right")
        expected = {"ipv4": {f"239.12.0.{number}" for number in (1, 2, 3, 4)},
                    "ipv6": {f"ff1e::12:{number}" for number in (1, 2, 3)}}
        for family, groups in expected.items():
            wait_for(lambda f=family, g=groups: g <= {one["group"] for one in self.interface(f)["groups"]},
                     f"{groups} at gmpd")
            self.assertEqual(self.dropped(family), dropped[family])

    def dropped(self, family):
        counters = self.interface(family)["counters"]
        return {name: count for name, count in counters.items() if name.startswith("dropped_")}

    def test_what_scapy_fuzzes_is_accounted_for(self):
        before = {family: self.accounted(family) for family in self.network.gmpd}
        self.scapy("wrong", str(FUZZED))
        for family, kinds in (("ipv4", 4), ("ipv6", 3)):
            whole = before[family] + FUZZED * kinds
            wait_for(lambda f=family, w=whole: self.accounted(f) >= w, f"all {family} packets counted")
            self.assertEqual(self.accounted(family), whole)

    def test_a_flood_of_groups_is_bounded_and_starves_nobody(self):
        # A version 3 report of one group whose last three bytes are random, with a checksum that is right.
        header = ipv4(bytes(16), "10.8.0.2", "224.0.0.22")[:24]
        start = bytes.fromhex("01005e000016 020000000001 0800") + header
        with open("/run/flood.cfg", "w") as file:
            file.write("{ " + ", ".join(f"0x{byte:02x}" for byte in start)
                       + ", 0x22, 0, csumip(38, 53), 0, 0, 0, 1, 4, 0, 0, 0, 239, drnd(3) }\n")
        before = self.accounted("ipv4")
        asked = self.interface("ipv4", "blue")["counters"]["sent_general_queries"]
        flood = Process(self.ghost, "trafgen", "trafgen", "-i", "/run/flood.cfg", "-o", "eth0", "-n", str(FLOOD),
                        "-P", "1", "-q")
        wait_for(lambda: not flood.alive(), "the flood sent", 60)
        self.assertEqual(flood.process.returncode, 0, flood.output())
        for receiver in self.receivers:
            receiver.grows()

        def seen():
            lost = json.loads(self.network.gmpd["ipv4"].status())["packets_lost_in_kernel"]
            return self.accounted("ipv4") - before, lost

        wait_for(lambda: sum(seen()) >= FLOOD, "every packet counted or known to be lost")
        counted, lost = seen()
        self.assertLessEqual(counted, FLOOD)
        if lost == 0:
            self.assertEqual(counted, FLOOD)
        wild = self.interface("ipv4")
        self.assertEqual(wild["group_count"], 1000)
        self.assertGreater(wild["counters"]["refused_group_limit"], 0)
        wait_for(lambda: self.interface("ipv4", "blue")["counters"]["sent_general_queries"] > asked, "a query on blue")
        # Nobody answers for them, so that time takes them away.
        wait_for(lambda: self.interface("ipv4")["group_count"] == 0, "the groups of the flood forgotten")


if __name__ == "__main__":
    unittest.main()
