"""Ten thousand groups of each family at once, daemons killed under that load, and a stopped mribd (topology.py).

red's kernel joins the groups and answers for them; packets for some hundreds of them flow, and blue gets traffic all
the time. A stopped mribd with more than
8192 messages waiting for it makes gmpd lose one: it starts the connection anew, and the final state is right.
"""

import json
import signal
import time
import unittest

from lab import ENDPOINT, Process, Receiver, Sender, Wire, wait_for
from packets import ALL_REPORTS, ALLOW, IS_EX, TO_IN, ipv4, record, report
from topology import GMPD_OPTIONS, Network

COUNT = 10000
FIRST = {"ipv4": "239.100.0.0", "ipv6": "ff1e::100:0"}
# How mribd begins the lines of these groups in its status.
MEMBERS = {"ipv4": "member (*, 239.100.", "ipv6": "member (*, ff1e::100:"}
# Of the joined groups those to which the source sends.
FLOWING = {"ipv4": [f"239.100.1.{number}" for number in range(250)],
           "ipv6": [f"ff1e::100:1{number:02x}" for number in range(250)]}
STEADY = ("239.3.0.1", "ff1e::3:1")
WAITING_LIMIT = 8192
# A neighbour on red's link without a kernel behind it: nobody answers for its groups.
NEIGHBOUR = "10.2.0.77"


class Overload(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # A leave that asks nobody lets a few packets change very much.
        cls.network = Network(gmpd_options=(*GMPD_OPTIONS, "--immediate-leave"))
        red = cls.network.hosts["red"]
        red.sysctl("net.ipv4.igmp_max_memberships", 2 * COUNT)
        red.sysctl("net.core.optmem_max", 1 << 26)
        cls.sender = Sender(cls.network.hosts["source"], "eth0", STEADY)
        cls.steady = [Receiver(cls.network.hosts["blue"], "eth0", group) for group in STEADY]
        for receiver in cls.steady:
            receiver.grows()

    @classmethod
    def tearDownClass(cls):
        for receiver in cls.steady:
            receiver.grows()
        cls.network.assert_healthy()

    def status(self, family):
        return json.loads(self.network.gmpd[family].status())

    def members(self, family):
        return self.network.mribd.status().count(MEMBERS[family])

    def reaches(self, count, families=("ipv4", "ipv6")):
        for family in families:
            wait_for(lambda f=family: self.members(f) == count, f"{count} {family} groups at mribd", 60)

    def forwards_the_flowing(self, families=FLOWING):
        """Every group that packets flow to is in the kernel, with red as its outgoing interface."""
        for family in families:
            option = "-4" if family == "ipv4" else "-6"
            wait_for(lambda o=option: sum("Oifs: red" in line for line in self.network.router.mroute(o)) == 250,
                     f"every {family} group forwarded to red", 30)

    def packets_may_have(self, size):
        """Sets the size of packets on red's link."""
        for host, interface in ((self.network.router, "red"), (self.network.hosts["red"], "eth0")):
            host.run("ip", "link", "set", interface, "mtu", str(size))

    def test_ten_thousand_groups_outlive_their_daemons(self):
        joins = [Process(self.network.hosts["red"], f"join-{family}", "python3", ENDPOINT, "join", "eth0", first,
                         "--count", str(COUNT)) for family, first in FIRST.items()]
        self.reaches(COUNT)
        flow = Sender(self.network.hosts["source"], "eth0", [*FLOWING["ipv4"], *FLOWING["ipv6"]], rate=4)
        self.forwards_the_flowing()
        for receiver in self.steady:
            receiver.grows()

        self.network.mribd.kill(signal.SIGKILL)
        self.network.mribd = self.network.router.start_mribd()
        self.reaches(COUNT)
        self.forwards_the_flowing()
        for receiver in self.steady:
            receiver.grows()

        self.network.gmpd["ipv4"].kill(signal.SIGKILL)
        self.reaches(0, ["ipv4"])
        self.network.gmpd["ipv4"] = self.network.router.start_gmpd("ipv4", *self.network.gmpd_options)
        self.reaches(COUNT, ["ipv4"])
        self.forwards_the_flowing(["ipv4"])
        self.assertEqual(self.status("ipv4")["packets_lost_in_kernel"], 0)
        for receiver in self.steady:
            receiver.grows()

        for process in joins:
            process.stop()
        self.reaches(0)
        flow.stop()

    def test_more_than_the_limit_of_messages_waiting_for_a_stopped_mribd(self):
        gmpd, mribd = self.network.gmpd["ipv4"], self.network.mribd
        connects = self.status("ipv4")["mrib_connects"]
        self.packets_may_have(65535)
        wire = Wire(self.network.hosts["red"], "eth0")
        sources = [f"10.77.{number // 250}.{number % 250 + 1}" for number in range(1000)]
        groups = [f"239.101.0.{number}" for number in range(1, 16)]

        def say(*records):
            wire.send(ipv4(report("ipv4", *records), NEIGHBOUR, ALL_REPORTS["ipv4"]), "ipv4")

        join = [record(ALLOW, group, sources) for group in groups]
        leave = [record(TO_IN, group) for group in groups]
        mribd.process.send_signal(signal.SIGSTOP)
        try:
            most = 0
            end = time.monotonic() + 60
            while "records for the MRIB process were lost" not in gmpd.output():
                self.assertLess(time.monotonic(), end, f"no message lost, {most} waiting")
                say(*join)
                say(*leave)
                most = max(most, self.status("ipv4")["mrib_pending_messages"])
            self.assertGreater(most, WAITING_LIMIT * 3 // 4)
            # What holds in the end: the first groups for any source, the others for two sources.
            say(*leave)
            say(*(record(IS_EX, group) for group in groups[:5]))
            say(*(record(ALLOW, group, sources[:2]) for group in groups[5:]))
        finally:
            mribd.process.send_signal(signal.SIGCONT)
        expected = {f"(*, {group}): red" for group in groups[:5]}
        expected |= {f"({source}, {group}): red" for group in groups[5:] for source in sources[:2]}

        def at_mribd():
            lines = [line for line in mribd.status().splitlines() if "member (" in line and "239.101." in line]
            return {line.split("member ")[1].split("[")[0] for line in lines}

        wait_for(lambda: at_mribd() == expected, "mribd having what gmpd has, no more and no less", 60)
        wait_for(lambda: self.status("ipv4")["mrib_pending_messages"] == 0, "the queue empty")
        self.assertGreater(self.status("ipv4")["mrib_connects"], connects)
        say(*leave)
        wait_for(lambda: not at_mribd(), "the sources forgotten")
        self.packets_may_have(1500)


if __name__ == "__main__":
    unittest.main()
