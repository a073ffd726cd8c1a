"""Nobody reads the log and the status (topology.py, its gmpd for IPv4 with a pipe for both): the daemon goes on, and
says afterwards what is missing.

red sends packets that are no IGMP; gmpd traces each, far more than a pipe holds.
"""

import fcntl
import os
import re
import signal
import subprocess
import unittest

from lab import PROGRAMS, Receiver, Sender, Wire, wait_for
from packets import ALL_REPORTS, IS_EX, packet, record, report
from topology import GMPD_OPTIONS, Network

GROUP = "239.14.7.1"
NOISE = packet(report("ipv4", record(IS_EX, "239.14.7.2")), "10.2.0.77", ALL_REPORTS["ipv4"])
# Each is a line of about a hundred bytes at least: many times what a pipe and the daemon's buffer hold.
PACKETS = 4000
PIPE_SIZE = 4096


class LogReader(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        cls.router = cls.network.router
        cls.mribd = cls.router.start_mribd()
        cls.reading, writing = os.pipe()
        fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, PIPE_SIZE)
        words = cls.router.words(os.path.join(PROGRAMS, "gmpd"), "--family", "ipv4", "--debug", "packet", *GMPD_OPTIONS)
        cls.gmpd = subprocess.Popen(words, stdout=writing, stderr=writing, stdin=subprocess.DEVNULL)
        os.close(writing)

    @classmethod
    def tearDownClass(cls):
        if cls.gmpd.poll() is None:
            cls.gmpd.kill()
        cls.gmpd.wait(10)
        os.close(cls.reading)

    def counter(self, name):
        text = self.router.run(os.path.join(PROGRAMS, "mcastctl"), "show", "counters", "--family", "ipv4", check=False)
        found = re.search(rf"\s{name}\s+(\d+)", text)
        return int(found.group(1)) if found else 0

    def read(self):
        """What is in the pipe now."""
        os.set_blocking(self.reading, False)
        text = b""
        try:
            while piece := os.read(self.reading, 65536):
                text += piece
        except BlockingIOError:
            pass
        return text.decode()

    def test_a_reader_that_stalls_stops_nothing(self):
        wait_for(lambda: "red" in self.router.run(os.path.join(PROGRAMS, "mcastctl"), "show", "queriers", check=False),
                 "gmpd serving red", 60)
        wire = Wire(self.network.hosts["red"], "eth0")
        for _ in range(PACKETS):
            wire.send(NOISE, "ipv4")
        wait_for(lambda: self.counter("log_lines_lost") > 1000, "gmpd answering, with lines lost", 60)
        self.gmpd.send_signal(signal.SIGUSR1)  # a status, to the same pipe
        Sender(self.network.hosts["source"], "eth0", [GROUP])
        Receiver(self.network.hosts["blue"], "eth0", GROUP).grows(60)
        text = ""

        def told():
            nonlocal text
            text += self.read()
            return re.search(r"gmpd: warning: \d+ lines are missing here", text)

        wait_for(told, "the line that says how many are missing", 60)
        self.gmpd.send_signal(signal.SIGTERM)
        self.assertEqual(self.gmpd.wait(30), 0)


if __name__ == "__main__":
    unittest.main()
