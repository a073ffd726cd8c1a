"""Every message of IGMP and MLD as its RFC draws it is understood; every malformed one is dropped and counted
under what is wrong with it, and nothing else happens.

      ghost  eth0 ------------------- eth0  router  gmpd x 2, mribd
      has no IP at all: it says       10.2.0.1, fe80::1
      only what the test sends

A row is a packet and all counters that it moves.
"""

import json
import unittest

import packets
from lab import Host, Router, Wire, link, wait_for
from packets import (ALL_REPORTS, ALL_ROUTERS, ALL_SYSTEMS, ALLOW, BLOCK, IS_EX, IS_IN, TO_EX, TO_IN, old, query,
                     record, report)

# The sender, and a higher address than the router's, which never becomes querier.
SENDER = {"ipv4": "10.2.0.200", "ipv6": "fe80::200"}
GROUP = {"ipv4": "239.9.0.1", "ipv6": "ff1e::9:1"}
OTHER_GROUP = {"ipv4": "239.9.0.2", "ipv6": "ff1e::9:2"}
SOURCES = {"ipv4": ("10.1.0.2", "10.1.0.3"), "ipv6": ("2001:db8::2", "2001:db8::3")}
UNREGISTERED_OPTION = {"ipv4": bytes.fromhex("94040001"), "ipv6": bytes.fromhex("3a00050200010100")}


def from_sender(message, to, **wrong):
    family = packets.family_of(to)
    return packets.packet(message, wrong.pop("source", SENDER[family]), to, **wrong)


def literal_igmp_rows():
    """Whole messages as they are seen on networks, their checksums as they were."""
    def row(text, to, **counters):
        return text, from_sender(bytes.fromhex(text), to), counters

    everyone = ALL_SYSTEMS["ipv4"]
    return [
        row("1100 eeff 00000000", everyone, received_queries_v1=1, received_older_queries=1),
        row("1164 ee9b 00000000", everyone, received_queries_v2=1, received_older_queries=1),
        row("1164 ec1e 00000000 027d 0000", everyone, received_queries_v3=1),
        row("1200 fe05 efff fff9", "239.255.255.249", received_reports_v1=1),
        row("1600 fa04 efff fffa", "239.255.255.250", received_reports_v2=1),
        row("1700 f904 efff fffa", ALL_ROUTERS["ipv4"], received_leaves=1),
        row("1600 0904 e000 00fb", "224.0.0.251", received_reports_v2=1, ignored_unroutable_group=1),
        row("2200 ea03 0000 0001 0400 0000 efff fffa", ALL_REPORTS["ipv4"], received_reports_v3=1),
        row("2200 eb03 0000 0001 0300 0000 efff fffa", ALL_REPORTS["ipv4"], received_reports_v3=1),
    ]


def literal_mld_rows():
    """Whole packets of a Linux host and of a bridge that asks, as they were recorded."""
    host, switch = "fe8000000000000028b2fffffe12cf8e", "fe80000000000000341fedfffe71570d"
    everyone, routers = "ff020000000000000000000000000001", "ff020000000000000000000000000002"
    reports, group, older = ("ff020000000000000000000000000016", "ff1e0000000000000000000000010001",
                             "ff1e0000000000000000000000010002")
    alert, specific = "3a00050200000100", "ff3e0000000000000000000080000001"

    def row(length, source, to, message, counters, options=alert):
        text = f"60000000 {length:04x} 0001 {source} {to} {options} {message}"
        return message, bytes.fromhex(text), counters

    heard = {"received_reports_v3": 1}
    # What shortens a membership comes before what is to last.
    return [
        row(32, switch, everyone, f"8200e17927100000 {'00' * 16}",
            {"received_queries_v2": 1, "received_older_queries": 1}, "3a00050200000000"),
        row(36, switch, everyone, f"8200def827100000 {'00' * 16} 027d0000", {"received_queries_v3": 1},
            "3a00050200000000"),
        row(36, host, reports, f"8f007a9900000001 03000000 {group}", heard),
        row(52, host, reports, f"8f00c9ae00000001 06000001 {specific} 20010db8000000000000000000000001", heard),
        row(32, host, routers, f"840088b100000000 {older}", {"received_leaves": 1}),
        row(36, host, reports, f"8f00799900000001 04000000 {group}", heard),
        row(52, host, reports, f"8f00caae00000001 05000001 {specific} 20010db8000000000000000000000001", heard),
        row(32, host, older, f"8300899400000000 {older}", {"received_reports_v2": 1}),
        row(56, host, reports, "8f00a8f800000002 04000000 ff0200000000000000000001ff000002 04000000 "
            "ff0200000000000000000001ff12cf8e", heard | {"ignored_unroutable_group": 2}),
    ]


def valid_rows(family):
    """One of each kind and record type, and what the formats allow besides."""
    group, other, sources = GROUP[family], OTHER_GROUP[family], SOURCES[family]
    reports, routers, everyone = ALL_REPORTS[family], ALL_ROUTERS[family], ALL_SYSTEMS[family]
    report_kind, leave_kind, query_kind = (0x16, 0x17, 0x11) if family == "ipv4" else (131, 132, 130)
    # Questions and the leave shorten a membership, so they come before what is to last.
    rows = [
        ("leave", from_sender(old(leave_kind, group), routers), {"received_leaves": 1}),
        ("older query about a group", from_sender(old(query_kind, group, 10), group),
         {"received_queries_v2": 1, "received_older_queries": 1}),
        ("query about a group", from_sender(query(group), group), {"received_queries_v3": 1}),
        ("query about sources", from_sender(query(group, flags=0x0A, sources=sources), group),
         {"received_queries_v3": 1}),
        ("general query, floating point time", from_sender(query(any_of(family), time=0xFF), everyone),
         {"received_queries_v3": 1}),
        ("query with bytes of the future", from_sender(query(any_of(family)) + b"future", everyone),
         {"received_queries_v3": 1}),
    ]
    rows += [(f"record type {kind}", from_sender(report(family, record(kind, other, sources)), reports),
              {"received_reports_v3": 1}) for kind in (IS_IN, ALLOW, BLOCK, TO_IN, TO_EX, IS_EX)]
    rows += [
        ("no record at all", from_sender(report(family), reports), {"received_reports_v3": 1}),
        ("two records with auxiliary data",
         from_sender(report(family, record(IS_EX, other, sources, auxiliary=b"12345678"),
                            record(IS_EX, group, auxiliary=b"abcd")), reports), {"received_reports_v3": 1}),
        ("bytes after the last record", from_sender(report(family, record(IS_EX, group)) + b"more", reports),
         {"received_reports_v3": 1}),
        ("a record type of the future",
         from_sender(report(family, record(99, group), record(IS_EX, group)), reports),
         {"received_reports_v3": 1, "ignored_record_type": 1}),
        ("a group as a source", from_sender(report(family, record(ALLOW, other, (group,))), reports),
         {"received_reports_v3": 1, "ignored_record_source": 1}),
        ("older report", from_sender(old(report_kind, group), group), {"received_reports_v2": 1}),
        ("older report, longer than it needs to be", from_sender(old(report_kind, group) + b"tail", group),
         {"received_reports_v2": 1}),
    ]
    return rows


def any_of(family):
    return "0.0.0.0" if family == "ipv4" else "::"


def malformed_messages(family):
    group, sources, reports = GROUP[family], SOURCES[family], ALL_REPORTS[family]
    routers, everyone = ALL_ROUTERS[family], ALL_SYSTEMS[family]
    good = report(family, record(IS_EX, group))
    report_kind, leave_kind = (0x16, 0x17) if family == "ipv4" else (131, 132)
    no_group = SOURCES[family][0]

    def row(counter, message, to=reports, **wrong):
        return f"{counter} {message.hex()} {wrong}", from_sender(message, to, **wrong), {f"dropped_{counter}": 1}

    return [
        row("short_message", good[:7]),
        row("checksum", good[:2] + b"\xde\xad" + good[4:]),
        row("message_length", old(leave_kind, group)[:-1] if family == "ipv6" else query(any_of(family))[:11],
            routers if family == "ipv6" else everyone),
        row("message_length", old(0x11 if family == "ipv4" else 130, any_of(family), 10) + b"xyz", everyone),
        row("router_alert", good, options=b""),
        row("router_alert", good, options=UNREGISTERED_OPTION[family]),
        row("router_alert", old(report_kind, group), group, options=b""),
        row("router_alert", query(any_of(family)), everyone, options=b""),
        row("unicast_query", query(any_of(family)), "10.2.0.1" if family == "ipv4" else "fe80::1"),
        row("destination", query(group), OTHER_GROUP[family]),
        row("destination", good, OTHER_GROUP[family]),
        row("destination", old(report_kind, group), OTHER_GROUP[family]),
        row("group_address", query(no_group), everyone),
        row("group_address", old(report_kind, no_group), routers),
        row("group_address", old(leave_kind, no_group), routers),
        row("group_address", report(family, record(IS_EX, group), record(IS_EX, no_group))),
        row("record_count", report(family, record(IS_EX, group), count=2)),
        row("record_count", report(family, count=65535)),
        row("source_count", report(family, record(ALLOW, group, sources, count=3))),
        row("source_count", report(family, record(ALLOW, group, count=65535))),
        row("source_count", report(family, record(IS_EX, group, auxiliary_words=255))),
        row("source_count", query(group, sources=sources, count=3), group),
        row("hop_limit", good, **{"ttl" if family == "ipv4" else "hop_limit": 64}),
        row("own_address", good, source="10.2.0.1" if family == "ipv4" else "fe80::1"),
    ]


def malformed_headers_ipv4():
    good = report("ipv4", record(IS_EX, GROUP["ipv4"]))
    to = ALL_REPORTS["ipv4"]

    def row(counter, **wrong):
        return f"{counter} {wrong}", from_sender(good, to, **wrong), {f"dropped_{counter}": 1}

    return [
        ("a packet shorter than its header", from_sender(good, to)[:19], {"dropped_short_packet": 1}),
        row("ip_version", version=6),
        row("header_length", header_words=4),
        row("header_length", header_words=15),
        row("header_length", options=bytes.fromhex("94000000")),
        row("header_length", options=bytes.fromhex("94080000")),
        row("total_length", total_length=10),
        row("total_length", total_length=2000),
        row("header_checksum", header_checksum=0x1234),
        row("fragment", fragment=0x2000),
        row("fragment", fragment=1),
        row("source_address", source="127.0.0.1"),
        row("source_address", source="239.1.1.1"),
        row("source_off_link", source="10.99.0.1"),
        ("dropped_message_type", from_sender(bytes.fromhex("ff00 0000 00000000"), to), {"dropped_message_type": 1}),
        ("query_without_source", from_sender(query("0.0.0.0"), ALL_SYSTEMS["ipv4"], source="0.0.0.0"),
         {"dropped_query_without_source": 1}),
    ]


def malformed_headers_ipv6():
    good = report("ipv6", record(IS_EX, GROUP["ipv6"]))
    to = ALL_REPORTS["ipv6"]

    def row(counter, **wrong):
        return f"{counter} {wrong}", from_sender(good, to, **wrong), {f"dropped_{counter}": 1}

    return [
        row("ip_version", version=4),
        row("total_length", payload_length=2000),
        row("extension_header", options=bytes.fromhex("3a00c20400000000")),
        row("extension_header", options=bytes.fromhex("3a00050900000100")),
        row("source_address", source="2001:db8::5"),
        row("source_address", source="::"),
    ]


class Ghost:
    """A router that speaks with OPTIONS and a neighbour that plays packets to it."""

    OPTIONS = ()

    @classmethod
    def setUpClass(cls):
        cls.router, ghost = Router(f"router{cls.__name__}"), Host(f"ghost{cls.__name__}")
        ghost.sysctl("net.ipv6.conf.default.disable_ipv6", 1)
        cls.router.sysctl("net.ipv6.conf.default.addr_gen_mode", 1)
        link(cls.router, "eth0", ghost, "eth0")
        cls.router.address("eth0", "10.2.0.1/24", "fe80::1/64")
        cls.wire = Wire(ghost, "eth0")
        cls.mribd = cls.router.start_mribd()
        cls.gmpd = {family: cls.router.start_gmpd(family, *cls.OPTIONS) for family in ("ipv4", "ipv6")}
        for family in cls.gmpd:
            wait_for(lambda f=family: cls.interface(f).get("running"), "gmpd serving the link")

    @classmethod
    def tearDownClass(cls):
        for daemon in (*cls.gmpd.values(), cls.mribd):
            assert daemon.alive(), f"{daemon.name} died: {daemon.output()[-2000:]}"
            assert daemon.stop() == 0, daemon.output()[-2000:]

    @classmethod
    def interface(cls, family):
        interfaces = json.loads(cls.gmpd[family].status())["interfaces"]
        return interfaces[0] if interfaces else {}

    def counters(self, family):
        return {name: count for name, count in self.interface(family)["counters"].items()
                if not name.startswith("sent_")}

    def play(self, family, rows):
        for name, packet, expected in rows:
            with self.subTest(packet=name):
                before = self.counters(family)
                self.wire.send(packet, family)
                after = wait_for(lambda: (now := self.counters(family)) != before and now, f"{name} being counted", 5)
                moved = {counter: count - before.get(counter, 0) for counter, count in after.items()
                         if count != before.get(counter, 0)}
                self.assertEqual(moved, {counter: count for counter, count in expected.items() if count})

    def groups(self, family):
        return {one["group"]: one for one in self.interface(family)["groups"]}


class ByteSequences(Ghost, unittest.TestCase):
    def test_captured_igmp_messages_are_understood(self):
        self.play("ipv4", literal_igmp_rows())
        self.assertIn("version_1_host_s", self.groups("ipv4")["239.255.255.249"])
        self.assertIn("version_2_host_s", self.groups("ipv4")["239.255.255.250"])
        wait_for(lambda: "(*, 239.255.255.249)" in self.mribd.status(), "the membership at mribd")

    def test_captured_mld_packets_are_understood(self):
        self.play("ipv6", literal_mld_rows())
        groups = self.groups("ipv6")
        self.assertEqual((groups["ff1e::1:1"]["mode"], groups["ff1e::1:1"]["sources"]), ("exclude", []))
        self.assertIn("version_2_host_s", groups["ff1e::1:2"])
        self.assertEqual(groups["ff3e::8000:1"]["mode"], "include")
        self.assertEqual([one["source"] for one in groups["ff3e::8000:1"]["sources"]], ["2001:db8::1"])
        wait_for(lambda: "(2001:db8::1, ff3e::8000:1)" in self.mribd.status(), "the membership at mribd")

    def check_valid(self, family):
        self.play(family, valid_rows(family))
        groups = self.groups(family)
        self.assertEqual(groups[OTHER_GROUP[family]]["mode"], "exclude")
        self.assertEqual({one["source"] for one in groups[OTHER_GROUP[family]]["sources"]}, set(SOURCES[family]))
        self.assertEqual(groups[GROUP[family]]["mode"], "exclude")
        self.assertTrue(self.interface(family)["querier"]["this_router"])

    def test_igmp_as_the_formats_say_is_understood(self):
        self.check_valid("ipv4")

    def test_mld_as_the_formats_say_is_understood(self):
        self.check_valid("ipv6")

    def check_malformed(self, family, rows):
        before = set(self.groups(family))
        self.play(family, rows)
        self.assertEqual(set(self.groups(family)) - before, set())
        self.assertTrue(self.interface(family)["querier"]["this_router"])

    def test_malformed_igmp_is_dropped_under_its_counter(self):
        self.check_malformed("ipv4", malformed_messages("ipv4") + malformed_headers_ipv4())

    def test_malformed_mld_is_dropped_under_its_counter(self):
        self.check_malformed("ipv6", malformed_messages("ipv6") + malformed_headers_ipv6())


class OlderRouter(Ghost, unittest.TestCase):
    """A router that was told to speak an older version does not understand what is newer."""

    OPTIONS = ("--protocol-version", "1")

    def test_newer_reports_are_counted_and_not_heeded(self):
        for family in ("ipv4", "ipv6"):
            rows = [("newer report", from_sender(report(family, record(IS_EX, GROUP[family])), ALL_REPORTS[family]),
                     {"dropped_newer_version": 1})]
            self.play(family, rows)
            self.assertEqual(self.groups(family), {})


if __name__ == "__main__":
    unittest.main()
