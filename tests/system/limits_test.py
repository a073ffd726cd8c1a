"""More interfaces than the kernel's 32 virtual ones, and all of them changing at once while traffic flows: the
limit is said, what fits is served, and red, to which nothing happens, misses no packet.

        source                router
      10.1.0.2 ---- src     mribd, gmpd x 2    p01 ---- h01 ... p40 ---- h40
                                               red ---- red, and blue
"""

import re
import unittest

from lab import Receiver, Sender, wait_for
from topology import Network

GROUP = "239.6.0.1"
PORTS = 40


class Limits(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(start=False)
        cls.names = [f"p{number:02}" for number in range(1, PORTS + 1)]
        cls.hosts = [cls.network.attach(name, 20 + number) for number, name in enumerate(cls.names, 1)]
        cls.network.start()
        Sender(cls.network.hosts["source"], "eth0", [GROUP], rate=20)
        cls.receivers = [Receiver(host, "eth0", GROUP) for host in cls.hosts]

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def all_ports(self, *what, names=None):
        """ip commands on every port, as fast as one program can."""
        with open("/run/batch", "w") as file:
            file.writelines(f"{one.format(name=name, number=number)}\n" for one in what
                            for number, name in enumerate(names or self.names, 1))
        self.network.router.run("ip", "-force", "-batch", "/run/batch")

    def served_since(self, before):
        return [receiver for receiver, count in zip(self.receivers, before) if receiver.total() > count]

    def outputs(self):
        """How many of the ports the kernel forwards to."""
        return sum(line.count(" p") for line in self.network.router.mroute("-4"))

    def test_forty_interfaces(self):
        self.limit_is_said_and_what_fits_is_served()
        self.all_come_back_after_they_went_down()
        self.a_freed_place_is_taken_by_another()
        self.all_vanish_at_once(self.names)
        red = Receiver(self.network.hosts["red"], "eth0", GROUP)
        red.grows()
        self.all_appear_at_once()
        renamed = self.all_are_renamed_at_once()
        self.all_vanish_at_once(renamed)
        red.grows()
        self.assertEqual(red.missed(), 0)

    def limit_is_said_and_what_fits_is_served(self):
        # One of the 32 is the incoming interface; one more is kept for sources.
        wait_for(lambda: len(self.served_since([0] * PORTS)) >= 30, "as many served as the kernel has places for", 40)
        self.assertLess(len(self.served_since([0] * PORTS)), PORTS)
        wait_for(lambda: "32" in self.network.mribd.output(), "the limit in mribd's log")
        wait_for(lambda: re.findall(r"virtual interfaces: 32 of 32, without one (\d+)", self.network.mribd.status()) ==
                 [str(PORTS + 3 - 32)] * 2, "the same limit in both families")

    def all_come_back_after_they_went_down(self):
        self.all_ports("link set dev {name} down")
        wait_for(lambda: self.outputs() == 0, "nothing forwarded to dead interfaces", 40)
        before = [receiver.total() for receiver in self.receivers]
        self.all_ports("link set dev {name} up")
        wait_for(lambda: len(self.served_since(before)) >= 30, "as many served as before", 40)

    def a_freed_place_is_taken_by_another(self):
        before = [receiver.total() for receiver in self.receivers]
        wait_for(lambda: len(self.served_since(before)) >= 30, "who is served now", 40)
        served = self.served_since(before)
        left = [receiver for receiver in self.receivers if receiver not in served]
        before = [receiver.total() for receiver in left]
        for receiver in served[:10]:
            receiver.leave()
        wait_for(lambda: any(now.total() > count for now, count in zip(left, before)), "a freed place taken", 40)

    def all_appear_at_once(self):
        self.all_ports("link add {name} type veth peer name x{name}", "address add 10.50.{number}.1/24 dev {name}",
                       "link set dev {name} up", "link set dev x{name} up")
        wait_for(lambda: "32 of 32, without one" in self.network.mribd.status(), "the limit reached again", 40)
        self.seen_by_gmpd(self.names)

    def all_are_renamed_at_once(self):
        renamed = ["n" + name for name in self.names]
        self.all_ports("link set dev {name} down", "link set dev {name} name n{name}", "link set dev n{name} up")
        self.seen_by_gmpd(renamed)
        return renamed

    def seen_by_gmpd(self, names):
        wait_for(lambda: all(f'"{name}"' in self.network.gmpd["ipv4"].status() for name in names),
                 "gmpd having them all", 40)

    def all_vanish_at_once(self, names):
        self.all_ports("link delete dev {name}", names=names)
        wait_for(lambda: self.outputs() == 0, "nothing forwarded to what is gone", 40)
        wait_for(lambda: "without one 0" in self.network.mribd.status(), "no interface without a place", 40)
        for daemon in self.network.daemons():
            wait_for(lambda d=daemon: not any(f'{name}"' in d.status() or f" {name}:" in d.status()
                                              for name in (names[0], names[-1])),
                     f"{daemon.name} without the ports", 40)


if __name__ == "__main__":
    unittest.main()
