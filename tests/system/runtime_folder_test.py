"""The folder with the names of the local ports vanishes while the router runs (topology.py): the daemons make it again,
whoever looks for them finds them, and of two daemons one stays.

    mcastctl, uagent, second gmpd ──► /run/mcast-0/net-N/{2182, 2195, 2201, 2202, ...} ──► mribd, gmpd x 2
"""

import os
import shutil
import signal
import subprocess
import unittest

from lab import PROGRAMS, Daemon, Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

GROUP = "239.14.13.1"
AGAIN = "they are there again"
# More than the two looks, a second apart, that a daemon takes; nothing depends on how much more.
PATIENCE_S = 60


class RuntimeFolder(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=(*GMPD_OPTIONS, "--user-auth", "blue"))
        cls.router = cls.network.router
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP])
        with cls.router.inside():
            inode = os.stat("/proc/thread-self/ns/net").st_ino
        cls.base = f"/run/mcast-{os.geteuid()}"
        cls.folder = f"{cls.base}/net-{inode}"

    def command(self, program, *words):
        done = subprocess.run(self.router.words(os.path.join(PROGRAMS, program), *words), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False, timeout=60)
        return done.returncode, done.stdout

    def running(self):
        """The daemons that mcastctl reaches, with their families."""
        rows = [line.split()[:3] for line in self.command("mcastctl", "status")[1].splitlines()]
        return {(row[0], row[1]) for row in rows if row[2:] == ["yes"]}

    def second_gmpd(self, *options):
        return Daemon(self.router, "gmpd-second", os.path.join(PROGRAMS, "gmpd"), "--family", "ipv4", *options)

    def test_1_names_are_made_again(self):
        everybody = {("mribd", "-"), ("gmpd", "ipv4"), ("gmpd", "ipv6")}
        wait_for(lambda: self.running() == everybody, "all daemons reached", PATIENCE_S)
        receiver = Receiver(self.network.hosts["red"], "eth0", GROUP)
        receiver.grows()
        for number, path in enumerate((self.base, self.folder, f"{self.folder}/2202"), 1):
            before = sum(daemon.output().count(AGAIN) for daemon in self.network.daemons())
            if os.path.isdir(path):
                shutil.rmtree(path)
            else:
                os.unlink(path)
            wait_for(lambda: self.running() == everybody, f"all daemons reached again, {number}", PATIENCE_S)
            told = sum(daemon.output().count(AGAIN) for daemon in self.network.daemons()) - before
            self.assertGreaterEqual(told, 1)
        code, text = self.command("uagent", "-4", "announce", "node=0", "id=7", "kind=1", "interface=blue",
                                  "address=10.3.0.2", "name=alice", f"group={GROUP}")
        self.assertEqual(code, 0, text)
        second = self.second_gmpd()
        self.assertEqual(second.process.wait(PATIENCE_S), 1)
        self.assertIn("another gmpd of the family is active", second.output())
        receiver.grows()
        self.assertEqual(receiver.missed(), 0)
        self.network.gmpd["ipv4"].kill()
        self.network.gmpd["ipv4"] = self.router.start_gmpd("ipv4", *self.network.gmpd_options)
        wait_for(lambda: self.network.gmpd["ipv4"].status() and "connected to the MRIB process" in
                 self.network.gmpd["ipv4"].output(), "mribd reached by a new client", PATIENCE_S)
        receiver.leave()

    def test_2_of_two_daemons_the_one_that_is_reached_stays(self):
        first = self.network.gmpd["ipv4"]
        first.process.send_signal(signal.SIGSTOP)
        shutil.rmtree(self.base)
        second = self.second_gmpd(*self.network.gmpd_options)
        wait_for(lambda: ("gmpd", "ipv4") in self.running(), "the second one active", PATIENCE_S)
        first.process.send_signal(signal.SIGCONT)
        self.assertEqual(first.process.wait(PATIENCE_S), 1)
        self.assertIn("is another process's now", first.output())
        self.network.gmpd["ipv4"] = second
        receiver = Receiver(self.network.hosts["red"], "eth0", GROUP)
        receiver.grows()
        receiver.leave()
        wait_for(lambda: len(self.running()) == 3, "the others reached again", PATIENCE_S)
        self.network.assert_healthy()


if __name__ == "__main__":
    unittest.main()
