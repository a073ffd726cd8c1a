"""Trace lines of the daemons on the network of topology.py: a join on its way from a host to the kernel, and what
the operator's filters leave of it.
"""

import unittest

from lab import Receiver, Sender, matches, wait_for
from topology import GMPD_OPTIONS, Network

CONFIG = "/run/trace.toml"
FAMILIES = ("ipv4", "ipv6")
SHOWN = {"ipv4": "239.7.1.1", "ipv6": "ff15::7:1"}
HIDDEN = {"ipv4": "239.7.2.2", "ipv6": "ff15::7:2"}
SOURCES = {"ipv4": "10.1.0.2", "ipv6": "fd00:1::2"}
# Advanced lists, which are asked about source and group. The group of a line without source is asked about too.
LIST = """
[[acl]]
number = 3001
family = "{family}"
[[acl.rule]]
id = 1
action = "permit"
destination = "{group}"
"""


class TraceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(CONFIG, "w") as file:
            file.write("".join(LIST.format(family=family, group=SHOWN[family]) for family in FAMILIES))
        cls.network = Network(start=False)
        cls.seen = {}  # how much of each daemon's log, which outlives it, belongs to former runs

    def traces(self, *options, last=""):
        """Runs the daemons with the options while hosts of red and blue join and leave, until mribd has said the
        last text; their trace lines."""
        network, router = self.network, self.network.router
        network.mribd = router.start_mribd("--config", CONFIG, *options)
        for family in FAMILIES:
            network.gmpd[family] = router.start_gmpd(family, "--config", CONFIG, *GMPD_OPTIONS, *options)
        groups = [*SHOWN.values(), *HIDDEN.values()]
        sender = Sender(network.hosts["source"], "eth0", groups)
        receivers = [Receiver(network.hosts[host], "eth0", group) for host in ("red", "blue") for group in groups]
        for receiver in receivers:
            receiver.grows()
        for receiver in receivers:
            receiver.leave()
        sender.stop()
        wait_for(lambda: last in self.fresh_output(network.mribd), f"'{last}' of mribd")
        network.assert_healthy()
        traces = {}
        for daemon in network.daemons():
            traces[daemon.name] = [line for line in self.fresh_output(daemon).splitlines() if ": trace: " in line]
            self.seen[daemon.name] = len(daemon.output())
        return traces

    def fresh_output(self, daemon):
        return daemon.output()[self.seen.get(daemon.name, 0):]

    def assert_line(self, lines, pattern):
        self.assertTrue(matches(pattern, "\n".join(lines)), f"{pattern} is not in\n" + "\n".join(lines))

    def test_a_join_is_followed_from_the_host_to_the_kernel(self):
        traces = self.traces("--debug", "all", last=f"prune (*, {SHOWN['ipv6']}) on red")
        for family in FAMILIES:
            lines = traces[f"gmpd-{family}"]
            start = "gmpd: trace: " + ("IPv6: " if family == "ipv6" else "")
            group, source = SHOWN[family], SOURCES[family]
            self.assert_line(lines, f"^{start}report of version . from .* on red, . records$")
            self.assert_line(lines, f"^{start}record TO_EXCLUDE of {group} on red, 0 sources$")
            self.assert_line(lines, rf"^{start}\(\*, {group}\) on red wanted for [0-9]+ s$")
            self.assert_line(lines, rf"^{start}told: join \(\*, {group}\) on red$")
            self.assert_line(lines, f"^{start}this router is the querier on red$")
            self.assert_line(lines, f"^{start}.* bytes from .* to .* on red$")
            lines = traces["mribd"]
            start = start.replace("gmpd", "mribd")
            self.assert_line(lines, rf"^{start}client .: join \(\*, {group}\) on red$")
            self.assert_line(lines, rf"^{start}upcall: packets of \({source}, {group}\) arrive on src, no entry$")
            self.assert_line(lines, rf"^{start}entry \({source}, {group}\) (installed|replaced): from src to .*red")
        self.assert_line(traces["gmpd-ipv6"], rf"IPv6: told: prune \(\*, {SHOWN['ipv6']}\) on red$")

    def test_nothing_is_traced_unasked(self):
        self.assertEqual(self.traces(), {"mribd": [], "gmpd-ipv4": [], "gmpd-ipv6": []})

    def test_only_the_category_that_was_asked_for_is_traced(self):
        traces = self.traces("--debug", "querier")
        self.assertEqual(traces["mribd"], [])
        self.assert_line(traces["gmpd-ipv4"], "general query of version 3 on red")
        self.assertFalse(matches("record|told:|bytes", "\n".join(traces["gmpd-ipv4"])))

    def test_a_list_leaves_the_groups_that_it_permits(self):
        traces = self.traces("--debug", "all", "--debug-acl", "3001")
        for family in FAMILIES:
            for lines in (traces[f"gmpd-{family}"], traces["mribd"]):
                self.assert_line(lines, f"{SHOWN[family]}\\) ")
                self.assertEqual([line for line in lines if HIDDEN[family] in line], [])

    def test_an_interface_leaves_its_own_lines(self):
        traces = self.traces("--debug", "packet", "--debug", "group", "--debug", "querier", "--debug-interface", "red")
        for family in FAMILIES:
            lines = traces[f"gmpd-{family}"]
            self.assert_line(lines, f"{SHOWN[family]} on red")
            self.assertEqual([line for line in lines if matches(r"on (blue|src)\b", line)], [])
            self.assertEqual([line for line in lines if " on red" not in line], [])
        self.assert_line(traces["mribd"], "wanted on red")
        self.assertEqual([line for line in traces["mribd"] if matches(r" on (blue|src)\b", line)], [])


if __name__ == "__main__":
    unittest.main()
