"""Two gmpd of each family beside one mribd: one is active, the other its standby, and they change places.

      source ------ src  router  lan ------ switch ---- alice  10.2.0.2   reports count for announced users alone
   10.1.0.2       mribd           |           `-------- bob    10.2.0.3
   fd00:1::2      gmpd x 2        blue ------ carol            10.3.0.2   an ordinary link
      uagent      for each family

Traffic flows to all three all the time. Whatever becomes of the active daemon, nobody may lose a packet; users
keep the indexes of their interfaces, though the agents announce them in another order; and each daemon calls the library in the one order of start, switch-over and
stop, which a preloaded recorder writes down.
"""

import json
import os
import re
import signal
import subprocess
import time
import unittest

import user_topology
from lab import PROGRAMS, Daemon, Process, Receiver, Sender, wait_for

FAMILIES = ("ipv4", "ipv6")
GROUPS = {"ipv4": "239.8.0.{}", "ipv6": "ff1e::8:{}"}
USERS = {"alice": ("id=7", "kind=1"), "bob": ("id=8", "kind=1")}
QUERY_INTERVAL_S, HOLD_S = 6, 8
OPTIONS = ("--standby", "--user-auth", "lan", "--last-member-interval", "1", "--query-response-interval", "1",
           "--query-interval", str(QUERY_INTERVAL_S))

# What each daemon calls, as one word a call. A switch-over keeps the indexes of both users, or of none before any
# was announced.
SHORT = {"MCAST_IF_Init": "I", "MRIB_GMP_Init": "M", "MRIB_GMP_OpenConnect": "C", "MCAST_USRAUTH_Init": "U",
         "MCAST_USRAUTH_Upgrade": "^", "MCAST_IF_Degrade": "d", "MCAST_ReserveIf": "r", "MCAST_IF_ReserveFinish": "f",
         "MCAST_USRAUTH_Degrade": "v", "MCAST_USRAUTH_StopServer": "s", "MCAST_USRAUTH_Fini": "u",
         "MRIB_GMP_CloseConnection": "c", "MRIB_GMP_Fini": "m", "MCAST_IF_Fini": "i"}
START, TAKE_OVER, FIRST, HAND_OVER, STOP = "IMCU", "d(rr)?fv\\^", "(\\^s)*\\^", "d(rr)?fvscC", "sucmi"
# A daemon may find a port of its dying predecessor still taken; it then goes through the same again.
AGAIN = "(d(rr)?fv\\^?s)*"
ORDER = re.compile(f"{START}({FIRST}|{AGAIN}{TAKE_OVER})?({HAND_OVER}{AGAIN}{TAKE_OVER})*({HAND_OVER})?({STOP})?")


class Standby(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router, cls.source, cls.hosts, cls.switch = user_topology.build()
        cls.mribd = cls.router.start_mribd("--hold-time", str(HOLD_S))
        cls.mribd.status()  # who finds it does not look again
        cls.started = 0
        cls.records = []
        cls.agents = [cls.start_agent(family) for family in FAMILIES]
        cls.active = {family: cls.start(family) for family in FAMILIES}
        cls.standby = {}
        groups = [GROUPS[family].format(1) for family in FAMILIES]
        cls.senders = [Sender(cls.source, "eth0", groups, rate=100)]
        for family in FAMILIES:
            wait_for(lambda f=family: len(cls.users(f)) == 2, "the users announced")
        cls.receivers = [Receiver(cls.hosts[name], "eth0", group) for name in cls.hosts for group in groups]
        for receiver in cls.receivers:
            receiver.grows()
        cls.indexes = {family: cls.users(family) for family in FAMILIES}

    @classmethod
    def tearDownClass(cls):
        for daemon in (*cls.standby.values(), *cls.active.values(), cls.mribd):
            assert daemon.alive(), f"{daemon.name} died: {daemon.output()[-2000:]}"
            assert daemon.stop() == 0, daemon.output()[-2000:]
        for name, calls in cls.calls():
            assert ORDER.fullmatch(calls), f"{name} called {calls}"

    # The pieces of the scenarios.

    @classmethod
    def start(cls, family, *options):
        cls.started += 1
        name = f"gmpd-{family}-{cls.started}"
        record = f"/run/{name}.calls"
        cls.records.append((name, record))
        return Daemon(cls.router, name, "env", f"LD_PRELOAD={PROGRAMS}/call_recorder.so", f"MCAST_CALL_RECORD={record}",
                      os.path.join(PROGRAMS, "gmpd"), "--family", family, *(options or OPTIONS))

    @classmethod
    def calls(cls):
        """What each daemon has called so far."""
        for name, record in cls.records:
            with open(record) as lines:
                yield name, "".join(SHORT[line.strip()] for line in lines)

    @staticmethod
    def status(daemon):
        return json.loads(daemon.status())

    @classmethod
    def role(cls, daemon):
        return cls.status(daemon)["role"]

    @classmethod
    def address(cls, family, name):
        if family == "ipv6":
            text = cls.hosts[name].run("ip", "-6", "address", "show", "dev", "eth0", "scope", "link")
            return re.search(r"inet6 (fe80\S+)/", text).group(1)
        return {"alice": "10.2.0.2", "bob": "10.2.0.3"}[name]

    @classmethod
    def start_agent(cls, family):
        """An agent that announces Bob and Alice, and to each daemon that follows Alice and Bob."""
        path = f"/run/agent-{family}"
        os.mkfifo(path)
        feed = os.open(path, os.O_RDWR)
        for name in ("bob", "alice"):
            words = ("announce", "node=0", *USERS[name], "interface=lan", f"address={cls.address(family, name)}",
                     f"name={name}", f"group={GROUPS[family].format(1)}")
            os.write(feed, (" ".join(words) + "\n").encode())
        return Process(cls.router, f"agent-{family}", os.path.join(PROGRAMS, "uagent"), "--family", family, "--watch",
                       "--reconnect", "--file", path), feed

    @classmethod
    def ctl(cls, *words, check=True):
        return cls.router.run(os.path.join(PROGRAMS, "mcastctl"), *words, check=check)

    @classmethod
    def users(cls, family):
        """The indexes of the users' interfaces as the active daemon shows them."""
        said = cls.ctl("show", "users", "--family", family, "--json", check=False)
        rows, _ = json.JSONDecoder().raw_decode(said)  # nobody may be active just now, which is said behind them
        return {row["name"]: row["user_interface"] for row in rows}

    def add_standby(self, family):
        self.standby[family] = self.start(family)
        self.wait_synchronised(family)

    def wait_synchronised(self, family):
        def knows_both():
            status = self.status(self.standby[family])
            return status["role"] == "standby" and status["synchronised"] and status["users_backed_up"] == 2

        wait_for(knows_both, "the standby knows the users")
        wait_for(lambda: self.status(self.active[family])["standbys"] == 1, "the active one knows of its standby")

    def groups(self, family):
        """On how many links, and by how many users, the active one knows the group to be wanted."""
        status = self.status(self.active[family])
        links = [one for one in status["interfaces"] if one["group_count"] > 0]
        users = [one for one in status["user_authentication"]["users"] if one.get("groups")]
        return len(links), len(users)

    def take_over(self, family):
        """The standby is the active one now: the agents come to it, the users get the indexes that they had, and it
        learns what they want."""
        since = time.monotonic()
        self.active[family] = self.standby.pop(family)
        wait_for(lambda: self.role(self.active[family]) == "active", "the standby active")
        wait_for(lambda: self.users(family) == self.indexes[family], "the users' indexes as before")
        wait_for(lambda: self.groups(family) == (2, 2), "the memberships learned again", QUERY_INTERVAL_S)
        self.assertLess(time.monotonic() - since, QUERY_INTERVAL_S)

    def assert_nothing_lost(self):
        """Also when nothing is left of the daemons that went: the joins are those of the active ones."""
        for flag in ("-4", "-6"):
            def clients():
                return {row["client"] for row in json.loads(self.ctl("show", "members", "--family",
                                                                     "ipv" + flag[1], "--json"))}

            wait_for(lambda: len(clients()) == 1, "the joins of the active one alone", HOLD_S + 5)
        for receiver in self.receivers:
            receiver.grows(by=20)
            self.assertEqual((receiver.missed(), receiver.repeated()), (0, 0), receiver.process.path)

    # The scenarios.

    def test_killed_the_active_one_is_followed_by_a_standby_that_started_late(self):
        for family in FAMILIES:
            self.add_standby(family)
            self.active[family].kill(signal.SIGKILL)
        for family in FAMILIES:
            self.take_over(family)
        self.assert_nothing_lost()

    def test_two_switch_overs_by_order_end_where_they_began(self):
        for family in FAMILIES:
            self.add_standby(family)
        for _ in range(2):
            for family in FAMILIES:
                before = self.active[family]
                self.ctl("switch-over", "--family", family)
                self.take_over(family)
                self.standby[family] = before
                self.wait_synchronised(family)
        self.assert_nothing_lost()
        self.stop_standbys()

    def test_told_to_hand_over_to_one_that_does_not_run_it_is_active_again_with_the_indexes(self):
        for family in FAMILIES:
            self.add_standby(family)
            self.standby[family].process.send_signal(signal.SIGSTOP)
            self.ctl("switch-over", "--family", family)
        for family in FAMILIES:
            wait_for(lambda f=family: self.role(self.active[f]) == "active", "it is active again")
            wait_for(lambda f=family: self.users(f) == self.indexes[f], "the users' indexes as before")
            wait_for(lambda f=family: self.groups(f) == (2, 2), "the memberships learned again", QUERY_INTERVAL_S)
            self.standby[family].process.send_signal(signal.SIGCONT)
            self.wait_synchronised(family)
        self.assert_nothing_lost()
        self.stop_standbys()

    def test_ended_in_order_the_active_one_leaves_its_joins_to_the_standby(self):
        for family in FAMILIES:
            self.add_standby(family)
            self.assertEqual(self.active[family].stop(), 0)
        for family in FAMILIES:
            self.take_over(family)
        self.assert_nothing_lost()

    def test_an_active_one_that_dies_before_it_has_told_its_standby_anything(self):
        for family in FAMILIES:
            self.active[family].process.send_signal(signal.SIGSTOP)
            self.standby[family] = self.start(family)
            wait_for(lambda f=family: self.role(self.standby[f]) == "standby", "the standby connected")
            self.active[family].kill(signal.SIGKILL)
        for family in FAMILIES:
            since = time.monotonic()
            self.active[family] = self.standby.pop(family)
            wait_for(lambda f=family: self.role(self.active[f]) == "active", "the standby active")
            wait_for(lambda f=family: self.groups(f) == (2, 2), "the memberships learned again", QUERY_INTERVAL_S)
            self.assertLess(time.monotonic() - since, QUERY_INTERVAL_S)
            self.indexes[family] = self.users(family)
        self.assert_nothing_lost()

    def test_killed_without_a_standby_it_finds_forwarding_as_it_was_when_it_is_started_again(self):
        for family in FAMILIES:
            self.active[family].kill(signal.SIGKILL)
            self.active[family] = self.start(family)
        for family in FAMILIES:
            wait_for(lambda f=family: self.groups(f) == (2, 2), "the memberships learned again", QUERY_INTERVAL_S)
            self.indexes[family] = self.users(family)
        self.assert_nothing_lost()

    def test_the_second_of_two_standbys_stays_one(self):
        for family in FAMILIES:
            self.add_standby(family)
            second = self.start(family)
            wait_for(lambda f=family: self.status(self.active[f])["standbys"] == 2, "two standbys")
            self.active[family].kill(signal.SIGKILL)
            pair = (self.standby[family], second)
            wait_for(lambda p=pair: sorted(self.role(one) for one in p) == ["active", "standby"], "one of them active")
            time.sleep(1.5)
            self.assertEqual(sorted(self.role(one) for one in pair), ["active", "standby"])
            first = pair if self.role(pair[0]) == "active" else pair[::-1]
            self.standby[family] = first[0]
            self.take_over(family)
            self.standby[family] = first[1]
        self.assert_nothing_lost()
        self.stop_standbys()

    def test_without_a_standby_an_order_is_refused(self):
        answer = subprocess.run(self.router.words(os.path.join(PROGRAMS, "mcastctl"), "switch-over"),
                                capture_output=True, text=True, check=False)
        self.assertEqual(answer.returncode, 1)
        self.assertIn("no synchronised standby", answer.stderr)
        for family in FAMILIES:
            self.assertEqual(self.role(self.active[family]), "active")

    def test_a_second_gmpd_that_is_no_standby_is_told_so(self):
        other = self.start("ipv4", "--user-auth", "lan")
        self.assertNotEqual(other.process.wait(10), 0)
        self.assertIn("another gmpd of the family is active", other.output())
        self.assertFalse(os.path.exists(self.records.pop()[1]), "it was told before it began any part of the library")

    def stop_standbys(self):
        for family in FAMILIES:
            self.assertEqual(self.standby.pop(family).stop(), 0)


if __name__ == "__main__":
    unittest.main()
