"""Three routers with msdpd in one mesh group, and a peer of the first that is none of theirs and says what a test
wants.

   source 10.1.0.2 ---- a ------- 10.0.12.0/24 ------- b
                       / \\                             |
    speaker 10.8.0.2 -+   +------ 10.0.13.0/24 ---- c -+ 10.0.23.0/24
"""

import json
import os
import socket
import struct
import unittest

from lab import HERE, PROGRAMS, Host, Process, Receiver, Sender, link, wait_for
from msdp_topology import MsdpRouter, peer

SOURCE, GROUP = "10.1.0.2", "239.1.1.1"
SPEAKER, TO_SPEAKER = "10.8.0.2", "10.8.0.1"
MESH = {"mesh_group": "core"}
ACL = """
[[acl]]
number = 3001
family = "ipv4"
[[acl.rule]]
id = 1
action = "deny"
destination = "239.9.0.3"
[[acl.rule]]
id = 2
action = "permit"
"""


def announcement(originator, *pairs, kind=1):
    """A source active message; of kind 3 the response to a request."""
    value = bytes([len(pairs)]) + socket.inet_aton(originator)
    for source, group in pairs:
        value += bytes([0, 0, 0, 32]) + socket.inet_aton(group) + socket.inet_aton(source)
    return struct.pack(">BH", kind, len(value) + 3) + value


def request(group):
    return struct.pack(">BHB4s", 2, 8, 0, socket.inet_aton(group))


class PeersTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.a, cls.b, cls.c = (MsdpRouter(name, rp) for name, rp in (("a", "10.0.12.1"), ("b", None), ("c", None)))
        cls.source, cls.outside = Host("source"), Host("outside")
        link(cls.a, "to-b", cls.b, "to-a")
        link(cls.a, "to-c", cls.c, "to-a")
        link(cls.b, "to-c", cls.c, "to-b")
        link(cls.a, "src", cls.source, "eth0")
        link(cls.a, "out", cls.outside, "eth0")
        cls.a.address("to-b", "10.0.12.1/24")
        cls.a.address("to-c", "10.0.13.1/24")
        cls.a.address("src", "10.1.0.1/24")
        cls.a.address("out", f"{TO_SPEAKER}/24")
        cls.b.address("to-a", "10.0.12.2/24")
        cls.b.address("to-c", "10.0.23.2/24")
        cls.c.address("to-a", "10.0.13.3/24")
        cls.c.address("to-b", "10.0.23.3/24")
        cls.source.address("eth0", f"{SOURCE}/24")
        cls.source.route("default", "via", "10.1.0.1")
        cls.outside.address("eth0", f"{SPEAKER}/24")
        cls.configure()
        cls.b.configure(peer("10.0.12.1", "10.0.12.2", **MESH) + peer("10.0.23.3", "10.0.23.2", **MESH))
        cls.c.configure(peer("10.0.13.1", "10.0.13.3", **MESH) + peer("10.0.23.2", "10.0.23.3", **MESH))
        cls.speakers = []
        for router in (cls.a, cls.b, cls.c):
            router.start()
        cls.a.established("10.0.12.2", "10.0.13.3")
        cls.b.established("10.0.23.3")

    @classmethod
    def configure(cls, **speaker):
        cls.a.configure(peer("10.0.12.2", "10.0.12.1", **MESH) + peer("10.0.13.3", "10.0.13.1", **MESH) +
                        ACL + peer(SPEAKER, TO_SPEAKER, **speaker))

    @classmethod
    def tearDownClass(cls):
        for router in (cls.a, cls.b, cls.c):
            router.stop()

    def setUp(self):
        self.configure()
        self.a.reload()

    def tearDown(self):
        self.silence()

    def silence(self):
        """Ends the speaker's process, and waits until the router has seen that."""
        while self.speakers:
            speaker = self.speakers.pop()
            if speaker.alive():
                speaker.kill()
        wait_for(lambda: self.a.peer(SPEAKER)["state"] == "connecting", "the end of the connection")

    def speak(self, *messages):
        """A connection in which the speaker says this."""
        before = self.a.count(SPEAKER, "connections")
        speaker = Process(self.outside, f"speaker-{before}", "python3", os.path.join(HERE, "msdp_speaker.py"), SPEAKER,
                          b"".join(messages).hex())
        self.speakers.append(speaker)
        wait_for(lambda: self.a.count(SPEAKER, "connections") > before, "a connection to the speaker")
        return speaker

    def groups(self, router, network):
        """The groups in the cache that begin with this."""
        return {group for _, group in router.cache() if group.startswith(network)}

    def test_a_source_reaches_the_mesh_once(self):
        sender = Sender(self.source, "eth0", [GROUP])
        self.b.learns(SOURCE, GROUP, "10.0.12.1", "10.0.12.1")
        self.c.learns(SOURCE, GROUP, "10.0.12.1", "10.0.13.1")
        self.assertEqual(self.b.count("10.0.23.3", "received_entries"), 0)
        self.assertEqual(self.c.count("10.0.23.2", "received_entries"), 0)
        self.assertIn(f"remote source ({SOURCE}, {GROUP}): instance 0, entry 0", self.c.remote_sources())
        sender.stop()

    def test_what_comes_from_outside_reaches_the_mesh_once(self):
        self.speak(announcement(SPEAKER, ("192.0.2.1", "239.2.0.1")))
        self.a.learns("192.0.2.1", "239.2.0.1", SPEAKER, SPEAKER)
        self.b.learns("192.0.2.1", "239.2.0.1", SPEAKER, "10.0.12.1")
        self.c.learns("192.0.2.1", "239.2.0.1", SPEAKER, "10.0.13.1")
        self.assertEqual(self.c.count("10.0.23.2", "received_entries"), 0)

    def test_an_originator_without_a_way_is_not_believed(self):
        self.speak(announcement("198.51.100.1", ("192.0.2.1", "239.3.0.1")))
        wait_for(lambda: self.a.count(SPEAKER, "dropped_rpf") == 1, "the announcement")
        self.assertEqual(self.groups(self.a, "239.3."), set())
        self.a.route("198.51.100.0/24", "via", SPEAKER)
        self.silence()
        self.speak(announcement("198.51.100.1", ("192.0.2.1", "239.3.0.1")))
        self.a.learns("192.0.2.1", "239.3.0.1", "198.51.100.1", SPEAKER)
        self.assertIn({"originator": "198.51.100.1", "peer": SPEAKER, "rule": "next_hop", "entries": 1},
                      self.a.tables()["rpf"])

    def test_the_operator_has_a_group_forgotten(self):
        self.speak(announcement(SPEAKER, ("192.0.2.1", "239.8.0.1"), ("192.0.2.1", "239.8.0.2")))
        self.b.learns("192.0.2.1", "239.8.0.2", SPEAKER, "10.0.12.1")
        self.b.run(os.path.join(PROGRAMS, "mcastctl"), "clear", "msdp-cache", "--group", "239.8.0.1")
        self.assertEqual(self.groups(self.b, "239.8."), {"239.8.0.2"})
        wait_for(lambda: not any("239.8.0.1)" in line for line in self.b.remote_sources()), "mribd forgetting the group")
        self.assertTrue(any("239.8.0.2)" in line for line in self.b.remote_sources()))
        shown = self.b.run(os.path.join(PROGRAMS, "mcastctl"), "show", "msdp-rpf")
        self.assertRegex(shown, rf"{SPEAKER} +- +none +\d+\n")

    def test_a_limit_is_kept_and_warned_of(self):
        self.configure(sa_limit=20)
        self.a.reload()
        wait_for(lambda: self.a.peer(SPEAKER)["sa_limit"] == 20, "the limit")
        known = self.a.peer(SPEAKER)["entries"]
        self.speak(announcement(SPEAKER, *(("192.0.2.1", f"239.4.0.{n}") for n in range(1, 26))))
        wait_for(lambda: self.a.count(SPEAKER, "refused_limit") == 5 + known, "refusals")
        self.assertEqual(self.a.peer(SPEAKER)["entries"], 20)
        self.assertIn(f"peer {SPEAKER} announces 19 sources; more than 20 are refused", self.a.msdpd.output())
        wait_for(lambda: len(self.groups(self.b, "239.4.")) == 20 - known, "what was kept, in b")
        self.configure(sa_limit=3)
        self.a.reload()
        wait_for(lambda: self.a.peer(SPEAKER)["entries"] == 3, "the smaller limit")

    def test_filters_decide_at_once(self):
        self.configure(filter_in=3001)
        self.a.reload()
        self.speak(announcement(SPEAKER, *(("192.0.2.1", f"239.9.0.{n}") for n in range(1, 5))))
        self.a.learns("192.0.2.1", "239.9.0.4", SPEAKER, SPEAKER)
        self.assertEqual(self.groups(self.a, "239.9."), {"239.9.0.1", "239.9.0.2", "239.9.0.4"})
        self.silence()
        self.configure()
        self.a.reload()
        self.speak(announcement(SPEAKER, ("192.0.2.1", "239.9.0.3")))
        self.a.learns("192.0.2.1", "239.9.0.3", SPEAKER, SPEAKER)
        told = "remote source (192.0.2.1, 239.9.0.3): instance 0, entry 0"
        wait_for(lambda: told in self.a.remote_sources(), "mribd told")
        self.configure(filter_in=3001)
        self.a.reload()
        wait_for(lambda: told not in self.a.remote_sources(), "mribd told that the filter denies it")

    def test_a_host_that_joins_has_the_peers_asked(self):
        wanted, unasked = "239.7.0.1", "239.7.0.2"
        gmpd = self.a.start_gmpd("ipv4", "--interface", "src", "--query-response-interval", "1")
        wait_for(lambda: json.loads(gmpd.status())["mrib_replayed"], "gmpd ready")
        self.configure(sa_request=True)
        self.a.reload()
        speaker = self.speak(announcement(SPEAKER, ("192.0.2.1", wanted), kind=3))
        self.a.learns("192.0.2.1", wanted, SPEAKER, SPEAKER)
        wait_for(lambda: "requests enabled" in self.a.mribd.status(), "mribd told that a peer is to be asked")
        receiver = Receiver(self.source, "eth0", wanted)
        wait_for(lambda: request(wanted).hex() in speaker.output(), "the question about the group")
        receiver.leave()
        self.silence()
        # Who is not to be asked is not, and his answers do not count.
        self.configure()
        self.a.reload()
        wait_for(lambda: "requests enabled" not in self.a.mribd.status(), "mribd told that nobody is to be asked")
        speaker = self.speak(announcement(SPEAKER, ("192.0.2.1", unasked), kind=3))
        wait_for(lambda: self.a.count(SPEAKER, "ignored_response_not_asked_for") == 1, "the answer ignored")
        receiver = Receiver(self.source, "eth0", unasked)
        wait_for(lambda: f"member (*, {unasked})" in self.a.mribd.status(), "the join at mribd")
        self.assertNotIn(request(unasked).hex(), speaker.output())
        self.assertEqual(self.groups(self.a, unasked), set())
        receiver.leave()
        self.assertEqual(gmpd.stop(), 0)

    def test_a_request_is_answered_with_what_is_known(self):
        group, unknown = "239.8.0.1", "239.8.0.9"
        sender = Sender(self.source, "eth0", [group])
        self.b.learns(SOURCE, group, "10.0.12.1", "10.0.12.1")
        speaker = self.speak(request(group), request(unknown))
        answer = announcement("10.0.12.1", (SOURCE, group), kind=3)
        wait_for(lambda: answer.hex() in speaker.output(), "the answer")
        wait_for(lambda: self.a.count(SPEAKER, "received_requests") == 2, "the other question")
        self.assertNotIn(socket.inet_aton(unknown).hex(), speaker.output())
        sender.stop()

    def test_malformed_bytes_end_the_connection(self):
        good = announcement(SPEAKER, ("192.0.2.1", "239.5.0.1"))
        for name, bad in (("length", "010002"), ("length", "ffffff"), ("source_active", "01000801c0000201"),
                          ("source_active", "03000401"), ("request", "02000400"), ("keepalive", "04000400")):
            with self.subTest(bad=bad):
                before = self.a.count(SPEAKER, f"malformed_{name}")
                speaker = self.speak(good, bytes.fromhex(bad), announcement(SPEAKER, ("192.0.2.1", "239.6.0.1")))
                wait_for(lambda: "closed" in speaker.output(), "the end of the connection")
                self.assertEqual(self.a.count(SPEAKER, f"malformed_{name}"), before + 1)
                self.silence()
        self.assertEqual(self.groups(self.a, "239.5."), {"239.5.0.1"})
        self.assertEqual(self.groups(self.a, "239.6."), set())

    def test_strangers_are_refused(self):
        before = self.a.tables()["refused_connections"]
        script = "import socket; s = socket.create_connection(('10.1.0.1', 639)); print(len(s.recv(9)))"
        self.assertEqual(self.source.run("python3", "-c", script).strip(), "0")
        self.assertEqual(self.a.tables()["refused_connections"], before + 1)

    def test_a_wrong_file_is_refused_with_its_place(self):
        with open(self.a.config_path, "a+") as file:
            file.write("sa_limits = 3\n")
            file.seek(0)
            lines = len(file.readlines())
        self.a.reload()
        wait_for(lambda: f"{self.a.config_path}:{lines}:1: " in self.a.msdpd.output(), "the place of the error")
        self.assertEqual(len(self.a.tables()["peers"]), 3)


if __name__ == "__main__":
    unittest.main()
