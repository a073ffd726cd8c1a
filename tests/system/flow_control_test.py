"""Flow control in both senses: the value that mribd tells its clients, and clients that do not read (topology.py).

A stopped gmpd is told of tens of thousands of boundaries. mribd goes on serving everybody else, drops what it
cannot deliver, and the client has the last word once it reads again.
"""

import json
import re
import signal
import unittest

from lab import Receiver, Sender, Wire, wait_for
from msdp_client import MsdpClient
from packets import ALL_REPORTS, IS_EX, packet, record, report
from topology import GMPD_OPTIONS, Network

CONFIG = "/run/flow_control.toml"
GROUPS = ("239.1.1.1", "ff1e::1:1")
RANGES = 8000
# As many messages as wait for a client at most, and what the kernel holds of them besides.
RELOADS = 6
NEIGHBOUR = "10.2.0.77"


def boundaries(first):
    """Ranges on red from 239.FIRST.0.0 on."""
    ranges = ", ".join(f'"239.{first + number // 256}.{number % 256}.0/24"' for number in range(RANGES))
    return f'[[mribd.interface]]\nname = "red"\nboundaries = [{ranges}]\n'


class FlowControl(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.write("")
        cls.network = Network(start=False)
        cls.network.mribd = cls.network.router.start_mribd("--config", CONFIG)
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = cls.network.router.start_gmpd(family, *GMPD_OPTIONS)
        cls.sender = Sender(cls.network.hosts["source"], "eth0", GROUPS)
        cls.receivers = [Receiver(cls.network.hosts["blue"], "eth0", group) for group in GROUPS]
        for receiver in cls.receivers:
            receiver.grows()

    @classmethod
    def tearDownClass(cls):
        for receiver in cls.receivers:
            receiver.grows()
        cls.network.assert_healthy()

    @staticmethod
    def write(text):
        with open(CONFIG, "w") as file:
            file.write(text)

    def configure(self, text):
        """Has mribd take the text; returns once it answered the signal."""
        self.write(text)
        mribd = self.network.mribd
        before = mribd.output().count("SIGHUP received")
        mribd.reload()
        wait_for(lambda: mribd.output().count("SIGHUP received") > before, "mribd taking SIGHUP")

    def red(self):
        interfaces = json.loads(self.network.gmpd["ipv4"].status())["interfaces"]
        return next(one for one in interfaces if one["interface"] == "red")

    def restarts(self):
        return int(re.search(r"restarts of slow clients (\d+)", self.network.mribd.status()).group(1))

    def test_clients_are_told_the_value_and_its_change(self):
        client = MsdpClient(self.network.router)
        wait_for(lambda: "busy 0" in client.view(), "no value")
        self.configure("[mribd]\nflow_control = { ipv4 = 1, ipv6 = 3 }\n")
        wait_for(lambda: "busy 1" in client.view(), "the value")
        late = MsdpClient(self.network.router)
        wait_for(lambda: "busy 1" in late.view(), "the value at a client that came later")
        self.configure("")
        for one in (client, late):
            wait_for(lambda c=one: "busy 0" in c.view(), "the value taken back")
            self.assertEqual(one.stop(), 0)

    def test_gmpd_holds_joins_back_while_mribd_is_busy(self):
        def held():
            return json.loads(self.network.gmpd["ipv4"].status())["mrib_held_changes"]

        wire = Wire(self.network.hosts["red"], "eth0")
        self.configure("[mribd]\nflow_control = { ipv4 = 1 }\n")

        def held_back():
            wire.send(packet(report("ipv4", record(IS_EX, "239.60.0.1")), NEIGHBOUR, ALL_REPORTS["ipv4"]), "ipv4")
            return held() == 1

        wait_for(held_back, "the join being held back")
        self.assertNotIn("239.60.0.1", self.network.mribd.status())
        self.configure("")
        wait_for(lambda: "239.60.0.1" in self.network.mribd.status(), "the join that was held back")
        self.assertEqual(held(), 0)

    def test_a_client_that_does_not_read_has_the_last_word_in_the_end(self):
        gmpd, wire = self.network.gmpd["ipv4"], Wire(self.network.hosts["red"], "eth0")
        before = self.restarts()
        gmpd.process.send_signal(signal.SIGSTOP)
        try:
            for number in range(RELOADS):
                self.configure(boundaries(100 if number % 2 else 50))
            # The other clients are served as ever.
            late = MsdpClient(self.network.router)
            wait_for(lambda: "vrf 1" in late.view(), "another client being answered")
            self.assertEqual(late.stop(), 0)
            for receiver in self.receivers:
                receiver.grows()
            self.assertEqual(self.restarts(), before)
        finally:
            gmpd.process.send_signal(signal.SIGCONT)
        wait_for(lambda: self.restarts() > before, "the client being sent everything again")

        def say(*groups):
            wire.send(packet(report("ipv4", *(record(IS_EX, group) for group in groups)), NEIGHBOUR,
                             ALL_REPORTS["ipv4"]), "ipv4")

        def settled():
            """What the last configuration closed is refused, and what only the one before closed is joined."""
            say("239.100.0.1", "239.131.63.1", "239.50.0.1", "239.81.63.1")
            return {one["group"] for one in self.red()["groups"]} == {"239.50.0.1", "239.81.63.1"}

        wait_for(settled, "gmpd having the last boundaries", 30)
        self.assertGreater(self.red()["counters"]["refused_boundary"], 0)
        self.configure("")
        wait_for(lambda: "boundary" not in self.network.mribd.status(), "no boundary left")

        def joined():
            say("239.131.63.1")
            return "239.131.63.1" in self.network.mribd.status()

        wait_for(joined, "a group that no boundary stops any more")


if __name__ == "__main__":
    unittest.main()
