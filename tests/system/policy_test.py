"""What gmpd does about what the MRIB process says: the range of source-specific multicast, by default and by access
list, boundaries that come and go while traffic flows, and links where another router is designated; and the list of
the groups that hosts may join (network of topology.py).
"""

import json
import unittest

from lab import Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

CONFIG = "/run/policy.toml"
RED = '[[mribd.interface]]\nname = "red"\n'
BOUNDED = RED + 'boundaries = ["239.255.0.0/16", "ff15::/16"]\n'
SCOPED = {"ipv4": "239.255.1.1", "ipv6": "ff15::1:1"}
GROUPS = {"ipv4": "232.1.1.1", "ipv6": "ff3e::8000:1"}
SOURCES = {"ipv4": "10.1.0.2", "ipv6": "fd00:1::2"}
OPTIONS = {"ipv4": "-4", "ipv6": "-6"}
# The source-specific range by lists: 239.232.0.0/16 and ff1e::232:0/112 in place of the default.
LISTED = {"ipv4": "239.232.1.1", "ipv6": "ff1e::232:1"}
BY_LIST = """[[mribd.instance]]
ssm_acl = { ipv4 = 2001, ipv6 = 2001 }

[[acl]]
number = 2001
family = "ipv4"

[[acl.rule]]
id = 1
action = "permit"
source = "239.232.0.0/16"

[[acl]]
number = 2001
family = "ipv6"

[[acl.rule]]
id = 1
action = "permit"
source = "ff1e::232:0/112"
"""
# What hosts may join, while there are rules: the lists of --group-list.
JOINABLE = """
[[acl]]
number = 2002
family = "ipv4"

[[acl.rule]]
id = 1
action = "permit"
source = "239.1.0.0/16"

[[acl]]
number = 2002
family = "ipv6"

[[acl.rule]]
id = 1
action = "permit"
source = "ff1e::1:0/112"
"""
LET_IN = {"ipv4": "239.1.1.1", "ipv6": "ff1e::1:1"}
KEPT_OUT = {"ipv4": "239.2.1.1", "ipv6": "ff1e::2:1"}


def configure(text):
    with open(CONFIG, "w") as file:
        file.write(text)


class PolicyTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        configure("")
        cls.network = Network(start=False)
        cls.network.mribd = cls.network.router.start_mribd("--config", CONFIG)
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = cls.network.router.start_gmpd(family, "--config", CONFIG, "--group-list", "2002",
                                                                       *GMPD_OPTIONS)

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def interface(self, family, name):
        interfaces = json.loads(self.network.gmpd[family].status())["interfaces"]
        return next((one for one in interfaces if one["interface"] == name), {})

    def reload(self, text):
        configure(text)
        self.network.mribd.reload()

    def count(self, family, name):
        return self.interface(family, "red")["counters"].get(name, 0)

    def stopped(self, family, receiver):
        wait_for(lambda: not any("red" in line for line in self.network.router.mroute(OPTIONS[family])), "red pruned")
        # What the receiver says is a tenth of a second old.
        wait_for(receiver.stays, "the end of red's traffic")

    def receivers(self, host, groups, sources=None):
        return {family: Receiver(self.network.hosts[host], "eth0", group, sources[family] if sources else None)
                for family, group in groups.items()}

    def test_a_boundary_comes_and_goes(self):
        sender = Sender(self.network.hosts["source"], "eth0", list(SCOPED.values()))
        red, blue = self.receivers("red", SCOPED), self.receivers("blue", SCOPED)
        for receiver in (*red.values(), *blue.values()):
            receiver.grows()
        self.reload(BOUNDED)
        for family in SCOPED:
            self.stopped(family, red[family])
            blue[family].grows()
        again = self.receivers("red", {family: group[:-1] + "2" for family, group in SCOPED.items()})
        for family in SCOPED:
            wait_for(lambda f=family: self.count(f, "refused_boundary"), "the new join being refused")
        self.reload("")
        for receiver in red.values():
            receiver.grows()
        for receiver in (*red.values(), *blue.values(), *again.values()):
            receiver.leave()
        sender.stop()

    def test_another_routers_link_is_silent_until_it_is_ours(self):
        groups = {"ipv4": "239.1.3.1", "ipv6": "ff1e::1:3:1"}
        sender = Sender(self.network.hosts["source"], "eth0", list(groups.values()))
        red = self.receivers("red", groups)
        for receiver in red.values():
            receiver.grows()
        self.reload(RED + "dr = false\n")
        for family, group in groups.items():
            self.stopped(family, red[family])
            self.assertIn(group, self.groups_on_red(family), "the membership is kept")
        self.reload("")
        for receiver in red.values():
            receiver.grows()
            receiver.leave()
        sender.stop()

    def groups_on_red(self, family):
        return {one["group"]: one for one in self.interface(family, "red")["groups"]}

    def test_joins_of_any_source_in_the_range_are_ignored(self):
        for family in GROUPS:
            wait_for(lambda f=family: self.interface(f, "red").get("reported"), "this router forwarding to red")
        sender = Sender(self.network.hosts["source"], "eth0", list(GROUPS.values()))
        before = {family: self.count(family, "ignored_any_source_in_ssm_range") for family in GROUPS}
        any_source, named = self.receivers("red", GROUPS), self.receivers("blue", GROUPS, SOURCES)
        for family, group in GROUPS.items():
            wait_for(lambda f=family: self.count(f, "ignored_any_source_in_ssm_range") > before[f],
                     "the join of any source being counted")
            named[family].grows()
            self.assertNotIn(group, self.groups_on_red(family))
        for receiver in any_source.values():
            self.assertTrue(receiver.stays(), "traffic for a join of any source")
            self.assertEqual(receiver.total(), 0)
        for receiver in (*any_source.values(), *named.values()):
            receiver.leave()
        sender.stop()

    def reload_lists(self, text):
        """The numbers of the lists come from mribd, their rules from gmpd's own reading of the file."""
        configure(text)
        for daemon in (*self.network.gmpd.values(), self.network.mribd):
            daemon.reload()

    def test_the_range_is_what_a_list_says_while_traffic_flows(self):
        sender = Sender(self.network.hosts["source"], "eth0", [*LISTED.values(), *GROUPS.values()])
        red, named = self.receivers("red", LISTED), self.receivers("blue", LISTED, SOURCES)
        for receiver in (*red.values(), *named.values()):
            receiver.grows()
        self.reload_lists(BY_LIST)
        for family, group in LISTED.items():
            self.stopped(family, red[family])
            self.assertNotIn(group, self.groups_on_red(family))
            named[family].grows()
        # What was source-specific is no longer: the list replaces the default.
        formerly = self.receivers("red", GROUPS)
        for receiver in formerly.values():
            receiver.grows()
        self.reload_lists("")
        for family in GROUPS:
            red[family].grows()
            self.assertEqual(self.groups_on_red(family)[LISTED[family]]["mode"], "exclude")
            wait_for(lambda f=family: GROUPS[f] not in self.groups_on_red(f), "the default range back in force")
        for receiver in (*red.values(), *named.values(), *formerly.values()):
            receiver.leave()
        sender.stop()

    def test_hosts_may_join_what_the_list_of_groups_permits(self):
        sender = Sender(self.network.hosts["source"], "eth0", [*LET_IN.values(), *KEPT_OUT.values()])
        let_in, kept_out = self.receivers("blue", LET_IN), self.receivers("red", KEPT_OUT)
        for receiver in (*let_in.values(), *kept_out.values()):
            receiver.grows()  # there is no such list yet
        self.reload_lists(JOINABLE)
        for family, group in KEPT_OUT.items():
            self.stopped(family, kept_out[family])
            self.assertNotIn(group, self.groups_on_red(family))
            let_in[family].grows()
        again = self.receivers("red", {family: group[:-1] + "2" for family, group in KEPT_OUT.items()})
        for family in KEPT_OUT:
            wait_for(lambda f=family: self.count(f, "refused_group_list"), "the new join being refused")
        self.reload_lists("")
        for receiver in kept_out.values():
            receiver.grows()
        for receiver in (*let_in.values(), *kept_out.values(), *again.values()):
            receiver.leave()
        sender.stop()


if __name__ == "__main__":
    unittest.main()
