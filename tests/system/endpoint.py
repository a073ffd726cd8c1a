"""A multicast sender and receiver on plain sockets.

endpoint.py send INTERFACE [--rate N] [--source ADDRESS] GROUP...
endpoint.py receive INTERFACE GROUP [--source ADDRESS] [--port N]
endpoint.py join INTERFACE GROUP [--count N]

The sender writes into each packet its number and the time, on the machine's monotonic clock. The receiver prints, ten
times a second while packets arrive, one JSON object: packets by source address; as "repeated" how many bore a number
that had come before from their source, if any did, and as "repeated_sent" when the last of them was sent; as "newest_sent"
when the newest packet was; as "missed" how many numbers were left out between the first and the last of a source, if
any were, and as "first_missed" how many of each source came in a row before the first of them; as "late" how many numbers
come before the first that came, if any do. With a source it joins
that source only. On SIGTERM it leaves by closing its socket. join is for many groups: it joins COUNT of them from GROUP
on, says so, and takes no packets.
"""

import argparse
import ipaddress
import json
import signal
import socket
import struct
import sys
import time

MCAST_JOIN_GROUP = 42
MCAST_JOIN_SOURCE_GROUP = 46


def family_of(address):
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def storage(address):
    """The address as a struct sockaddr_storage."""
    family = family_of(address)
    raw = socket.inet_pton(family, address)
    if family == socket.AF_INET:
        head = struct.pack("=HH4s", family, 0, raw)
    else:
        head = struct.pack("=HHI16sI", family, 0, 0, raw, 0)
    return head.ljust(128, b"\0")


def send(arguments):
    index = socket.if_nametoindex(arguments.interface)
    sockets = []
    for group in arguments.address:
        endpoint = socket.socket(family_of(group), socket.SOCK_DGRAM)
        if endpoint.family == socket.AF_INET:
            endpoint.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, struct.pack("=4s4si", b"", b"", index))
            endpoint.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 8)
        else:
            endpoint.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_IF, index)
            endpoint.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 8)
        if arguments.source and family_of(arguments.source) == endpoint.family:
            endpoint.bind((arguments.source, 0))
        sockets.append((endpoint, (group, arguments.port)))
    numbers = dict.fromkeys(arguments.address, 1)
    while True:
        for endpoint, target in sockets:
            group = target[0]
            try:
                endpoint.sendto(b"sent %.6f packet %d" % (time.monotonic(), numbers[group]), target)
                numbers[group] += 1
            except OSError:
                pass  # the interface may be down just now
        time.sleep(1.0 / arguments.rate)


def first_gap(numbers):
    """How many numbers came in a row before the first that did not."""
    first = min(numbers)
    return next(number - first for number in range(first, max(numbers) + 2) if number not in numbers)


def receive(arguments):
    group = arguments.address[0]
    family = family_of(group)
    level = socket.IPPROTO_IP if family == socket.AF_INET else socket.IPPROTO_IPV6
    index = socket.if_nametoindex(arguments.interface)
    endpoint = socket.socket(family, socket.SOCK_DGRAM)
    endpoint.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    endpoint.bind((group, arguments.port))
    head = struct.pack("=I4x", index)
    if arguments.source:
        request = head + storage(group) + storage(arguments.source)
        endpoint.setsockopt(level, MCAST_JOIN_SOURCE_GROUP, request)
    else:
        endpoint.setsockopt(level, MCAST_JOIN_GROUP, head + storage(group))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    counts = {}
    flows = {}
    printed = 0.0
    endpoint.settimeout(0.2)
    while True:
        try:
            packet, sender = endpoint.recvfrom(2048)
            source = sender[0].split("%")[0]
            counts[source] = counts.get(source, 0) + 1
            words = packet.split()
            number, sent = int(words[-1]), float(words[1]) if words[0] == b"sent" else 0.0
            counts["newest_sent"] = max(sent, counts.get("newest_sent", 0))
            numbers = flows.setdefault(sender, set())
            if number in numbers:
                counts["repeated"] = counts.get("repeated", 0) + 1
                counts["repeated_sent"] = max(sent, counts.get("repeated_sent", 0))
            numbers.add(number)
        except socket.timeout:
            pass
        now = time.monotonic()
        if now - printed >= 0.1:
            missed = sum(max(numbers) - min(numbers) + 1 - len(numbers) for numbers in flows.values())
            if missed:
                counts["missed"] = missed
                counts["first_missed"] = [first_gap(numbers) for numbers in flows.values()]
            late = sum(min(numbers) - 1 for numbers in flows.values())
            if late:
                counts["late"] = late
            print(json.dumps(counts), flush=True)
            printed = now


def join(arguments):
    first = ipaddress.ip_address(arguments.address[0])
    family = family_of(arguments.address[0])
    level = socket.IPPROTO_IP if family == socket.AF_INET else socket.IPPROTO_IPV6
    head = struct.pack("=I4x", socket.if_nametoindex(arguments.interface))
    endpoint = socket.socket(family, socket.SOCK_DGRAM)
    for number in range(arguments.count):
        endpoint.setsockopt(level, MCAST_JOIN_GROUP, head + storage(str(first + number)))
    print(f"joined {arguments.count}", flush=True)
    signal.sigwait([signal.SIGTERM])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("mode", choices=("send", "receive", "join"))
    parser.add_argument("interface")
    parser.add_argument("address", nargs="+")
    parser.add_argument("--rate", type=float, default=50)
    parser.add_argument("--source")
    parser.add_argument("--port", type=int, default=5000)
    parser.add_argument("--count", type=int, default=1)
    arguments = parser.parse_args()
    {"send": send, "receive": receive, "join": join}[arguments.mode](arguments)


main()
