"""A host that says it is a router: one query must not make the real one fall silent for long (topology.py).

red has no list of queriers; on blue only one address is permitted.
"""

import json
import tempfile
import threading
import unittest

from lab import Receiver, Sender, Wire, wait_for
from packets import ipv4, ipv6, query
from topology import GMPD_OPTIONS, Network

GROUPS = {"ipv4": "239.16.0.1", "ipv6": "ff1e::16:1"}
ALL = {"ipv4": "224.0.0.1", "ipv6": "ff02::1"}
ANY = {"ipv4": "0.0.0.0", "ipv6": "::"}
# Robustness 7, and codes of the longest interval and response time.
ENDLESS = {"flags": 7, "interval": 255, "time": 255}
SHORT_OPTIONS = (*GMPD_OPTIONS, "--query-interval", "2", "--querier-response-max", "1")
CONFIG = """
[[gmpd.interface]]
name = "blue"
queriers = ["fe80::99", "10.3.0.1"]
"""


class ForgedQuery(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.config = tempfile.NamedTemporaryFile("w", suffix=".toml")
        cls.config.write(CONFIG)
        cls.config.flush()
        cls.network = Network(gmpd_options=(*GMPD_OPTIONS, "--config", cls.config.name))
        cls.sender = Sender(cls.network.hosts["source"], "eth0", GROUPS.values())
        cls.receivers = [Receiver(cls.network.hosts["red"], "eth0", group) for group in GROUPS.values()]
        for receiver in cls.receivers:
            receiver.grows()
        cls.wires = {name: Wire(cls.network.hosts[name], "eth0") for name in ("red", "blue")}

    @classmethod
    def tearDownClass(cls):
        cls.sender.stop()
        cls.network.assert_healthy()

    def interface(self, family, name):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return next(one for one in interfaces if one["interface"] == name)

    def say(self, name, family, sender):
        build = ipv4 if family == "ipv4" else ipv6
        self.wires[name].send(build(query(ANY[family], **ENDLESS), sender, ALL[family]), family)

    def is_refused(self, name, family, sender, counter):
        before = self.interface(family, name)["counters"].get(counter, 0)
        querier = self.interface(family, name)["querier"]["address"]
        self.say(name, family, sender)
        wait_for(lambda: self.interface(family, name)["counters"].get(counter, 0) > before, f"{sender} counted")
        self.assertEqual(self.interface(family, name)["querier"]["address"], querier)
        for receiver in self.receivers:
            receiver.grows()

    def test_addresses_that_no_router_has_are_no_queriers(self):
        self.is_refused("red", "ipv4", "10.2.0.0", "dropped_querier_address")
        self.is_refused("red", "ipv4", "10.2.0.255", "dropped_querier_address")
        self.is_refused("red", "ipv6", "fe80::", "dropped_querier_address")

    def test_who_may_be_querier_is_the_operators_to_say(self):
        self.is_refused("blue", "ipv6", "fe80::1", "dropped_querier_not_permitted")
        self.is_refused("blue", "ipv4", "10.3.0.0", "dropped_querier_address")

    def test_who_wins_the_election_and_forwards_nothing_cuts_nobody_off(self):
        self.say("red", "ipv6", "fe80::5")
        wait_for(lambda: not self.interface("ipv6", "red")["querier"]["this_router"], "the election lost on red")
        for _ in range(3):
            for receiver in self.receivers:
                receiver.grows(by=50)

    def test_the_silence_of_a_forged_querier_is_noticed_in_minutes(self):
        daemon = self.network.gmpd["ipv6"]
        self.say("blue", "ipv6", "fe80::99")
        wait_for(lambda: not self.interface("ipv6", "blue")["querier"]["this_router"], "the other router believed")
        self.assertLessEqual(self.interface("ipv6", "blue")["querier"]["expires_s"], 256)
        self.assertIn("warning: blue: querier is fe80::99", daemon.output())

    def test_what_the_router_alone_hears_is_no_query(self):
        own = self.network.router.run("cat", "/sys/class/net/red/address").strip()
        before = self.interface("ipv6", "red")["counters"].get("dropped_unicast_query", 0)
        querier = self.interface("ipv6", "red")["querier"]["address"]
        message = ipv6(query(ANY["ipv6"], **ENDLESS), "fe80::4", ALL["ipv6"])
        self.wires["red"].send(message, "ipv6", bytes.fromhex(own.replace(":", "")))
        wait_for(lambda: self.interface("ipv6", "red")["counters"].get("dropped_unicast_query", 0) > before, "it counted")
        self.assertEqual(self.interface("ipv6", "red")["querier"]["address"], querier)


class ForgerThatGoesOn(unittest.TestCase):
    """It asks before its silence is noticed, and lets hosts take an hour to answer, while memberships last four seconds."""

    def test_who_is_not_asked_is_not_forgotten(self):
        network = Network(gmpd_options=SHORT_OPTIONS, prefix="on-")
        sender = Sender(network.hosts["source"], "eth0", [GROUPS["ipv6"]])
        receiver = Receiver(network.hosts["red"], "eth0", GROUPS["ipv6"])
        receiver.grows()
        wire = Wire(network.hosts["red"], "eth0")
        message = ipv6(query(ANY["ipv6"], flags=1, interval=3, time=65535), "fe80::5", ALL["ipv6"])
        done = threading.Event()

        def forge():
            while not done.wait(2.5):
                wire.send(message, "ipv6")

        def red():
            return next(one for one in json.loads(network.gmpd["ipv6"].status())["interfaces"] if one["interface"] == "red")

        wire.send(message, "ipv6")
        forger = threading.Thread(target=forge)
        forger.start()
        try:
            wait_for(lambda: not red()["querier"]["this_router"], "the election lost")
            asked = red()["counters"]["sent_general_queries"]
            receiver.grows(60, by=1000)
            self.assertEqual(receiver.missed(), 0)
            wait_for(lambda: red()["counters"]["sent_general_queries"] >= asked + 6, "three rounds of its own questions", 60)
            self.assertFalse(red()["querier"]["this_router"])
        finally:
            done.set()
            forger.join()
        self.assertEqual(receiver.missed(), 0)
        sender.stop()
        network.assert_healthy()


if __name__ == "__main__":
    unittest.main()
