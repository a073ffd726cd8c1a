"""Members of the MRIB: programs that register for events on the member channel beside the gmpd daemons (topology.py).

member_client prints the type of every record that it is sent and registers, asks and misbehaves on command.
"""

import os
import signal
import subprocess
import unittest

from lab import PROGRAMS, wait_for
from topology import Network

CONFIG = "/run/member_channel.toml"
RED = '[[mribd.interface]]\nname = "red"\ndr = false\nboundaries = ["239.255.0.0/16", "ff15::/16"]\n'
BOUNDARY, PIM_DR, PIM_DR_END = "record 2", "record 7", "record 9"
FLOW_CONTROL, SMOOTH_START = "record 12", "record 16"
BOUNDARIES, DESIGNATED, VIEW = 0x2, 0x8, 0x100
REQUEST_DESIGNATED = 5


class Member:
    """member_client on the router, commanded through a pipe."""

    def __init__(self, router, family):
        self.family = family
        self.path = f"/run/member_client.{family}.log"
        self.log = open(self.path, "w")
        self.process = subprocess.Popen(router.words(os.path.join(PROGRAMS, "member_client"), family), text=True,
                                        stdin=subprocess.PIPE, stdout=self.log, stderr=self.log)
        wait_for(self.lines, "the member's channel")
        self.done = 0
        self.read = 1

    def lines(self):
        with open(self.path) as log:
            return log.read().splitlines()

    def command(self, line):
        """Returns the result of the call once the member has made it."""
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        self.done += 1

        def answers():
            return [text for text in self.lines() if text.startswith("done ")]

        wait_for(lambda: len(answers()) == self.done, f"the member doing {line}")
        return answers()[-1]

    def news(self):
        """The records told since the last call."""
        lines = self.lines()
        fresh = [line for line in lines[self.read:] if not line.startswith("done ")]
        self.read = len(lines)
        return fresh

    def stop(self):
        self.process.stdin.close()
        status = self.process.wait(10)
        self.log.close()
        return status


class MemberChannel(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(CONFIG, "w") as file:
            file.write("")
        cls.network = Network(start=False)
        cls.network.mribd = cls.network.router.start_mribd("--config", CONFIG)
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = cls.network.router.start_gmpd(family, *cls.network.gmpd_options)
        cls.network.mribd.status()  # it takes signals from now on

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def setUp(self):
        self.configure("")
        self.status_has("designated router: red", 2)
        self.members = [Member(self.network.router, family) for family in ("ipv4", "ipv6")]

    def tearDown(self):
        for member in self.members:
            self.assertEqual(member.stop(), 0)
        self.status_has("component 16", 0)

    def configure(self, text):
        with open(CONFIG, "w") as file:
            file.write(text)
        mribd = self.network.mribd
        before = mribd.output().count("SIGHUP received")
        mribd.reload()
        wait_for(lambda: mribd.output().count("SIGHUP received") > before, "mribd taking SIGHUP")

    def status_has(self, text, count):
        """Each family has a block of its own, so that what holds for both is there twice."""
        wait_for(lambda: self.network.mribd.status().count(text) == count, f"{text} {count} times in mribd's status")

    def members_have_events(self, events, count=2):
        self.status_has(f"component 16, events {events:#x},", count)

    def told(self, member, *records):
        """The member was told exactly these records. What it asks for now comes behind them, and ends with PIM_DR_END."""
        news = []
        member.command(f"ask {REQUEST_DESIGNATED}")

        def complete():
            news.extend(member.news())
            return PIM_DR_END in news

        wait_for(complete, "the answer to the request")
        self.assertEqual([record for record in news if record not in (PIM_DR, PIM_DR_END)], list(records))

    def test_members_are_told_the_changes_of_the_events_in_their_mask(self):
        for member in self.members:
            self.assertEqual(member.command(f"add {BOUNDARIES}"), "done 0")
        self.members_have_events(BOUNDARIES)
        self.configure(RED)
        self.status_has("boundary red", 2)
        for member in self.members:
            self.told(member, BOUNDARY)
            self.assertEqual(member.command(f"add {VIEW}"), "done 0")
            self.assertEqual(member.command(f"remove {BOUNDARIES}"), "done 0")
        self.members_have_events(VIEW)
        self.configure("[mribd]\nflow_control = { ipv4 = 1, ipv6 = 1 }\n")
        self.status_has("boundary red", 0)
        for member in self.members:
            self.told(member, FLOW_CONTROL)

    def test_a_member_registered_for_nothing_is_told_nothing(self):
        for member in self.members:
            member.command(f"add {DESIGNATED}")
            member.command(f"remove {DESIGNATED}")
        self.members_have_events(0)
        self.configure(RED)
        self.status_has("boundary red", 2)
        self.network.mribd.signal(signal.SIGUSR2)
        self.network.mribd.status()
        for member in self.members:
            self.told(member)

    def test_a_member_that_may_have_missed_something_is_told_to_ask_again(self):
        for member in self.members:
            member.command(f"add {BOUNDARIES}")
        self.members_have_events(BOUNDARIES)
        self.network.mribd.signal(signal.SIGUSR2)
        for member in self.members:
            wait_for(lambda: SMOOTH_START in member.lines(), "the smooth start")
            self.told(member, SMOOTH_START)

    def test_wrong_records_are_counted_and_the_member_goes_on(self):
        member = self.members[0]
        member.command("send 15 10")
        self.status_has("not_registered 1 ", 1)
        member.command(f"add {BOUNDARIES}")
        member.command("send 15 9")
        member.command("send 15 10")
        member.command("send 0 10")
        member.command("send 99 1383")
        member.command("send 99 1384")
        self.status_has(" short 1 not_registered 1 family 2 ", 1)
        self.status_has("unknown_type 1 ", 1)
        self.members_have_events(BOUNDARIES, 1)
        self.told(member)

    def test_a_member_outlives_mribd_and_opens_its_channel_again(self):
        member = self.members[0]
        member.command(f"add {BOUNDARIES}")
        self.network.mribd.kill()
        wait_for(lambda: "hung up" in member.lines(), "the member noticing")
        self.assertEqual(member.command(f"add {BOUNDARIES}"), f"done {0x40010001}")
        self.network.mribd = self.network.router.start_mribd("--config", CONFIG)
        self.network.mribd.status()
        self.assertEqual(member.command("open"), "done 0")
        self.assertEqual(member.command(f"add {BOUNDARIES}"), "done 0")
        self.assertEqual(self.members[1].command("open"), "done 0")
        self.members_have_events(BOUNDARIES, 1)
        member.news()
        self.told(member)


if __name__ == "__main__":
    unittest.main()
