"""What gmpd sends, as tshark's dissectors read it: each kind of query in each version, field by field.

      router3  gmpd: IGMPv3, MLDv2   lan ---- eth0  neighbour3
      router2  gmpd: IGMPv2, MLDv1   lan ---- eth0  neighbour2
      router1  gmpd: IGMPv1          lan ---- eth0  neighbour1
               10.4.0.1, fe80::1                    has no IP: it records, joins and leaves
"""

import os
import socket
import struct
import subprocess
import unittest

from lab import Host, Router, Wire, link, needs, wait_for
from packets import (ALL_REPORTS, ALL_ROUTERS, ALLOW, BLOCK, IS_EX, TO_IN, old, packet, record, report)

needs("tshark", "tshark")

# Both times are beyond what fields of one and two bytes hold as they are, which is where floating point begins.
OPTIONS = ("--query-interval", "200", "--query-response-interval", "40", "--last-member-interval", "1")
GROUP = {"ipv4": "239.8.1.1", "ipv6": "ff1e::8:1"}
SPECIFIC = {"ipv4": "239.8.1.2", "ipv6": "ff1e::8:2"}
SOURCES = {"ipv4": ["10.1.0.2", "10.1.0.3"], "ipv6": ["2001:db8::2", "2001:db8::3"]}
NEIGHBOUR = {"ipv4": "10.4.0.200", "ipv6": "fe80::200"}

FIELDS = {
    "ipv4": {"source": "ip.src", "destination": "ip.dst", "ttl": "ip.ttl", "dscp": "ip.dsfield.dscp",
             "alert": "ip.opt.ra", "header_checksum": "ip.checksum.status", "version": "igmp.version",
             "group": "igmp.maddr", "time": "igmp.max_resp", "checksum": "igmp.checksum.status", "s": "igmp.s",
             "robustness": "igmp.qrv", "interval": "igmp.qqic", "count": "igmp.num_src", "sources": "igmp.saddr"},
    "ipv6": {"source": "ipv6.src", "destination": "ipv6.dst", "ttl": "ipv6.hlim", "dscp": "ipv6.tclass.dscp",
             "alert": "ipv6.opt.router_alert", "length": "ipv6.plen", "group": "icmpv6.mld.multicast_address",
             "time": "icmpv6.mld.maximum_response_delay", "code": "icmpv6.mld.maximum_response_code",
             "checksum": "icmpv6.checksum.status",
             "s": "icmpv6.mld.flag.s", "robustness": "icmpv6.mld.flag.qrv", "interval": "icmpv6.mld.qqi",
             "count": "icmpv6.mld.nb_sources", "sources": "icmpv6.mld.source_address"},
}
QUERIES = {"ipv4": "igmp.type == 0x11", "ipv6": "icmpv6.type == 130"}
EVERYWHERE = {"ethernet": "eth.dst", "complaint": "_ws.expert.message"}


class Recorder:
    """Keeps every frame that arrives on an interface and has tshark read them."""

    def __init__(self, host, interface):
        self.path = f"/run/{host.name}.pcap"
        self.frames = []
        with host.inside():
            self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
        self.socket.bind((interface, 3))
        self.socket.setblocking(False)

    def count(self, family):
        """How many queries arrived so far."""
        while True:
            try:
                self.frames.append(self.socket.recv(65536))
            except BlockingIOError:
                break
        # Behind the Ethernet header, IPv4's of 24 bytes with the option; IPv6's of 40 and the hop-by-hop header's 8.
        start, kind, at = (b"\x08\x00\x46", b"\x11", 14 + 24) if family == "ipv4" else (b"\x86\xdd", b"\x82", 14 + 48)
        return sum(frame[12:].startswith(start) and frame[at:at + 1] == kind for frame in self.frames)

    def queries(self, family):
        """The queries that were counted so far, each as a record of its fields."""
        with open(self.path, "wb") as file:
            file.write(struct.pack("=IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65536, 1))
            for frame in self.frames:
                file.write(struct.pack("=IIII", 0, 0, len(frame), len(frame)) + frame)
        fields = FIELDS[family] | EVERYWHERE
        words = ["tshark", "-n", "-r", self.path, "-Y", QUERIES[family], "-o", "ip.check_checksum:TRUE", "-T", "fields",
                 "-E", "separator=|"]
        for field in fields.values():
            words += ["-e", field]
        said = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True,
                              env=os.environ | {"HOME": "/run"}).stdout
        return [dict(zip(fields, line.split("|"))) for line in said.splitlines()]


class Queries(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.daemons, cls.wires, cls.recorders = [], {}, {}
        for version, families in ((3, ("ipv4", "ipv6")), (2, ("ipv4", "ipv6")), (1, ("ipv4",))):
            cls.set_up_link(version, families)
        for version, wire in cls.wires.items():
            for family in ("ipv4", "ipv6"):
                cls.join_and_leave(wire, family, version)
        # Every link had its general query; the last of the others is the second about a group.
        for version, count in ((3, 5), (2, 3)):
            for family in ("ipv4", "ipv6"):
                wait_for(lambda v=version, f=family, c=count: cls.recorders[v].count(f) >= c,
                         f"{count} queries of version {version}, {family}")

    @classmethod
    def tearDownClass(cls):
        for daemon in cls.daemons:
            assert daemon.stop() == 0, daemon.output()[-2000:]

    @classmethod
    def set_up_link(cls, version, families):
        router, neighbour = Router(f"router{version}"), Host(f"neighbour{version}")
        neighbour.sysctl("net.ipv6.conf.default.disable_ipv6", 1)
        router.sysctl("net.ipv6.conf.default.addr_gen_mode", 1)
        link(router, "lan", neighbour, "eth0")
        router.address("lan", "10.4.0.1/24", "fe80::1/64")
        cls.recorders[version] = Recorder(neighbour, "eth0")
        cls.wires[version] = Wire(neighbour, "eth0")
        for family in families:
            spoken = version if family == "ipv4" else version - 1
            cls.daemons.append(router.start_gmpd(family, "--protocol-version", str(spoken), *OPTIONS))
            # The general query says that the link is served.
            wait_for(lambda f=family: cls.recorders[version].count(f), f"the first query of {version}, {family}")

    @classmethod
    def join_and_leave(cls, wire, family, version):
        def say(message, to):
            wire.send(packet(message, NEIGHBOUR[family], to), family)

        group, specific, sources = GROUP[family], SPECIFIC[family], SOURCES[family]
        if version == 3:
            say(report(family, record(IS_EX, group), record(ALLOW, specific, sources)), ALL_REPORTS[family])
            say(report(family, record(TO_IN, group), record(BLOCK, specific, sources)), ALL_REPORTS[family])
        else:
            joins, leaves = (0x16, 0x17) if family == "ipv4" else (131, 132)
            say(old(joins, group), group)
            say(old(leaves, group), ALL_ROUTERS[family])

    def well_formed(self, version, family):
        """The queries after a check of what is the same in all of them."""
        queries = self.recorders[version].queries(family)
        for query in queries:
            self.assertEqual(query["complaint"], "")
            self.assertEqual(query["source"], "10.4.0.1" if family == "ipv4" else "fe80::1")
            self.assertEqual((query["ttl"], query["dscp"], query["alert"], query["checksum"]), ("1", "48", "0", "1"))
            if family == "ipv4":
                self.assertEqual(query["header_checksum"], "1")
            general = query["group"] in ("0.0.0.0", "::")
            everyone = "224.0.0.1" if family == "ipv4" else "ff02::1"
            self.assertEqual(query["destination"], everyone if general else query["group"])
            self.assertEqual(query["ethernet"], ethernet_of(query["destination"]))
        return queries

    def check_newest(self, family, time, times, interval):
        """TIME is the field that has the response time, TIMES and INTERVAL what tshark shows of it."""
        general, *others = self.well_formed(3, family)
        self.assertIn(general["group"], ("0.0.0.0", "::"))
        self.assertEqual((general[time], general["count"]), (times[0], "0"))
        for query in (general, *others):
            self.assertEqual((query["s"], query["robustness"], query["interval"]), ("0", "2", interval))
        about_group = [query for query in others if query["group"] == GROUP[family]]
        about_sources = [query for query in others if query["group"] == SPECIFIC[family]]
        self.assertEqual([(query[time], query["count"]) for query in about_group], [(times[1], "0")] * 2)
        self.assertEqual([(query[time], query["count"], query["sources"]) for query in about_sources],
                         [(times[1], "2", ",".join(SOURCES[family]))] * 2)

    def test_igmp_version_3(self):
        self.check_newest("ipv4", "time", ("400", "10"), str(0x89))  # tshark shows this byte as it is

    def test_mld_version_2(self):
        self.check_newest("ipv6", "code", ("40000", "1000"), "200")

    def test_igmp_version_2(self):
        general, *others = self.well_formed(2, "ipv4")
        # The longest that a version 2 query can say is less than the 40 seconds asked for.
        self.assertEqual((general["version"], general["group"], general["time"]), ("2", "0.0.0.0", "255"))
        self.assertEqual([(query["version"], query["group"], query["time"]) for query in others],
                         [("2", GROUP["ipv4"], "10")] * 2)

    def test_mld_version_1(self):
        general, *others = self.well_formed(2, "ipv6")
        self.assertEqual((general["group"], general["time"], general["length"]), ("::", "40000", "32"))
        self.assertEqual([(query["group"], query["time"], query["length"]) for query in others],
                         [(GROUP["ipv6"], "1000", "32")] * 2)

    def test_igmp_version_1(self):
        queries = self.well_formed(1, "ipv4")
        self.assertEqual([(query["version"], query["group"], query["time"]) for query in queries],
                         [("1", "0.0.0.0", "")])


def ethernet_of(group):
    packed = socket.inet_pton(socket.AF_INET6 if ":" in group else socket.AF_INET, group)
    if ":" in group:
        return (b"\x33\x33" + packed[-4:]).hex(":")
    return (b"\x01\x00\x5e" + bytes([packed[1] & 127]) + packed[2:]).hex(":")


if __name__ == "__main__":
    unittest.main()
