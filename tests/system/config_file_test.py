"""Orders to read the configuration again when it is a pipe, a device, a folder, endless or nested beyond measure
(topology.py): each daemon says so and stays as it was, and afterwards a good file counts.
"""

import os
import shutil
import unittest

from lab import PROGRAMS, Daemon, Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

GROUP = "239.14.10.1"
FILE = "/run/router.toml"
PEERS = [f'[[msdpd.peer]]\naddress = "10.{number}.0.2"\nlocal_address = "10.{number}.0.1"\n' for number in (2, 3)]
GOOD = '[[acl]]\nnumber = 2001\nfamily = "ipv4"\n[[acl.rule]]\nid = 1\naction = "permit"\n'


def endless(path):
    with open(path, "wb") as file:
        file.truncate(1 << 40)


def text(content):
    def write(path):
        with open(path, "w") as file:
            file.write(content)
    return write


BAD = {"a pipe": os.mkfifo, "a device": lambda path: os.symlink("/dev/zero", path), "a folder": os.mkdir,
       "an endless file": endless, "a key of 40 000 parts": text("a." * 40000 + "a = 1\n"),
       "a table of 40 000 parts": text("[" + "a." * 40000 + "a]\n"), "lists in lists": text("a = " + "[" * 100000),
       "a wrong list": text(GOOD + "[[acl]]\nnumber = 2002\n")}


def put(write):
    if os.path.isdir(FILE):
        shutil.rmtree(FILE)
    elif os.path.lexists(FILE):
        os.unlink(FILE)
    write(FILE)


class ConfigFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        router = cls.network.router
        put(text(GOOD + "".join(PEERS)))
        cls.mribd = router.start_mribd("--config", FILE)
        cls.gmpd = router.start_gmpd("ipv4", "--config", FILE, *GMPD_OPTIONS)
        cls.msdpd = Daemon(router, "msdpd", os.path.join(PROGRAMS, "msdpd"), "--config", FILE)
        cls.daemons = (cls.mribd, cls.gmpd, cls.msdpd)
        Sender(cls.network.hosts["source"], "eth0", [GROUP])
        cls.receiver = Receiver(cls.network.hosts["red"], "eth0", GROUP)
        cls.receiver.grows(60)

    @classmethod
    def tearDownClass(cls):
        for daemon in cls.daemons:
            assert daemon.stop() == 0, daemon.output()[-2000:]

    def peers(self):
        text = self.network.router.run(os.path.join(PROGRAMS, "mcastctl"), "show", "msdp-peers", check=False)
        return sum(line.startswith("10.") for line in text.splitlines())

    def test_a_wrong_file_changes_nothing(self):
        wait_for(lambda: self.peers() == 2, "msdpd with its peers", 60)
        for number, (what, write) in enumerate(BAD.items(), 1):
            with self.subTest(what):
                put(write)
                for daemon in self.daemons:
                    daemon.reload()
                    wait_for(lambda d=daemon, n=number: d.output().count("the configuration stays as it was") == n,
                             f"{daemon.name} refusing {what}", 30)
        self.assertEqual(self.peers(), 2)
        self.receiver.grows(60)
        put(text(GOOD + PEERS[0]))
        self.msdpd.reload()
        wait_for(lambda: self.peers() == 1, "a good file taken", 30)


if __name__ == "__main__":
    unittest.main()
