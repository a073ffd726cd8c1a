"""Too little memory for what an MSDP peer announces: 60000 sources while the address space of msdpd is bounded.

It refuses what it has no room for, counts it and keeps the rest; mcastctl is answered, the peer stays connected. When the
announcements have ended there is room for new ones.

    peer 10.5.0.2 ---- router 10.5.0.1
"""

import json
import os
import unittest

import msdp_topology
from lab import PROGRAMS, Daemon, Host, link, wait_for
from msdp_peer import MsdpPeer, announcements

PEER, LOCAL = "10.5.0.2", "10.5.0.1"
FIRST, LATER = ("10.99.0.1", "239.18.0.1"), ("10.99.0.1", "239.19.0.1")
SOURCES = 60000
# What nobody repeats is over after 20 seconds, the shortest time that the daemon takes.
SETTINGS = "connect_retry = 1\nsa_hold_down = 1\nsa_interval = 2\nsa_state_time = 20\n"


class MsdpRouter(msdp_topology.MsdpRouter):
    """Its msdpd has only so much address space, in KiB."""

    def __init__(self, kib):
        super().__init__(f"router-{kib}", LOCAL)
        self.kib = kib

    def start_msdpd(self):
        self.msdpd = Daemon(self, "msdpd", "bash", "-c", f"ulimit -v {self.kib}; exec \"$@\"", "bash",
                            os.path.join(PROGRAMS, "msdpd"), "--config", self.config_path)


class ShortMemory(unittest.TestCase):
    def show(self, *words):
        """Rows of a table; so few that little memory is enough for them."""
        return json.loads(self.router.run(os.path.join(PROGRAMS, "mcastctl"), "show", *words, "--json"))

    def refused(self):
        return sum(row["value"] for row in self.show("msdp-counters") if row["counter"] == "refused_no_memory")

    def entries(self):
        return self.show("msdp-peers")[0]["entries"]

    def knows(self, source, group):
        return [row["source"] for row in self.show("msdp-cache", "--group", group)] == [source]

    def check(self, kib, refuses):
        self.router = MsdpRouter(kib)
        outside = Host(f"peer-{kib}")
        link(self.router, "out", outside, "eth0")
        self.router.address("out", f"{LOCAL}/24")
        outside.address("eth0", f"{PEER}/24")
        self.router.configure(msdp_topology.peer(PEER, LOCAL), SETTINGS)
        self.router.start()
        peer = MsdpPeer(outside, PEER)
        wait_for(lambda: peer.send(announcements(PEER, [FIRST])), "a connection")
        wait_for(lambda: self.knows(*FIRST), "the first source")
        many = announcements(PEER, [(f"10.98.{number // 250 % 250}.{1 + number % 250}", f"239.20.0.{1 + number // 62500}")
                                    for number in range(SOURCES)])
        for _ in range(2):
            self.assertTrue(peer.send(announcements(PEER, [FIRST]) + many))
        if refuses:
            wait_for(lambda: self.refused() > 0, "refusals")
        else:
            wait_for(lambda: self.entries() > SOURCES, "everything learned", 60)
            self.assertEqual(self.refused(), 0)
        self.assertGreater(self.entries(), 1000)
        self.assertTrue(self.knows(*FIRST))
        wait_for(lambda: peer.send(announcements(PEER, [FIRST])) and self.entries() < 10, "the end of the others", 60)
        wait_for(lambda: peer.send(announcements(PEER, [LATER])) and self.knows(*LATER), "room again")
        self.assertTrue(self.knows(*FIRST))
        connections = [row["value"] for row in self.show("msdp-counters") if row["counter"] == "connections"]
        self.assertEqual(connections, [1])
        peer.close()
        self.router.stop()

    def test_short_of_memory(self):
        for kib in (14000, 16000):
            with self.subTest(kib=kib):
                self.check(kib, True)

    def test_enough_memory(self):
        self.check(60000, False)


if __name__ == "__main__":
    unittest.main()
