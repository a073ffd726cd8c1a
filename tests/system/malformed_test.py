"""Malformed and hostile packets from a neighbour (topology.py): dropped, counted, and nothing else happens.

red sends what no host would: short, lying and mis-addressed messages, floods of groups, and random bytes. The
router goes on serving blue.
"""

import json
import random
import struct
import unittest

from lab import Process, Receiver, Sender, wait_for
from topology import Network

GROUP4, GROUP6 = "239.5.0.1", "ff1e::5:1"

# Runs on red with plain raw sockets: argv is the family and the hexadecimal payloads to send.
INJECTOR = r"""
import socket, struct, sys
def checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack("!%dH" % (len(data) // 2), data))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    return ~total & 0xffff
index = socket.if_nametoindex("eth0")
if sys.argv[1] == "4":
    s = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP)
    s.setsockopt(socket.IPPROTO_IP, socket.IP_TTL, 1)
    s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 1)
    s.setsockopt(socket.IPPROTO_IP, socket.IP_OPTIONS, bytes([0x94, 4, 0, 0]))
    s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, struct.pack("=4s4si", b"", b"", index))
    target = ("224.0.0.22", 0)
else:
    s = socket.socket(socket.AF_INET6, socket.SOCK_RAW, socket.IPPROTO_ICMPV6)
    s.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_IF, index)
    s.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 1)
    s.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_HOPOPTS, bytes([0, 0, 5, 2, 0, 0, 1, 0]))
    target = ("ff02::16", 0, 0, index)
for number, text in enumerate(open(sys.argv[2]).read().split()):
    data = bytearray.fromhex(text)
    if sys.argv[1] == "4" and len(data) >= 4 and data[2:4] == b"\0\0":
        struct.pack_into("!H", data, 2, checksum(bytes(data)))
    try:
        s.sendto(bytes(data), target)
    except OSError:
        pass
print("sent", flush=True)
"""


def report_v3(kind, count_in_record, group, sources, records=1):
    body = struct.pack("!BBHHH", 0x22, 0, 0, 0, records)
    body += struct.pack("!BBH4s", kind, 0, count_in_record, bytes(group))
    return (body + b"".join(bytes(source) for source in sources)).hex()


def igmp_payloads():
    group = [239, 5, 9, 9]
    rows = [
        "22",  # one byte
        "2200",
        report_v3(4, 65535, group, []),  # a source count that lies
        report_v3(4, 0, group, [], records=65535),  # a record count that lies
        report_v3(99, 0, group, []),  # an unknown record type
        report_v3(4, 0, [10, 1, 1, 1], []),  # not a group
        report_v3(4, 0, [224, 0, 0, 5], []),  # a link-local group
        "1600dead" + "ef050909",  # a wrong checksum
        "11",
        "1164" + "0000" + "0a000001",  # a query for what is no group
        "ff00" + "0000" + "00000000",  # an unknown type
    ]
    generator = random.Random(5)
    rows += [bytes(generator.randrange(256) for _ in range(generator.randrange(1, 200))).hex() for _ in range(2000)]
    return rows


def mld_payloads():
    group = bytes.fromhex("ff1e0000000000000000000000050909")
    rows = [
        "8f",
        "8f000000",
        "8f0000000000ffff" + "0400ffff" + group.hex(),
        "8f00000000000001" + "0400ffff" + group.hex(),
        "8f00000000000001" + "63000000" + group.hex(),
        "8f00000000000001" + "04000000" + "20010db8000000000000000000000001",
        "8300000000000000" + group.hex()[:-2],
        "8200000000000000",
    ]
    generator = random.Random(6)
    rows += [(bytes([generator.choice((0x82, 0x83, 0x84, 0x8F))])
              + bytes(generator.randrange(256) for _ in range(generator.randrange(1, 200)))).hex() for _ in range(2000)]
    return rows


class Malformed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network()
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP4, GROUP6])
        cls.receivers = [Receiver(cls.network.hosts["blue"], "eth0", group) for group in (GROUP4, GROUP6)]
        for receiver in cls.receivers:
            receiver.grows()

    @classmethod
    def tearDownClass(cls):
        for receiver in cls.receivers:
            receiver.grows()
        cls.network.assert_healthy()

    def inject(self, family, payloads):
        path = f"/run/payloads-{family}"
        with open(path, "w") as out:
            out.write("\n".join(payloads))
        sender = Process(self.network.hosts["red"], f"inject-{family}", "python3", "-c", INJECTOR, family, path)
        wait_for(lambda: "sent" in sender.output(), f"the packets sent: {sender.output()}")

    def dropped(self, family):
        """The sum of gmpd's drop counters."""
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return sum(count for interface in interfaces for name, count in interface["counters"].items()
                   if name.startswith("dropped_"))

    def test_malformed_igmp_is_counted_and_harmless(self):
        before = self.dropped("ipv4")
        self.inject("4", igmp_payloads())
        wait_for(lambda: self.dropped("ipv4") > before + 1000, "the drops counted")
        self.assertNotIn("10.1.1.1", self.network.mribd.status())
        self.assertNotIn("224.0.0.5", self.network.mribd.status())

    def test_malformed_mld_is_counted_and_harmless(self):
        before = self.dropped("ipv6")
        self.inject("6", mld_payloads())
        wait_for(lambda: self.dropped("ipv6") > before + 1000, "the drops counted")
        self.assertNotIn("2001:db8::1", self.network.mribd.status())


if __name__ == "__main__":
    unittest.main()
