"""IGMP and MLD packets byte by byte, from the formats of RFC 1112, 2236, 2710, 3376 and 3810.

An IP packet is made around a message; every field of it can be made wrong. A checksum of None is computed.
"""

import socket
import struct

ROUTER_ALERT4 = bytes.fromhex("94040000")
ROUTER_ALERT6 = bytes.fromhex("3a00050200000100")

ALL_SYSTEMS = {"ipv4": "224.0.0.1", "ipv6": "ff02::1"}
ALL_ROUTERS = {"ipv4": "224.0.0.2", "ipv6": "ff02::2"}
ALL_REPORTS = {"ipv4": "224.0.0.22", "ipv6": "ff02::16"}

# Record types of a version 3 (MLD version 2) report.
IS_IN, IS_EX, TO_IN, TO_EX, ALLOW, BLOCK = 1, 2, 3, 4, 5, 6


def checksum(data):
    data = bytes(data) + b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def family_of(address):
    return "ipv6" if ":" in address else "ipv4"


def raw(address):
    return socket.inet_pton(socket.AF_INET6 if ":" in address else socket.AF_INET, address)


def with_checksum(message, at, pseudo_header=b""):
    """The message with its checksum at an offset computed, unless it carries one that is not 0."""
    message = bytearray(message)
    if len(message) >= at + 2 and message[at:at + 2] == b"\0\0":
        struct.pack_into("!H", message, at, checksum(pseudo_header + message))
    return bytes(message)


def ipv4(message, source, destination, ttl=1, options=ROUTER_ALERT4, protocol=2, fragment=0, version=4,
         header_words=None, total_length=None, header_checksum=None):
    words = 5 + len(options) // 4 if header_words is None else header_words
    message = with_checksum(message, 2)
    length = 20 + len(options) + len(message) if total_length is None else total_length
    header = struct.pack("!BBHHHBBH4s4s", version << 4 | words, 0xC0, length, 0, fragment, ttl, protocol,
                         header_checksum or 0, raw(source), raw(destination)) + options
    if header_checksum is None:
        header = header[:10] + struct.pack("!H", checksum(header)) + header[12:]
    return header + message


def ipv6(message, source, destination, hop_limit=1, options=ROUTER_ALERT6, next_header=None, version=6,
         payload_length=None):
    pseudo_header = raw(source) + raw(destination) + struct.pack("!II", len(message), 58)
    payload = options + with_checksum(message, 2, pseudo_header)
    first = (0 if options else 58) if next_header is None else next_header
    length = len(payload) if payload_length is None else payload_length
    return struct.pack("!IHBB", version << 28, length, first, hop_limit) + raw(source) + raw(destination) + payload


def packet(message, source, destination, **wrong):
    return (ipv4 if family_of(source) == "ipv4" else ipv6)(message, source, destination, **wrong)


def record(kind, group, sources=(), count=None, auxiliary=b"", auxiliary_words=None):
    words = len(auxiliary) // 4 if auxiliary_words is None else auxiliary_words
    return (struct.pack("!BBH", kind, words, len(sources) if count is None else count) + raw(group)
            + b"".join(raw(source) for source in sources) + auxiliary)


def report(family, *records, count=None):
    """A version 3 IGMP or version 2 MLD report."""
    kind = 0x22 if family == "ipv4" else 143
    return struct.pack("!BBHHH", kind, 0, 0, 0, len(records) if count is None else count) + b"".join(records)


def old(kind, group, time=0):
    """A message of an older version: 0x12, 0x16, 0x17 of IGMP, 131, 132 of MLD; a query with 0x11 or 130."""
    if family_of(group) == "ipv4":
        return struct.pack("!BBH", kind, time, 0) + raw(group)
    return struct.pack("!BBHHH", kind, 0, 0, time, 0) + raw(group)


def query(group, time=10, flags=2, interval=125, sources=(), count=None):
    """A version 3 IGMP or version 2 MLD query."""
    return old(0x11 if family_of(group) == "ipv4" else 130, group, time) + struct.pack(
        "!BBH", flags, interval, len(sources) if count is None else count) + b"".join(raw(one) for one in sources)
