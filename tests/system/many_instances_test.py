"""An order to serve 600 VPN instances comes to mribd with 1024 descriptors, of which each instance takes two
(topology.py): those that find none are disabled, what was served before goes on, newcomers are served, and the former
file is read again.
"""

import os
import unittest

from lab import PROGRAMS, Daemon, Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

GROUPS = {"ipv4": "239.14.6.1", "ipv6": "ff1e::14:6:1"}
FILE = "/run/router.toml"
DESCRIPTORS = 1024
FEW, MANY = 3, 600


def write_instances(count):
    numbers = range(1, count + 1)
    with open(FILE, "w") as file:
        file.write("".join(f'[[vpn]]\nname = "v{number}"\nindex = {number}\n' for number in numbers))
        file.write("".join(f"[[mribd.instance]]\nvrf = {number}\n" for number in numbers))


class ManyInstances(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        cls.router = cls.network.router
        write_instances(FEW)
        cls.mribd = Daemon(cls.router, "mribd", "prlimit", f"--nofile={DESCRIPTORS}:{DESCRIPTORS}",
                           os.path.join(PROGRAMS, "mribd"), "--config", FILE)
        cls.sender = Sender(cls.network.hosts["source"], "eth0", list(GROUPS.values()))

    def instances(self):
        """How many instances of each family mribd says are enabled."""
        text = self.mribd.status()
        return [part.count(": enabled, ssm") for part in text.split("\nipv6\n")]

    def reload(self, count):
        write_instances(count)
        before = self.mribd.output().count("reloading")
        self.mribd.reload()
        wait_for(lambda: self.mribd.output().count("reloading") > before, "the order to read the file", 60)

    def receives(self, name, family):
        receiver = Receiver(self.network.hosts[name], "eth0", GROUPS[family])
        receiver.grows(60)
        return receiver

    def test_too_many_instances_cost_nobody_else_a_descriptor(self):
        gmpd = [self.router.start_gmpd("ipv4", *GMPD_OPTIONS)]
        stays = self.receives("red", "ipv4")
        descriptors = len(os.listdir(f"/proc/{self.mribd.process.pid}/fd"))
        self.assertEqual(self.instances(), [1 + FEW, 1 + FEW])
        self.reload(MANY)
        served = sum(self.instances())
        self.assertLess(served, 2 * (1 + MANY))
        self.assertGreater(served, DESCRIPTORS // 2)
        self.assertIn("is not served: there are too few descriptors", self.mribd.output())
        gmpd.append(self.router.start_gmpd("ipv6", *GMPD_OPTIONS))
        self.receives("blue", "ipv6").leave()
        self.receives("blue", "ipv4").leave()
        self.reload(FEW)
        self.assertEqual(self.instances(), [1 + FEW, 1 + FEW])
        stays.grows()
        self.assertEqual(stays.missed(), 0)
        # Each family has one client more than at the first look, or less.
        self.assertLessEqual(len(os.listdir(f"/proc/{self.mribd.process.pid}/fd")), descriptors + 2)
        for daemon in (*gmpd, self.mribd):
            self.assertEqual(daemon.stop(), 0, daemon.output()[-2000:])


if __name__ == "__main__":
    unittest.main()
