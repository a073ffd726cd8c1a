"""Hundreds of causes for the same line: sources near the limit in many groups, standbys that are turned away, connections of an
MSDP peer that come and go (topology.py). Each line is said as often as its allowance says, and the rest is counted.
"""

import os
import re
import socket
import time
import unittest

from lab import PROGRAMS, Daemon, Wire, wait_for
from packets import ALL_REPORTS, ALLOW, ipv4, record, report
from topology import GMPD_OPTIONS, Network

TIMES = 300
# Lines of a message in a minute: warnings, and what is told of.
WARNINGS, INFOS = 20, 100
FILE = "/run/msdpd.toml"
CONFIGURATION = """
[msdpd]
[[msdpd.peer]]
address = "10.2.0.2"
local_address = "10.2.0.9"
"""


class LogLines(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=(*GMPD_OPTIONS, "--max-sources", "10"))
        cls.router = cls.network.router
        cls.gmpd = cls.network.gmpd["ipv4"]
        cls.began = time.monotonic()
        with cls.router.inside():
            inode = os.stat("/proc/thread-self/ns/net").st_ino
        cls.ports = f"/run/mcast-{os.geteuid()}/net-{inode}"

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def is_said(self, daemon, pattern, allowance):
        """Checks how often lines of the pattern are in the log, those that tell of others left out."""
        lines = [line for line in daemon.output().splitlines() if re.search(pattern, line) and " more in " not in line]
        self.assertGreater(len(lines), 0)
        self.assertLessEqual(len(lines), allowance * (1 + (time.monotonic() - self.began) // 60))

    def held_by(self, daemon):
        """What its own last lines say was held back."""
        return sum(int(number) for number in re.findall(r"(\d+) more in \d+ s like", daemon.output()))

    def test_a_line_a_group_and_a_line_a_standby(self):
        wait_for(lambda: '"running": true' in self.gmpd.status(), "the protocol on the links")
        wire = Wire(self.network.hosts["red"], "eth0")
        sources = [f"10.99.0.{number}" for number in range(1, 11)]
        for number in range(TIMES):
            group = f"239.30.{number // 250}.{number % 250}"
            wire.send(ipv4(report("ipv4", record(ALLOW, group, sources)), "10.2.0.77", ALL_REPORTS["ipv4"]), "ipv4")
        wait_for(lambda: self.gmpd.status().count('"group": "239.30.') == TIMES, "all groups", 60)
        self.is_said(self.gmpd, r"239\.30\..*sources", WARNINGS)
        standbys = []
        for _ in range(TIMES):
            standby = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
            standby.connect(f"{self.ports}/2205")
            standbys.append(standby)
        wait_for(lambda: "turned away" in self.gmpd.output(), "a standby turned away", 60)
        for standby in standbys[4:]:
            standby.recv(1)  # its end
        self.is_said(self.gmpd, "turned away", WARNINGS)
        for standby in standbys:
            standby.close()
        self.gmpd.stop()
        self.assertGreaterEqual(self.held_by(self.gmpd), 2 * (TIMES - 4 - WARNINGS) - WARNINGS)
        self.network.gmpd["ipv4"] = self.router.start_gmpd("ipv4", *GMPD_OPTIONS)

    def test_a_line_a_connection(self):
        self.router.address("red", "10.2.0.9/24")
        with open(FILE, "w") as file:
            file.write(CONFIGURATION)
        msdpd = Daemon(self.router, "msdpd", os.path.join(PROGRAMS, "msdpd"), "--config", FILE)
        wait_for(lambda: "ready" in msdpd.output(), "msdpd ready", 60)
        for _ in range(TIMES):
            with self.network.hosts["red"].inside():
                peer = socket.socket()
            peer.bind(("10.2.0.2", 0))
            wait_for(lambda p=peer: p.connect_ex(("10.2.0.9", 639)) == 0, "msdpd listening", 60)
            peer.recv(1)  # it speaks
            peer.close()
        lines = msdpd.output()
        self.is_said(msdpd, r"10\.2\.0\.2.*(connect|establish|up)", 2 * INFOS)
        self.assertEqual(msdpd.stop(), 0, lines[-2000:])
        self.assertGreater(self.held_by(msdpd), 0)


if __name__ == "__main__":
    unittest.main()
