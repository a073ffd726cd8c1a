"""A PIM router on each side of the router that is measured, in one process so that there is one clock.

pim_load.py ROUTER-NAMESPACE DOWN-NAMESPACE UP-NAMESPACE COUNT SOURCES PATIENCE [again]

Joins COUNT source-specific groups of 10.128.0.1, or of COUNT sources, from DOWN; counts the entries of which the kernel of the
router tells and the Joins that reach UP. Prints one JSON object. With "again" it joins what is joined, and counts nothing.
"""

import ctypes
import json
import os
import select
import socket
import struct
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "system"))

from pim_speaker import ALL_PIM_ROUTERS, JOIN_PRUNE, PIM, checksum, encoded, packed  # noqa: E402

PAIRS = 70  # of one group and one source each, in a message of 1500 bytes
GROUPS, SOURCES = 0xE8010000, 0x0A800001  # 232.1.0.0, 10.128.0.1
BUFFER = 256 << 20
SO_RCVBUFFORCE = 33
RTM_NEWROUTE, RTNLGRP_IPV4_MROUTE = 24, 6
CLONE_NEWNET = 0x40000000


def enter(name):
    with open(f"/run/netns/{name}") as namespace:
        if ctypes.CDLL(None, use_errno=True).setns(namespace.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), "setns")


def pim_socket(name, address):
    enter(name)
    one = socket.socket(socket.AF_INET, socket.SOCK_RAW, PIM)
    index = socket.if_nametoindex("e0")
    member = struct.pack("=4s4si", packed(ALL_PIM_ROUTERS["ipv4"]), packed(address), index)
    one.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, member)
    one.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, struct.pack("=4s4si", bytes(4), packed(address), index))
    one.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
    one.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, BUFFER)
    one.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 4 << 20)
    return one


def message(kind, body):
    bytes_ = bytes([0x20 | kind, 0, 0, 0]) + body
    return bytes_[:2] + struct.pack("!H", checksum(bytes_)) + bytes_[4:]


def hello(generation):
    return message(0, struct.pack("!HHH", 1, 2, 3600) + struct.pack("!HHI", 19, 4, 0)
                   + struct.pack("!HHI", 20, 4, generation))


def join_messages(upstream, count, sources):
    result = []
    for begin in range(0, count, PAIRS):
        numbers = range(begin, min(begin + PAIRS, count))
        body = b"".join(b"\x01\x00\x00\x20" + struct.pack("!I", GROUPS + number) + b"\x00\x01\x00\x00\x01\x00\x04\x20"
                        + struct.pack("!I", SOURCES + number % sources) for number in numbers)
        result.append(message(JOIN_PRUNE, encoded(upstream) + bytes([0, len(numbers)]) + struct.pack("!H", 3600) + body))
    return result


class Upstream:
    """What reaches the next router."""

    def __init__(self, endpoint):
        self.endpoint, self.packets = endpoint, []

    def read(self):
        while True:
            try:
                packet = self.endpoint.recv(65536, socket.MSG_DONTWAIT)
            except BlockingIOError:
                return
            if packet[20] & 15 == JOIN_PRUNE:
                self.packets.append((time.monotonic(), packet[20:]))

    def joined(self):
        """Messages that bear Joins, and when the last source came that was not asked for before."""
        seen, last, messages = set(), 0.0, 0
        for when, packet in self.packets:
            place = 4 + 6 + 4
            new = False
            for _ in range(packet[4 + 6 + 1]):
                group = packet[place + 4:place + 8]
                joins, prunes = struct.unpack_from("!HH", packet, place + 8)
                place += 12
                for _ in range(joins):
                    pair = (group, packet[place + 4:place + 8])
                    new |= pair not in seen
                    seen.add(pair)
                    place += 8
                place += 8 * prunes
            messages += new
            last = when if new else last
        return {"joined_up": len(seen), "messages_up": messages, "last_up_at": last}


class Entries:
    """The router's entries that forward, as its kernel tells of them."""

    def __init__(self, name):
        enter(name)
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
        self.socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, BUFFER)
        self.socket.bind((0, 1 << (RTNLGRP_IPV4_MROUTE - 1)))
        self.seen, self.last = set(), 0.0

    def read(self):
        while True:
            try:
                data = self.socket.recv(65536, socket.MSG_DONTWAIT)
            except BlockingIOError:
                return
            now = time.monotonic()
            if struct.unpack_from("=H", data, 4)[0] != RTM_NEWROUTE:
                continue
            # The table comes first, then source and group; the outputs are an attribute of type 9.
            place, outputs = 28, False
            while place + 4 <= len(data):
                size, kind = struct.unpack_from("=HH", data, place)
                outputs |= kind == 9 and size >= 12
                place += max(4, (size + 3) & ~3)
            if outputs and data[36:52] not in self.seen:
                self.seen.add(data[36:52])
                self.last = now


def main():
    router, down_name, up_name = sys.argv[1:4]
    count, sources, patience = int(sys.argv[4]), int(sys.argv[5]), float(sys.argv[6])
    down, up = pim_socket(down_name, "10.3.0.9"), Upstream(pim_socket(up_name, "10.1.0.9"))
    entries = Entries(router)
    to = (ALL_PIM_ROUTERS["ipv4"], 0)
    down.sendto(hello(1), to)
    up.endpoint.sendto(hello(2), to)
    time.sleep(1)
    messages = join_messages("10.3.0.1", count, sources)
    up.read()
    up.packets.clear()
    started = time.monotonic()
    if "again" in sys.argv:
        for one in messages:
            down.sendto(one, to)
        print(json.dumps({"sending_s": time.monotonic() - started}))
        return
    progress, sent = started, 0
    while time.monotonic() - progress < patience:
        before = (len(entries.seen), len(up.packets))
        for one in messages[sent:sent + 20]:
            down.sendto(one, to)
        sent = min(len(messages), sent + 20)
        select.select([entries.socket, up.endpoint], [], [], 0 if sent < len(messages) else 0.05)
        entries.read()
        up.read()
        if before != (len(entries.seen), len(up.packets)) or sent < len(messages):
            progress = time.monotonic()
    result = {"started_at": started, "entries": len(entries.seen), "last_entry_at": entries.last, **up.joined()}
    result["entries_s"] = result["last_entry_at"] - started
    result["up_s"] = max(0.0, result["last_up_at"] - started)
    print(json.dumps(result))


if __name__ == "__main__":
    main()
