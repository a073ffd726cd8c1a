"""More interfaces than the kernel's 32 virtual ones: the limit is said, and what fits is served.

        source                router
      10.1.0.2 ---- src     mribd, gmpd (IPv4)    p01 ---- h01 ... p40 ---- h40
"""

import unittest

from lab import Receiver, Sender, wait_for
from topology import Network

GROUP = "239.6.0.1"
PORTS = 40


class Limits(unittest.TestCase):
    def test_forty_interfaces_with_joins(self):
        network = Network(start=False)
        hosts = [network.attach(f"p{number:02}", 20 + number) for number in range(1, PORTS + 1)]
        network.start()
        Sender(network.hosts["source"], "eth0", [GROUP], rate=20)
        receivers = [Receiver(host, "eth0", GROUP) for host in hosts]

        def served():
            return [receiver for receiver in receivers if receiver.total() > 0]

        # One of the 32 is the incoming interface; the kernel may need one more for itself.
        wait_for(lambda: len(served()) >= 30, "as many receivers served as the kernel has interfaces for", 40)
        self.assertLess(len(served()), PORTS)
        wait_for(lambda: "32" in network.mribd.output(), "the limit in mribd's log")
        served_now = served()
        for receiver in served_now[:10]:
            receiver.leave()
        left = [receiver for receiver in receivers if receiver not in served_now]
        wait_for(lambda: any(receiver.total() > 0 for receiver in left), "a freed interface used by another", 40)
        network.assert_healthy()


if __name__ == "__main__":
    unittest.main()
