"""A PIM router of few words on a host: what it is told to say leaves from a raw socket, and what it hears is kept."""

import socket
import struct

HELLO, JOIN_PRUNE = 0, 3
ALL_PIM_ROUTERS = {"ipv4": "224.0.0.13", "ipv6": "ff02::d"}
PIM = 103


def checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    return ~total & 0xffff


def packed(address):
    return socket.inet_pton(socket.AF_INET6 if ":" in address else socket.AF_INET, address)


def encoded(address, *between):
    """An address as messages have it: family and encoding, what is between, the bytes."""
    return bytes([2 if ":" in address else 1, 0, *between]) + packed(address)


class Speaker:
    def __init__(self, host, interface, family, source):
        self.family, self.source = family, source
        of = socket.AF_INET if family == "ipv4" else socket.AF_INET6
        with host.inside():
            self.socket = socket.socket(of, socket.SOCK_RAW, PIM)
            index = socket.if_nametoindex(interface)
        group = packed(ALL_PIM_ROUTERS[family])
        if family == "ipv4":
            self.destination = (ALL_PIM_ROUTERS[family], 0)
            self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                                   struct.pack("=4s4si", group, packed(source), index))
            self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF,
                                   struct.pack("=4s4si", bytes(4), packed(source), index))
            self.socket.bind((source, 0))
            self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
        else:
            self.destination = (ALL_PIM_ROUTERS[family], 0, 0, index)
            self.socket.bind((source, 0, 0, index))
            self.socket.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_IF, index)
            self.socket.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_LOOP, 0)

    def say(self, kind, body):
        message = bytes([0x20 | kind, 0, 0, 0]) + body
        pseudo = b""
        if self.family == "ipv6":
            pseudo = packed(self.source) + packed(ALL_PIM_ROUTERS["ipv6"]) + struct.pack("!II", len(message), PIM)
        self.socket.sendto(message[:2] + struct.pack("!H", checksum(pseudo + message)) + message[4:], self.destination)

    def close(self):
        self.socket.close()

    def hello(self, holdtime=105, generation=1, priority=0):
        self.say(HELLO, struct.pack("!HHH", 1, 2, holdtime) + struct.pack("!HHI", 19, 4, priority)
                 + struct.pack("!HHI", 20, 4, generation))

    def join(self, upstream, group, source, holdtime=210, prune=False):
        """A Join, or Prune, of (S,G) for the neighbour upstream."""
        bits = 128 if ":" in group else 32
        lists = (0, 1) if prune else (1, 0)
        self.say(JOIN_PRUNE, encoded(upstream) + bytes([0, 1]) + struct.pack("!H", holdtime)
                 + encoded(group, 0, bits) + struct.pack("!HH", *lists) + encoded(source, 4, bits))
