"""Reports flood one link faster than they are read: packets are lost there alone, and a host on another link is heard
at once (topology.py)."""

import json
import unittest

from lab import Process, Receiver, Sender, needs, wait_for
from packets import ALL_REPORTS, IS_IN, ipv4, record, report
from topology import GMPD_OPTIONS, Network

needs("trafgen", "netsniff-ng")

GROUP = "239.20.0.1"
ETHERNET = bytes.fromhex("01005e000016 020000000001 0800")


class FloodedLink(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network(gmpd_options=GMPD_OPTIONS)
        cls.gmpd = cls.network.gmpd["ipv4"]
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP])

    @classmethod
    def tearDownClass(cls):
        cls.sender.stop()
        cls.network.assert_healthy()

    def lost(self, name):
        interfaces = json.loads(self.gmpd.status())["interfaces"]
        counters = next(one for one in interfaces if one["interface"] == name)["counters"]
        return counters.get("packets_lost_in_kernel", 0)

    def test_a_join_elsewhere_is_heard(self):
        # Many addresses that are no sources: much to look at, nothing to keep.
        sources = [f"239.9.0.{number}" for number in range(1, 250)]
        packet = ETHERNET + ipv4(report("ipv4", record(IS_IN, "239.21.0.1", sources)), "10.2.0.77",
                                 ALL_REPORTS["ipv4"])
        with open("/run/flood.cfg", "w") as flood:
            flood.write("{ " + ", ".join(f"0x{byte:02x}" for byte in packet) + " }\n")
        flood = Process(self.network.hosts["red"], "flood", "trafgen", "-i", "/run/flood.cfg", "-o", "eth0",
                        "-P", "1", "-q")
        wait_for(lambda: self.lost("red") > 0, "the flood being more than is read", 60)
        for _ in range(5):
            receiver = Receiver(self.network.hosts["blue"], "eth0", GROUP)
            receiver.grows()
            receiver.leave()
        self.assertTrue(flood.alive(), "the flood went on meanwhile")
        self.assertEqual(self.lost("blue"), 0)
        flood.kill()


if __name__ == "__main__":
    unittest.main()
