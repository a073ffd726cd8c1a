"""Agents that cost what they can (user_topology.py): they stop sending without closing, connect by the hundred, and come
when gmpd has no descriptor left. gmpd computes next to nothing for them, and an agent that means it is heard.

    agents (this scenario) ====> 2195   gmpd, 64 descriptors in the last case
"""

import json
import os
import socket
import subprocess
import time
import unittest

import user_topology
from lab import PROGRAMS, Daemon, wait_for

OPTIONS = ("--family", "ipv4", "--user-auth", "lan")
MOST_AGENTS = 64
DESCRIPTORS = 64


def closed(agent):
    """Whether the other end is gone."""
    try:
        return agent.recv(1, socket.MSG_DONTWAIT) == b""
    except BlockingIOError:
        return False
    except ConnectionResetError:
        return True


class Agents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router = user_topology.build()[0]

    def setUp(self):
        self.agents = []
        self.gmpd = None

    def tearDown(self):
        for agent in self.agents:
            agent.close()
        self.assertEqual(self.gmpd.stop(), 0, self.gmpd.output()[-2000:])

    def start(self, *prefix):
        self.gmpd = Daemon(self.router, "gmpd", *prefix, os.path.join(PROGRAMS, "gmpd"), *OPTIONS)
        wait_for(lambda: os.path.exists(self.port()), "agents listened to", 60)
        wait_for(lambda: self.connect() or True, "an agent connected", 60)

    def port(self):
        with self.router.inside():
            inode = os.stat("/proc/thread-self/ns/net").st_ino
        return f"/run/mcast-{os.geteuid()}/net-{inode}/2195"

    def connect(self):
        agent = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        for _ in range(200):
            try:
                agent.connect(self.port())
                break
            except ConnectionRefusedError:
                time.sleep(0.05)
        self.agents.append(agent)
        return agent

    def users(self):
        return json.loads(self.gmpd.status())["user_authentication"]

    def announce(self, number):
        words = self.router.words(os.path.join(PROGRAMS, "uagent"), "-4", "announce", "node=0", f"id={number}", "kind=1",
                                  "interface=lan", "address=10.2.0.2", "group=239.1.1.1")
        return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, timeout=60)

    def announced(self, number):
        self.announce(number)
        return any(user["user"] == number for user in self.users()["users"])

    def computed_s(self):
        with open(f"/proc/{self.gmpd.process.pid}/stat") as stat:
            words = stat.read().rpartition(")")[2].split()
        return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")

    def idles(self, for_s=4.0):
        """Whether it computes less than half of that time."""
        before = self.computed_s()
        time.sleep(for_s)
        return self.computed_s() - before < for_s / 2

    def test_a_half_closed_agent_is_ended(self):
        self.start()
        stays = self.connect()
        agents = [self.connect() for _ in range(3)]
        for agent in agents:
            agent.shutdown(socket.SHUT_WR)
        wait_for(lambda: all(closed(agent) for agent in agents), "the agents ended", 60)
        self.assertFalse(closed(stays))
        self.assertTrue(self.idles())
        self.assertTrue(self.announced(7))

    def test_agents_beyond_the_limit_are_turned_away(self):
        self.start()
        agents = [self.connect() for _ in range(2 * MOST_AGENTS)]
        wait_for(lambda: sum(closed(agent) for agent in agents) >= MOST_AGENTS, "those beyond the limit ended", 60)
        self.assertGreaterEqual(self.users()["agents_over_limit"], MOST_AGENTS)
        self.assertTrue(self.idles())
        for agent in self.agents:
            agent.close()
        wait_for(lambda: self.announced(8), "an agent heard", 60)

    def test_without_descriptors_it_waits(self):
        self.start("prlimit", f"--nofile={DESCRIPTORS}:{DESCRIPTORS}")
        folder = f"/proc/{self.gmpd.process.pid}/fd"
        for _ in range(DESCRIPTORS):
            self.connect()
        wait_for(lambda: len(os.listdir(folder)) == DESCRIPTORS, "no descriptor left", 60)
        self.assertTrue(self.idles())
        standby = Daemon(self.router, "standby", os.path.join(PROGRAMS, "gmpd"), *OPTIONS, "--standby")
        wait_for(lambda: "cannot accept a standby" in self.gmpd.output(), "a standby that waits", 60)
        self.assertEqual(len(json.loads(self.gmpd.status())["interfaces"]), 3)
        for agent in self.agents:
            agent.close()
        wait_for(lambda: self.announced(9), "an agent heard", 60)
        wait_for(lambda: json.loads(self.gmpd.status())["standbys"] == 1, "the standby heard", 60)
        self.assertEqual(standby.stop(), 0)


if __name__ == "__main__":
    unittest.main()
