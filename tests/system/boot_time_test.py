"""The seconds since boot, of which the timers keep 32 bits, begin again at 0 while the daemons run (topology.py, the daemons
in a time namespace): nobody spins, and queries are sent on.
"""

import json
import os
import sys
import time
import unittest

from lab import PROGRAMS, SKIPPED, Daemon, Receiver, Sender, run, wait_for
from topology import GMPD_OPTIONS, Network

GROUP = "239.14.15.1"
WRAP = 1 << 32
# Seconds before the end of the range at which the daemons start.
BEFORE = 12
INTERVAL = 20
FILE = "/run/msdpd.toml"


class BootTime(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        with open("/proc/uptime") as uptime:
            cls.offset = WRAP - BEFORE - int(float(uptime.read().split()[0]))
        cls.started = time.monotonic()
        with open(FILE, "w") as file:
            file.write('[msdpd]\n[[msdpd.peer]]\naddress = "10.1.0.2"\nlocal_address = "10.1.0.1"\n')
        cls.daemons = [cls.start("mribd"),
                       cls.start("gmpd", "--family", "ipv4", "--query-interval", str(INTERVAL), *GMPD_OPTIONS),
                       cls.start("msdpd", "--config", FILE)]

    @classmethod
    def start(cls, program, *options):
        return Daemon(cls.network.router, program, "unshare", "--time", "--boottime", str(cls.offset),
                      os.path.join(PROGRAMS, program), *options)

    def computed_s(self):
        total = 0
        for daemon in self.daemons:
            with open(f"/proc/{daemon.process.pid}/stat") as stat:
                words = stat.read().rpartition(")")[2].split()
            total += int(words[11]) + int(words[12])
        return total / os.sysconf("SC_CLK_TCK")

    def queriers(self):
        return [one["querier"] for one in json.loads(self.daemons[1].status())["interfaces"]]

    def test_the_range_of_seconds_ends(self):
        Sender(self.network.hosts["source"], "eth0", [GROUP])
        receiver = Receiver(self.network.hosts["red"], "eth0", GROUP)
        receiver.grows(60)
        wait_for(lambda: time.monotonic() > self.started + BEFORE + 1, "the end of the range", 60)
        before = self.computed_s()
        time.sleep(4)
        self.assertLess(self.computed_s() - before, 1.5)
        wait_for(lambda: all(one["next_query_s"] <= INTERVAL for one in self.queriers()), "queries to be sent", 60)
        receiver.grows(60)
        for daemon in reversed(self.daemons):
            self.assertEqual(daemon.stop(), 0, daemon.output()[-2000:])


if __name__ == "__main__":
    if "--boottime" not in run("unshare", "--help") or "time" not in os.listdir("/proc/self/ns"):
        print("skipped: this kernel, or util-linux, has no time namespaces")
        sys.exit(SKIPPED)
    unittest.main()
