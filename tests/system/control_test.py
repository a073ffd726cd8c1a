"""mcastctl against the running daemons: tables of both families as text and JSON, settings, and daemons that are absent.

        source (.2) ----- src  router  red ----- red (.2)
                                       blue ---- blue (.2)
"""

import json
import os
import signal
import subprocess
import unittest

import lab
from lab import Receiver, Sender, wait_for
from topology import Network

MCASTCTL = os.path.join(lab.PROGRAMS, "mcastctl")
ABSENT = r"^(mcastctl: (msdpd|pimsmd) \(IPv[46]\) is not ready\.\n)*$"


class Control(unittest.TestCase):
    """One network for all scenarios; what they change they put back."""

    @classmethod
    def setUpClass(cls):
        cls.net = Network(gmpd_options=("--last-member-interval", "1"))
        cls.router = cls.net.router
        red, blue = cls.net.hosts["red"], cls.net.hosts["blue"]
        cls.endpoints = [
            Receiver(red, "eth0", "239.1.1.1"),
            Receiver(blue, "eth0", "239.1.1.1"),
            Receiver(blue, "eth0", "232.1.1.1", source="10.1.0.2"),
            Receiver(red, "eth0", "ff0e::1"),
            Sender(cls.net.hosts["source"], "eth0", ["239.1.1.1", "232.1.1.1", "ff0e::1"]),
        ]
        for receiver in cls.endpoints[:-1]:
            receiver.grows()

    @classmethod
    def tearDownClass(cls):
        cls.net.assert_healthy()

    def ctl(self, *words):
        """Exit code, output and error output of mcastctl on the router."""
        done = subprocess.run(self.router.words(MCASTCTL, *words), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, check=False, timeout=30)
        return done.returncode, done.stdout, done.stderr

    def good(self, *words):
        """The output of a command that succeeds and has nothing to say but that nobody started msdpd or pimsmd here."""
        code, out, error = self.ctl(*words)
        self.assertEqual(code, 0, f"mcastctl {' '.join(words)}: {error}")
        self.assertRegex(error, ABSENT, f"mcastctl {' '.join(words)}")
        return out

    def rows(self, *words):
        return json.loads(self.good(*words, "--json"))

    def refused(self, code, pattern, *words):
        got, out, error = self.ctl(*words)
        self.assertEqual(got, code, f"mcastctl {' '.join(words)}: {out} {error}")
        self.assertRegex(out + error, pattern)

    def test_groups_come_from_both_daemons(self):
        found = [(row["interface"], row["group"]) for row in self.rows("show", "groups")]
        wanted = [("red", "239.1.1.1"), ("blue", "232.1.1.1"), ("blue", "239.1.1.1"), ("red", "ff0e::1")]
        self.assertEqual([each for each in found if each in wanted], wanted)

    def test_groups_can_be_narrowed(self):
        rows = self.rows("show", "groups", "--interface", "blue", "--family", "ipv4")
        self.assertEqual([row["group"] for row in rows], ["232.1.1.1", "239.1.1.1"])
        rows = self.rows("show", "groups", "--group", "239.1.1.1")
        self.assertEqual([row["interface"] for row in rows], ["red", "blue"])
        (row,) = self.rows("show", "groups", "--interface", "red", "--group", "239.1.1.1")
        self.assertEqual(row["mode"], "exclude")
        self.assertGreater(row["expires_s"], 0)
        self.assertEqual(self.rows("show", "groups", "--interface", "red", "--group", "239.9.9.9"), [])

    def test_sources_name_what_was_asked_for(self):
        (row,) = self.rows("show", "sources", "--group", "232.1.1.1")
        self.assertEqual((row["interface"], row["source"], row["wanted"]), ("blue", "10.1.0.2", True))

    def test_text_is_aligned_under_headings(self):
        lines = self.good("show", "groups", "--group", "239.1.1.1").splitlines()
        self.assertRegex(lines[0], r"^Interface  Group      Mode     Sources   Expires  Version 1 host  Version 2 host$")
        self.assertRegex(lines[1], r"^red        239\.1\.1\.1  exclude        0  00:0\d:\d\d               -               -$")
        self.assertEqual(len(lines), 3)

    def test_interfaces_of_both_families_are_merged_by_index(self):
        rows = self.rows("show", "interfaces")
        order = [(row["interface_index"], row["family"]) for row in rows]
        self.assertEqual(order, sorted(order))
        self.assertEqual({row["interface"] for row in rows}, {"src", "red", "blue"})
        self.assertEqual(len(rows), 6)
        self.assertTrue(all(row["running"] for row in rows))
        self.assertEqual([row["family"] for row in self.rows("show", "interfaces", "--interface", "red")],
                         ["ipv4", "ipv6"])

    def test_queriers_are_shown_with_the_values_in_force(self):
        (row,) = self.rows("show", "queriers", "--interface", "red", "--family", "ipv4")
        self.assertEqual((row["querier"], row["this_router"], row["query_interval_s"], row["expires_s"]),
                         ("10.2.0.1", True, 125, None))

    def test_routes_show_where_packets_go_and_how_many(self):
        (row,) = self.rows("show", "routes", "--group", "239.1.1.1", "--source", "10.1.0.2")
        self.assertEqual((row["upstream"], sorted(row["outgoing"])), ("src", ["blue", "red"]))
        before = row["packets"]
        self.assertGreater(row["bytes"], before)
        wait_for(lambda: self.rows("show", "routes", "--group", "239.1.1.1")[0]["packets"] > before, "more packets")
        groups = [each["group"] for each in self.rows("show", "routes", "--incoming", "src")]
        self.assertEqual(groups, ["232.1.1.1", "239.1.1.1", "ff0e::1"])
        groups = [each["group"] for each in self.rows("show", "routes", "--outgoing", "red")]
        self.assertEqual(groups, ["239.1.1.1", "ff0e::1"])
        self.assertRegex(self.good("show", "routes", "--group", "232.1.1.1"),
                         r"\n +0  232\.1\.1\.1  10\.1\.0\.2  src       blue ")

    def test_members_clients_and_virtual_interfaces_are_shown(self):
        rows = self.rows("show", "members", "--group", "239.1.1.1")
        self.assertEqual([(row["source"], row["interface"], row["joined"]) for row in rows],
                         [("0.0.0.0", "red", True), ("0.0.0.0", "blue", True)])
        self.assertEqual([(row["family"], row["registered"]) for row in self.rows("show", "clients")],
                         [("ipv4", True), ("ipv6", True)])
        self.assertEqual({row["interface"] for row in self.rows("show", "vifs", "--family", "ipv6")},
                         {"src", "red", "blue"})

    def test_counters_name_their_daemon_and_hide_zeros(self):
        rows = self.rows("show", "counters")
        self.assertEqual({row["daemon"] for row in rows}, {"gmpd", "mribd"})
        self.assertTrue(all(row["value"] > 0 for row in rows))
        everything = self.rows("show", "counters", "--all", "--interface", "red", "--family", "ipv4")
        self.assertIn("dropped_checksum", [row["counter"] for row in everything])
        self.assertEqual({row["interface"] for row in everything}, {"red"})

    def test_a_query_interval_is_in_force_at_once(self):
        def intervals():
            return {(row["interface"], row["family"]): row["query_interval_s"]
                    for row in self.rows("show", "queriers")}

        sent = "sent_general_queries"

        def queries():
            return sum(row["value"] for row in self.rows("show", "counters", "--interface", "red", "--family", "ipv4")
                       if row["counter"] == sent)

        before = queries()
        self.assertEqual(self.good("set", "query-interval", "--interface", "red", "30"), "")
        self.assertEqual(intervals()[("red", "ipv4")], 30)
        self.assertEqual(intervals()[("red", "ipv6")], 30)
        self.assertEqual(intervals()[("blue", "ipv4")], 125)
        self.assertGreater(queries(), before)
        self.good("set", "query-interval", "60", "--family", "ipv6")
        self.assertEqual(intervals()[("blue", "ipv4")], 125)
        self.assertEqual(intervals()[("blue", "ipv6")], 60)
        self.assertEqual(intervals()[("red", "ipv6")], 30)
        self.good("set", "query-interval", "--interface", "red", "default")
        self.good("set", "query-interval", "125")
        self.assertEqual(set(intervals().values()), {125})

    def test_values_that_cannot_be_are_refused_with_the_reason(self):
        self.refused(1, r"gmpd \(IPv4\): the query interval must be more than the query response interval of 10 s",
                     "set", "query-interval", "10")
        self.refused(1, "at most 31744", "set", "query-interval", "31745")
        self.refused(1, r"not configured on the interface.*\(value 1 of the request\)",
                     "set", "query-interval", "--interface", "lo", "30")
        self.assertEqual({row["query_interval_s"] for row in self.rows("show", "queriers")}, {125})

    def test_traces_are_switched_while_the_daemons_run(self):
        def traced():
            return {(row["daemon"], row["family"], row["category"]) for row in self.rows("show", "debug")
                    if row["traced"]}

        self.assertEqual(traced(), set())
        self.good("debug", "on", "querier", "--daemon", "gmpd", "--family", "ipv4", "--interface", "red")
        self.assertEqual(traced(), {("gmpd", "ipv4", "querier")})
        log = self.net.gmpd["ipv4"]
        before = len(log.output())
        self.good("set", "query-interval", "126", "--family", "ipv4")
        wait_for(lambda: "gmpd: trace:" in log.output()[before:], "traces of gmpd")
        lines = [line for line in log.output()[before:].splitlines() if "trace:" in line]
        self.assertTrue(all("red" in line for line in lines), lines)
        self.good("debug", "on", "all")
        self.assertEqual(len(traced()), 18)
        self.good("debug", "off")
        self.good("set", "query-interval", "125")
        self.assertEqual({row["interface"] for row in self.rows("show", "debug")}, {None})
        self.assertEqual(traced(), set())
        self.refused(1, "no access list 2999", "debug", "on", "route", "--acl", "2999")
        self.assertEqual(traced(), set())
        self.refused(2, "nonsense", "debug", "on", "nonsense")
        self.refused(2, "CATEGORY", "debug", "on")

    def test_a_wrong_command_line_is_a_usage_error(self):
        self.refused(2, "no such interface", "show", "groups", "--interface", "nowhere")
        self.refused(2, "not a group", "show", "groups", "--group", "10.1.1.1")
        self.refused(2, "not a group", "show", "groups", "--group", "224.0.0.5")
        self.refused(2, "not a group", "show", "routes", "--group", "ff02::1")
        self.refused(2, "not a source", "show", "routes", "--source", "239.1.1.1")
        self.refused(2, "neither ipv4 nor ipv6", "show", "groups", "--family", "ipx")
        self.refused(2, "neither a number of seconds", "set", "query-interval", "soon")
        self.refused(2, "neither a number of seconds", "set", "query-interval", "-5")
        self.refused(2, "default gives one interface", "set", "query-interval", "default")
        self.refused(2, "nothing", "show", "nothing")
        self.refused(2, r"show: an argument is missing(.|\n)*routes", "show")
        self.refused(2, r"mcastctl: an argument is missing")

    def test_help_and_completion_follow_the_commands(self):
        self.assertIn("Specify multicast group", self.good("show", "routes", "--help"))
        self.assertEqual(self.good("complete", "show", "ro").split(), ["routes"])
        self.assertEqual(self.good("complete", "show", "routes", "--inc").split(), ["--incoming"])
        self.assertEqual(self.good("complete", "show", "routes", "--family", "").split(), ["ipv4", "ipv6"])
        self.assertIn("red", self.good("complete", "show", "routes", "--incoming", "").split())

    def test_a_daemon_that_does_not_answer_ends_the_command(self):
        os.kill(self.net.mribd.process.pid, signal.SIGSTOP)
        try:
            self.refused(1, "^mcastctl: mribd does not answer$", "show", "routes")
        finally:
            os.kill(self.net.mribd.process.pid, signal.SIGCONT)
        self.good("show", "routes")

    def test_status_says_what_the_service_manager_knows(self):
        with open("/run/services.toml", "w") as config:
            config.write('[[service]]\nid = 1\nport = 2201\ncommand = ["/sbin/mribd"]\n'
                         '[[service]]\nid = 3\nport = 2299\ncommand = ["/sbin/gmpd"]\n')
        rows = self.rows("status", "--config", "/run/services.toml")
        self.assertEqual({(row["daemon"], row["family"]): (row["running"], row["service"]) for row in rows},
                         {("gmpd", "ipv4"): (True, "absent"), ("gmpd", "ipv6"): (True, "absent"),
                          ("mribd", None): (True, "running"), ("msdpd", "ipv4"): (False, "absent"),
                          ("pimsmd", "ipv4"): (False, "absent"), ("pimsmd", "ipv6"): (False, "absent")})
        self.refused(1, "nowhere.toml", "status", "--config", "/nowhere.toml")

    def test_a_daemon_that_is_absent_is_named(self):
        self.assertEqual([row["daemon"] for row in self.rows("status") if not row["running"]],
                         ["msdpd", "pimsmd", "pimsmd"])
        self.net.gmpd["ipv6"].stop()
        code, out, error = self.ctl("show", "groups", "--json")
        self.assertEqual((code, error), (0, "mcastctl: gmpd (IPv6) is not ready.\n"))
        self.assertEqual({row["group"] for row in json.loads(out)} & {"239.1.1.1", "ff0e::1"}, {"239.1.1.1"})
        self.refused(1, r"gmpd \(IPv6\) is not ready", "show", "groups", "--family", "ipv6")
        self.refused(1, r"gmpd \(IPv6\) is not ready", "set", "query-interval", "30", "--family", "ipv6")
        running = {(row["daemon"], row["family"]): row["running"] for row in self.rows("status")}
        self.assertEqual(running, {("gmpd", "ipv4"): True, ("gmpd", "ipv6"): False, ("mribd", None): True,
                                   ("msdpd", "ipv4"): False, ("pimsmd", "ipv4"): False, ("pimsmd", "ipv6"): False})
        self.net.gmpd["ipv6"] = self.router.start_gmpd("ipv6", *self.net.gmpd_options)
        wait_for(lambda: "ff0e::1" in self.ctl("show", "routes", "--outgoing", "red")[1], "IPv6 being served again")


if __name__ == "__main__":
    unittest.main()
