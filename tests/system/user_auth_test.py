"""Links on which reports count for announced users alone: who may join what, and how it ends.

      source ------ src  router  lan ------ switch ---- alice  10.2.0.2   uagent runs on the router
   10.1.0.2       mribd, gmpd x 2  |          `-------- bob    10.2.0.3
   fd00:1::2                       blue ------ carol            10.3.0.2   the link is hers alone (kind 2)

Alice and Bob share a link and are told apart by the source addresses of their reports; for IPv6 these are
their link-local ones. What one asked for must end with her or him, and nothing of the other's.
"""

import json
import os
import re
import socket
import struct
import subprocess
import unittest

import user_topology
from lab import PROGRAMS, Receiver, Sender, wait_for

FAMILIES = ("ipv4", "ipv6")
FLAGS = {"ipv4": "-4", "ipv6": "-6"}
PORTS = {"ipv4": 2195, "ipv6": 2192}
SOURCES = {"ipv4": "10.1.0.2", "ipv6": "fd00:1::2"}
OPTIONS = ("--user-auth", "lan", "--user-auth", "blue", "--last-member-interval", "1", "--query-response-interval", "1",
           "--query-interval", "30", "--max-agents", "1100")
NODE = "0"
ALICE, BOB, CAROL = ("id=7", "kind=1"), ("id=8", "kind=1"), ("id=9", "kind=2")


def group(family, number):
    return f"239.1.1.{number}" if family == "ipv4" else f"ff1e::1:{number}"


class UserAuthTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router, cls.source, cls.hosts, cls.switch = user_topology.build()
        cls.mribd = cls.router.start_mribd()
        cls.gmpd = {family: cls.router.start_gmpd(family, *OPTIONS) for family in FAMILIES}
        for family in FAMILIES:
            wait_for(lambda f=family: json.loads(cls.gmpd[f].status())["mrib_replayed"], "gmpd ready")

    @classmethod
    def tearDownClass(cls):
        for daemon in (*cls.gmpd.values(), cls.mribd):
            assert daemon.alive(), f"{daemon.name} died: {daemon.output()[-2000:]}"
            assert daemon.stop() == 0, daemon.output()[-2000:]

    def setUp(self):
        self.receivers = []
        self.senders = []

    def tearDown(self):
        for receiver in self.receivers:
            receiver.leave()
        for sender in self.senders:
            sender.stop()
        for family in FAMILIES:
            for user in (ALICE, BOB, CAROL):
                self.tell(family, "withdraw", *user)
            wait_for(lambda f=family: not self.status(f)["user_authentication"]["users"], "no users left")

    # The pieces of the scenarios.

    def agent(self, family, *words):
        command = self.router.words(os.path.join(PROGRAMS, "uagent"), FLAGS[family], *words)
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def tell(self, family, verb, *words):
        done = self.agent(family, verb, f"node={NODE}", *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def address(self, family, name):
        if family == "ipv6":
            text = self.hosts[name].run("ip", "-6", "address", "show", "dev", "eth0", "scope", "link")
            return re.search(r"inet6 (fe80\S+)/", text).group(1)
        return {"alice": "10.2.0.2", "bob": "10.2.0.3", "carol": "10.3.0.2"}[name]

    def announce(self, family, name, *groups):
        user = {"alice": ALICE, "bob": BOB, "carol": CAROL}[name]
        interface = "blue" if name == "carol" else "lan"
        self.tell(family, "announce", *user, f"interface={interface}", f"address={self.address(family, name)}",
                  f"name={name}", *(f"group={one}" for one in groups))

    def send(self, *groups):
        self.senders.append(Sender(self.source, "eth0", groups))

    def join(self, name, group_address, source=None):
        receiver = Receiver(self.hosts[name], "eth0", group_address, source=source)
        self.receivers.append(receiver)
        return receiver

    def status(self, family):
        return json.loads(self.gmpd[family].status())

    def counter(self, family, interface, name):
        return self.interface(family, interface)["counters"].get(name, 0)

    def interface(self, family, name):
        return next(one for one in self.status(family)["interfaces"] if one["interface"] == name)

    def outputs(self, family, group_address):
        return " ".join(line for line in self.router.mroute(FLAGS[family]) if f"{group_address})" in line)

    def pruned(self, family, group_address, interface):
        wait_for(lambda: interface not in self.outputs(family, group_address), f"{group_address} pruned on {interface}")

    # The scenarios.

    def test_each_user_gets_what_he_may_have(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                mine, other = group(family, 1), group(family, 2)
                self.send(mine, other)
                self.announce(family, "alice", mine)
                self.announce(family, "bob", other)
                alice = self.join("alice", mine)
                alice.grows()
                refused = self.counter(family, "lan", "refused_user_group")
                forbidden = self.join("alice", other)
                wait_for(lambda f=family, r=refused: self.counter(f, "lan", "refused_user_group") > r, "refusal")
                self.assertNotIn("lan", self.outputs(family, other))
                self.join("bob", other).grows()
                alice.grows()
                forbidden.leave()
                users = {user["name"]: user for user in self.status(family)["user_authentication"]["users"]}
                self.assertEqual([one["group"] for one in users["alice"]["groups"]], [mine])
                self.assertEqual([one["group"] for one in users["bob"]["groups"]], [other])
                self.assertIn("refused_user_group", users["alice"]["counters"])
                self.assertRegex(self.mribd.status(), r"user 7 of client \d+ on lan: Multicast-UA\d+, kind 1, address "
                                 + self.address(family, "alice"))

    def test_a_source_alone_permits_that_source_alone(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                wanted, source = group(family, 3), SOURCES[family]
                stranger = "10.1.0.9" if family == "ipv4" else "fd00:1::9"
                self.send(wanted)
                self.announce(family, "alice", f"{source},{wanted}")
                self.join("alice", wanted, stranger)
                wait_for(lambda f=family: self.counter(f, "lan", "refused_user_source"), "the other source refused")
                any_source = self.join("alice", wanted)
                wait_for(lambda f=family: self.counter(f, "lan", "refused_user_group"), "any source refused")
                self.assertEqual(any_source.total(), 0)
                any_source.leave()
                self.receivers[0].leave()
                self.join("alice", wanted, source).grows()

    def test_who_was_not_announced_joins_nothing(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                wanted = group(family, 4)
                self.send(wanted)
                bob = self.join("bob", wanted)
                wait_for(lambda f=family: self.counter(f, "lan", "refused_unknown_user"), "the join refused")
                self.assertEqual(bob.total(), 0)
                self.announce(family, "bob", wanted)
                bob.grows()

    def test_a_withdrawal_ends_what_nobody_else_wants(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                both, hers = group(family, 5), group(family, 6)
                self.send(both, hers)
                self.announce(family, "alice", both, hers)
                self.announce(family, "bob", both)
                receivers = [self.join("alice", both), self.join("alice", hers), self.join("bob", both)]
                for receiver in receivers:
                    receiver.grows()
                self.tell(family, "withdraw", *ALICE)
                self.pruned(family, hers, "lan")
                wait_for(receivers[1].stays, "the end of her traffic")
                receivers[2].grows()
                self.tell(family, "withdraw", *BOB)
                self.pruned(family, both, "lan")
                wait_for(receivers[2].stays, "the end of his traffic")

    def test_a_list_that_shrinks_and_grows(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                kept, lost = group(family, 7), group(family, 8)
                self.send(kept, lost)
                self.announce(family, "alice", kept, lost)
                stays, goes = self.join("alice", kept), self.join("alice", lost)
                stays.grows()
                goes.grows()
                self.tell(family, "groups", *ALICE, f"group={kept}")
                self.pruned(family, lost, "lan")
                stays.grows()
                wait_for(lambda f=family: self.counter(f, "lan", "refused_user_group"), "her next report refused", 60)
                self.tell(family, "groups", *ALICE, f"group={kept}", f"group={lost}")
                goes.grows()

    def test_a_user_with_a_link_of_her_own(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                wanted, other = group(family, 9), group(family, 10)
                self.send(wanted, other)
                carol = self.join("carol", wanted)
                self.join("carol", other)
                self.announce(family, "carol", wanted)
                carol.grows()
                wait_for(lambda f=family: self.counter(f, "blue", "refused_user_group"), "the other group refused")
                self.assertNotIn("blue", self.outputs(family, other))
                self.assertNotIn("lan", self.outputs(family, wanted))
                self.tell(family, "withdraw", *CAROL)
                self.pruned(family, wanted, "blue")

    def test_a_refresh_drops_who_is_not_announced_again(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                both = group(family, 11)
                his = group(family, 12)
                self.send(both, his)
                self.announce(family, "alice", both)
                self.announce(family, "bob", both, his)
                self.announce(family, "carol", both)
                receivers = [self.join("alice", both), self.join("bob", his), self.join("carol", both)]
                for receiver in receivers:
                    receiver.grows()
                self.tell(family, "refresh-begin", "kind=1")
                self.announce(family, "alice", both)
                self.tell(family, "refresh-end", "kind=1")
                self.pruned(family, his, "lan")
                names = [user["name"] for user in self.status(family)["user_authentication"]["users"]]
                self.assertEqual(sorted(names), ["alice", "carol"], "a refresh is about one kind")
                receivers[0].grows()
                receivers[2].grows()

    def connect(self, family):
        """A connection like an agent's, past the agent."""
        inode = os.stat("/run/netns/router").st_ino
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        connection.connect(f"/run/mcast-{os.getuid()}/net-{inode}/{PORTS[family]}")
        return connection

    def test_agents_that_vanish_in_the_middle_of_a_message(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                wanted = group(family, 13)
                self.send(wanted)
                self.announce(family, "alice", wanted)
                self.tell(family, "groups", *ALICE, f"group={group(family, 14)}", "open=yes")
                withdrawal = struct.pack("!HHII16s", 1, 88, 7, 0, b"")
                for broken in (withdrawal, struct.pack("!HH", 0, 0xffff) + b"x" * 1000, b"\x00", b"\xff" * 1400,
                               struct.pack("!HHIHHIIHH", 3, 20, 7, 0, 0, 1, 0xffffffff, 0xffff, 0xffff)):
                    agent = self.connect(family)
                    agent.send(broken)
                    agent.close()
                self.join("alice", wanted).grows()
                self.assertTrue(self.gmpd[family].alive())

    def test_a_thousand_idle_agents_keep_nobody_out(self):
        for family in FAMILIES:
            with self.subTest(family=family):
                wanted = group(family, 15)
                self.send(wanted)
                idle = [self.connect(family) for _ in range(1000)]
                self.announce(family, "alice", wanted)
                alice = self.join("alice", wanted)
                alice.grows()
                for agent in idle[::2]:
                    agent.close()
                self.tell(family, "withdraw", *ALICE)
                self.pruned(family, wanted, "lan")
                for agent in idle[1::2]:
                    agent.close()

    def test_mribd_learns_users_and_joins_again_after_a_restart(self):
        wanted = group("ipv4", 16)
        self.send(wanted)
        self.announce("ipv4", "alice", wanted)
        alice = self.join("alice", wanted)
        alice.grows()
        self.mribd.kill()
        type(self).mribd = self.router.start_mribd()
        alice.grows()
        wait_for(lambda: "user 7 of client" in self.mribd.status(), "the user told again")

    def ctl(self, *words):
        return self.router.run(os.path.join(PROGRAMS, "mcastctl"), *words)

    def test_the_control_command_shows_users_and_clears_them(self):
        wanted = group("ipv4", 17)
        self.send(wanted)
        self.announce("ipv4", "alice", wanted, f"{SOURCES['ipv4']},{group('ipv4', 18)}")
        alice = self.join("alice", wanted)
        alice.grows()
        users = json.loads(self.ctl("show", "users", "--family", "ipv4", "--json"))
        self.assertEqual([(one["name"], one["interface"], one["address"], one["permitted"], one["groups"])
                          for one in users], [("alice", "lan", "10.2.0.2", 2, 1)])
        rights = json.loads(self.ctl("show", "user-rights", "--family", "ipv4", "--json"))
        self.assertEqual([(one["group"], one["joined"]) for one in rights],
                         [(wanted, True), (group("ipv4", 18), False)])
        self.assertIn("announce", self.ctl("show", "user-statistics", "--family", "ipv4"))
        self.assertIn("7", self.ctl("show", "user-messages", "--family", "ipv4"))
        self.ctl("clear", "users", "--family", "ipv4")
        self.pruned("ipv4", wanted, "lan")
        self.assertEqual(json.loads(self.ctl("show", "users", "--family", "ipv4", "--json")), [])

    def test_what_the_agent_cannot_do_is_an_error(self):
        done = self.agent("ipv4", "announce", "id=7", f"node={NODE}", "kind=1", "interface=nosuch", "address=10.2.0.2")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("interface=nosuch: no interface of this machine", done.stderr)
        self.assertEqual(done.stdout, "")
        self.assertEqual(self.agent("ipv4", "withdraw", "id=1").returncode, 1)


if __name__ == "__main__":
    unittest.main()
