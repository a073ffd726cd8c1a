"""Daemons are killed and started again while traffic flows (topology.py).

A killed mribd takes every forwarding entry with it; started again, it gets the whole state from gmpd. A killed
gmpd takes its joins with it; started again, it learns them from the hosts. A stopped mribd holds nobody up.
"""

import signal
import unittest

from lab import Receiver, Sender, wait_for
from topology import Network

GROUP4, GROUP6 = "239.3.0.1", "ff1e::3:1"


class Restart(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=("--last-member-interval", "1", "--query-interval", "5",
                                            "--query-response-interval", "1"))
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP4, GROUP6])
        cls.receivers = [Receiver(cls.network.hosts["red"], "eth0", group) for group in (GROUP4, GROUP6)]
        for receiver in cls.receivers:
            receiver.grows()

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def entries(self):
        return self.network.router.mroute("-4") + self.network.router.mroute("-6")

    def assert_traffic(self):
        for receiver in self.receivers:
            receiver.grows(by=20)

    def test_mribd_killed_and_started_again(self):
        for _ in range(3):
            self.network.mribd.kill(signal.SIGKILL)
            wait_for(lambda: not self.entries(), "the kernel's entries gone")
            self.network.mribd = self.network.router.start_mribd()
            self.assert_traffic()

    def test_gmpd_killed_takes_its_joins_and_learns_them_again(self):
        self.network.gmpd["ipv4"].kill(signal.SIGKILL)
        wait_for(lambda: not any("red" in line for line in self.network.router.mroute("-4")), "joins withdrawn")
        self.network.gmpd["ipv4"] = self.network.router.start_gmpd("ipv4", *self.network.gmpd_options)
        self.assert_traffic()

    def test_stopped_mribd_loses_no_change(self):
        self.network.mribd.process.send_signal(signal.SIGSTOP)
        blue = [Receiver(self.network.hosts["blue"], "eth0", f"239.3.1.{number}") for number in range(1, 16)]
        gmpd = self.network.gmpd["ipv4"]
        wait_for(lambda: "239.3.1.15" in gmpd.status(), "gmpd still working while mribd is stopped")
        self.network.mribd.process.send_signal(signal.SIGCONT)
        wait_for(lambda: all(f"239.3.1.{n}" in self.network.mribd.status() for n in range(1, 16)),
                 "every join at mribd")
        for receiver in blue:
            receiver.leave()
        wait_for(lambda: "239.3.1." not in self.network.mribd.status(), "every prune at mribd")
        self.assert_traffic()


if __name__ == "__main__":
    unittest.main()
