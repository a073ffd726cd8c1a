"""Every descriptor of mribd is taken by clients of its IPv6 channel that say nothing (topology.py): mcastctl is answered,
the configuration can be read again, and as soon as the clients are gone a gmpd for IPv4 gets its place.

    clients (this scenario) ====> 2183 (IPv6)
    gmpd, IPv4 ----------------> 2182 (IPv4)   mribd, 64 descriptors
    mcastctl ------------------> 2201
"""

import os
import re
import socket
import unittest

from lab import PROGRAMS, Daemon, Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

GROUP = "239.14.6.1"
FILE = "/run/router.toml"
DESCRIPTORS = 64


class Descriptors(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        cls.router = cls.network.router
        with open(FILE, "w") as file:
            file.write("[mribd]\n")
        cls.mribd = Daemon(cls.router, "mribd", "prlimit", f"--nofile={DESCRIPTORS}", os.path.join(PROGRAMS, "mribd"),
                           "--config", FILE)
        cls.clients = []

    @classmethod
    def tearDownClass(cls):
        for client in cls.clients:
            client.close()

    def ctl(self, *words):
        return self.router.run(os.path.join(PROGRAMS, "mcastctl"), *words, check=False)

    def counter(self, name):
        found = re.search(rf"\s{name}\s+(\d+)", self.ctl("show", "counters", "--family", "ipv4"))
        return int(found.group(1)) if found else 0

    def port(self, number):
        with self.router.inside():
            inode = os.stat("/proc/thread-self/ns/net").st_ino
        return f"/run/mcast-{os.geteuid()}/net-{inode}/{number}"

    def connect(self):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET | socket.SOCK_NONBLOCK)
        client.connect(self.port(2183))
        self.clients.append(client)

    def taken(self):
        return len(os.listdir(f"/proc/{self.mribd.process.pid}/fd"))

    def test_who_takes_every_descriptor_locks_nobody_out_for_ever(self):
        wait_for(lambda: os.path.exists(self.port(2183)), "mribd listening", 60)
        for _ in range(DESCRIPTORS):
            self.connect()
        wait_for(lambda: self.taken() == DESCRIPTORS, "no descriptor left", 60)
        gmpd = self.router.start_gmpd("ipv4", *GMPD_OPTIONS)
        wait_for(lambda: self.counter("accepts_postponed") > 0, "mcastctl answered, a listener resting", 60)
        self.mribd.reload()
        wait_for(lambda: "reloading" in self.mribd.output(), "the order to read the configuration", 60)
        self.assertGreater(self.counter("accepts_postponed"), 0, "mribd serves after it")
        self.assertNotIn("the configuration stays as it was", self.mribd.output())
        self.assertNotIn("component", self.ctl("show", "clients", "--family", "ipv4"))
        for client in self.clients:
            client.close()
        Sender(self.network.hosts["source"], "eth0", [GROUP])
        Receiver(self.network.hosts["red"], "eth0", GROUP).grows(60)
        for daemon in (gmpd, self.mribd):
            self.assertEqual(daemon.stop(), 0, daemon.output()[-2000:])


if __name__ == "__main__":
    unittest.main()
