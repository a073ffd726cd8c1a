"""Sends or receives many multicast flows at once, each packet with its number and the time when it was sent.

flow_endpoint.py send INTERFACE RATE LIST
flow_endpoint.py receive INTERFACE LIST ANSWER

LIST is a JSON file: of a sender [source, group] pairs, of a receiver the same, with "" for any source. The sender ends on
SIGTERM and says then how many packets of each flow it has sent. The receiver writes to ANSWER what it got when SIGUSR1
comes: a list of flows, each with source, group, how many came, how many came again, when the newest was sent, and the gaps
between the first and the newest: number, how many are missing, and when the packets on both sides of the gap were sent.
"""

import json
import os
import selectors
import signal
import socket
import struct
import sys
import time

PORT = 5001
PACKET = struct.Struct("!dI")
PARTS = 10  # of one period, so that a tenth of the packets leaves at once
MCAST_JOIN_GROUP = 42
MCAST_JOIN_SOURCE_GROUP = 46


def family_of(address):
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def storage(address):
    """The address as a struct sockaddr_storage."""
    family = family_of(address)
    raw = socket.inet_pton(family, address)
    head = struct.pack("=HH4s", family, 0, raw) if family == socket.AF_INET else struct.pack("=HHI16sI", family, 0, 0, raw, 0)
    return head.ljust(128, b"\0")


def sending_socket(source, index):
    endpoint = socket.socket(family_of(source), socket.SOCK_DGRAM)
    if endpoint.family == socket.AF_INET:
        endpoint.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, struct.pack("=4s4si", b"", b"", index))
        endpoint.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 16)
    else:
        endpoint.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_IF, index)
        endpoint.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 16)
    endpoint.bind((source, 0))
    return endpoint


def send(interface, rate, path):
    with open(path) as file:
        pairs = json.load(file)
    index = socket.if_nametoindex(interface)
    sockets = {source: sending_socket(source, index) for source, _ in pairs}
    parts = [[(sockets[source], (group, PORT)) for source, group in pairs[part::PARTS]] for part in range(PARTS)]
    ended = []
    signal.signal(signal.SIGTERM, lambda *_: ended.append(True))
    number = 0
    due = time.monotonic()
    while not ended:
        number += 1
        for part in parts:
            for endpoint, to in part:
                endpoint.sendto(PACKET.pack(time.monotonic(), number), to)
            due += 1.0 / rate / PARTS
            time.sleep(max(0.0, due - time.monotonic()))
    print(json.dumps({"sent": number}), flush=True)


class Flow:
    def __init__(self):
        self.sent_at = {}  # by number
        self.repeated = []

    def take(self, packet):
        sent, number = PACKET.unpack(packet)
        if number in self.sent_at:
            self.repeated.append(sent)
        self.sent_at[number] = sent

    def told(self):
        numbers = sorted(self.sent_at)
        gaps = [[number + 1, after - number - 1, self.sent_at[number], self.sent_at[after]]
                for number, after in zip(numbers, numbers[1:]) if after != number + 1]
        return {"count": len(numbers), "repeated": self.repeated, "first": numbers[0], "newest": numbers[-1],
                "newest_sent": self.sent_at[numbers[-1]], "gaps": gaps}


def receiving_socket(group, sources, index):
    endpoint = socket.socket(family_of(group), socket.SOCK_DGRAM)
    endpoint.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    endpoint.bind((group, PORT))
    endpoint.setblocking(False)
    level = socket.IPPROTO_IP if endpoint.family == socket.AF_INET else socket.IPPROTO_IPV6
    head = struct.pack("=I4x", index)
    for source in sources:
        if source:
            endpoint.setsockopt(level, MCAST_JOIN_SOURCE_GROUP, head + storage(group) + storage(source))
        else:
            endpoint.setsockopt(level, MCAST_JOIN_GROUP, head + storage(group))
    return endpoint


def receive(interface, path, answer):
    with open(path) as file:
        pairs = json.load(file)
    index = socket.if_nametoindex(interface)
    groups = {}
    for source, group in pairs:
        groups.setdefault(group, []).append(source)
    flows = {}

    def tell(*_):
        told = [{"source": source, "group": group, **flow.told()} for (source, group), flow in flows.items()]
        with open(answer + ".new", "w") as file:
            json.dump(told, file)
        os.rename(answer + ".new", answer)

    asked = []
    signal.signal(signal.SIGUSR1, lambda *_: asked.append(True))
    selector = selectors.DefaultSelector()
    for group, sources in groups.items():
        selector.register(receiving_socket(group, sources, index), selectors.EVENT_READ, group)
    print("joined", flush=True)
    while True:
        for key, _ in selector.select(0.1):
            try:
                packet, sender = key.fileobj.recvfrom(2048)
            except BlockingIOError:
                continue
            flows.setdefault((sender[0].split("%")[0], key.data), Flow()).take(packet)
        if asked:
            asked.clear()
            tell()


if __name__ == "__main__":
    if sys.argv[1] == "send":
        send(sys.argv[2], float(sys.argv[3]), sys.argv[4])
    else:
        receive(*sys.argv[2:5])
