"""Too little memory for what a host asks: it joins 60000 groups while the address space of mribd and gmpd is bounded
(topology.py). They refuse what they have no room for, count it and keep the rest: traffic flows on and mcastctl is answered
all the time. When the joins have ended there is room for new ones, and the daemons end as they should.
"""

import os
import re
import threading
import unittest

from lab import PROGRAMS, Daemon, Receiver, Sender, Wire, wait_for
from packets import ALL_REPORTS, TO_EX, ipv4, record, report
from topology import Network

# A membership that is not confirmed ends after 2 * 5 + 1 seconds.
OPTIONS = ("--query-interval", "5", "--query-response-interval", "1", "--last-member-interval", "1")
KEPT = "239.21.0.1"
LATER = "239.21.0.2"
JOINS = 60000
RECORDS = 180  # of a packet
NEIGHBOUR = "10.2.0.77"
UNBOUNDED = "unlimited"


class Questions(threading.Thread):
    """Asks every daemon for its counters again and again."""

    def __init__(self, router):
        super().__init__()
        self.router, self.over, self.asked, self.wrong = router, threading.Event(), 0, []
        self.start()

    def run(self):
        while not self.over.is_set():
            try:
                text = self.router.run(os.path.join(PROGRAMS, "mcastctl"), "show", "counters", "--family", "ipv4")
                self.wrong += [text] if "mribd" not in text or "gmpd" not in text else []
            except RuntimeError as error:
                self.wrong.append(str(error))
            self.asked += 1

    def end(self):
        self.over.set()
        self.join()


class ShortMemory(unittest.TestCase):
    def daemon(self, network, kib, name, *words):
        """The daemon with so much address space; kib is a number or UNBOUNDED."""
        return Daemon(network.router, name, "bash", "-c", f"ulimit -v {kib}; exec \"$@\"", "bash",
                      os.path.join(PROGRAMS, name), *words)

    def ctl(self, *words):
        return self.network.router.run(os.path.join(PROGRAMS, "mcastctl"), *words)

    def counter(self, name):
        found = re.findall(rf"\s{name}\s+(\d+)", self.ctl("show", "counters", "--family", "ipv4"))
        return sum(int(number) for number in found)

    def flood(self):
        for first in range(0, JOINS, RECORDS):
            records = [record(TO_EX, f"239.{100 + number // 62500}.{number // 250 % 250}.{1 + number % 250}")
                       for number in range(first, min(first + RECORDS, JOINS))]
            self.wire.send(ipv4(report("ipv4", *records), NEIGHBOUR, ALL_REPORTS["ipv4"]), "ipv4")

    def check(self, mribd_kib, gmpd_kib, refuses):
        self.network = Network(start=False, prefix=f"{mribd_kib}-")
        self.network.mribd = self.daemon(self.network, mribd_kib, "mribd")
        self.network.gmpd["ipv4"] = self.daemon(self.network, gmpd_kib, "gmpd", "-4", *OPTIONS)
        self.wire = Wire(self.network.hosts["red"], "eth0")
        sender = Sender(self.network.hosts["source"], "eth0", [KEPT, LATER])
        kept = Receiver(self.network.hosts["blue"], "eth0", KEPT)
        kept.grows(60)
        questions = Questions(self.network.router)
        for _ in range(2):
            self.flood()
            kept.grows(60)
        if refuses:
            wait_for(lambda: self.counter("memory_refusals") > 0, "refusals", 30)
        else:
            self.assertEqual(self.counter("memory_refusals"), 0)
        wait_for(lambda: self.counter("members") < 10, "the end of the joins", 60)
        Receiver(self.network.hosts["blue"], "eth0", LATER).grows(60)
        kept.grows(60)
        questions.end()
        self.assertGreater(questions.asked, 5)
        self.assertEqual(questions.wrong, [])
        sender.stop()
        self.network.assert_healthy()
        self.wire.socket.close()

    def test_both_daemons_short_of_memory(self):
        for kib in (16000, 40000):
            with self.subTest(kib=kib):
                self.check(kib, kib, True)

    def test_mribd_alone_short_of_memory(self):
        self.check(24000, UNBOUNDED, True)

    def test_enough_memory(self):
        self.check(60000, 60000, False)


if __name__ == "__main__":
    unittest.main()
