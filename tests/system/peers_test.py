"""Programs of other people around the router: smcroute behind it as a second multicast router, iperf and socat as
senders and receivers.

      source  eth0 ---- src  router  red ---- eth0  red, smcroute  out ---- eth0  far
      10.1.0.2                      10.2.0.1  10.2.0.2          10.6.0.1        10.6.0.2
                                     blue ---- eth0  blue
                                    10.3.0.1         10.3.0.2

smcroute holds the routing socket of its own namespace: it asks our router for groups as a host does, and forwards
what comes to far by static routes. iperf numbers its packets and says how many are missing.
"""

import re
import unittest

from lab import Host, Process, link, needs, wait_for
from topology import Network

for program, package in (("smcrouted", "smcroute"), ("iperf", "iperf"), ("socat", "socat")):
    needs(program, package)

FAR = {"ipv4": "239.10.1.1", "ipv6": "ff1e::10:1"}
SPECIFIC = "232.10.1.1"
SOURCE = {"ipv4": "10.1.0.2", "ipv6": "fd00:1::2"}
SOCAT = {"ipv4": "239.10.2.1", "ipv6": "ff1e::10:2"}
SOCKET = "/run/smcroute.sock"
CONFIGURATION = f"""mroute from eth0 group {FAR["ipv4"]} source {SOURCE["ipv4"]} to out
mroute from eth0 group {FAR["ipv6"]} source {SOURCE["ipv6"]} to out
mroute from eth0 group {SPECIFIC} source {SOURCE["ipv4"]} to out
"""


class Peers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = Network()
        cls.source, cls.smcroute, cls.blue = (cls.network.hosts[name] for name in ("source", "red", "blue"))
        cls.far = Host("far")
        link(cls.smcroute, "out", cls.far, "eth0")
        cls.smcroute.address("out", "10.6.0.1/24", "fd00:6::1/64")
        cls.far.address("eth0", "10.6.0.2/24", "fd00:6::2/64")
        cls.far.route("default", "via", "10.6.0.1")
        cls.far.route("default", "via", "fd00:6::1")
        for family in ("ipv4.conf", "ipv6.conf"):
            cls.smcroute.sysctl(f"net.{family}.all.forwarding", 1)
        with open("/run/smcroute.conf", "w") as file:
            file.write(CONFIGURATION)
        cls.smcrouted = Process(cls.smcroute, "smcrouted", "smcrouted", "-n", "-f", "/run/smcroute.conf", "-u", SOCKET,
                                "-P", "/run/smcroute.pid")
        wait_for(lambda: FAR["ipv6"] in cls.ask("show", "routes"), "smcroute having its routes")

    @classmethod
    def tearDownClass(cls):
        cls.smcrouted.stop()
        cls.network.assert_healthy()

    @classmethod
    def ask(cls, *words):
        return cls.smcroute.run("smcroutectl", "-u", SOCKET, "-d", "-p", *words, check=False)

    def send(self, group):
        words = ["iperf", "-c", group, "-u", "-T", "8", "-b", "200k", "-l", "500", "-t", "100"]
        return Process(self.source, f"iperf-{group}", *words, *(["-V"] if ":" in group else []))

    def receive(self, host, group, *more):
        words = ["iperf", "-s", "-u", "-B", f"{group}%eth0", "-i", "1", *more]
        return Process(host, f"iperf-{group}", *words, *(["-V"] if ":" in group else []))

    def arrives_whole(self, receiver):
        """iperf reports a second in which nothing was missing."""
        def whole():
            return [lost for lost in re.findall(r"\s(\d+)/\s*\d+ \(", receiver.output())].count("0") >= 2

        wait_for(whole, f"seconds without loss in {receiver.path}", 30)

    def forwarded(self, host, group):
        return [line for line in host.mroute("-6" if ":" in group else "-4") if group in line]

    def counted_by_smcroute(self, group):
        found = re.search(rf"{re.escape(group)}\)\s+eth0\s+(\d+)\s+\d+\s+out", self.ask("show", "routes"))
        return int(found.group(1)) if found else 0

    def test_smcroute_gets_what_it_joined_and_says_how_much(self):
        joins = {FAR["ipv4"]: [], FAR["ipv6"]: [], SPECIFIC: [SOURCE["ipv4"]]}
        processes = [self.send(group) for group in joins]
        receivers = [self.receive(self.far, group) for group in joins]
        for group, source in joins.items():
            self.assertEqual(self.counted_by_smcroute(group), 0)
            self.ask("join", "eth0", *source, group)
        for receiver in receivers:
            self.arrives_whole(receiver)
        for group in joins:
            first = self.counted_by_smcroute(group)
            self.assertGreater(first, 0)
            wait_for(lambda g=group, f=first: self.counted_by_smcroute(g) > f, "smcroute counting on")
            self.assertRegex(" ".join(self.forwarded(self.network.router, group)), "Iif: src +Oifs: red ")
            self.assertRegex(" ".join(self.forwarded(self.smcroute, group)), "Iif: eth0 +Oifs: out ")
        self.network.router.assert_agrees(self.network.mribd)
        for group, source in joins.items():
            self.ask("leave", "eth0", *source, group)
        for group in joins:
            wait_for(lambda g=group: "red" not in " ".join(self.forwarded(self.network.router, g)), "red pruned")
        for process in (*processes, *receivers):
            process.kill()

    def test_iperf_misses_nothing_of_what_it_joined(self):
        joins = {"239.10.3.1": [], "232.10.3.1": ["-H", "10.1.0.2"]}
        processes = [self.send(group) for group in joins]
        receivers = [self.receive(self.blue, group, *source) for group, source in joins.items()]
        for receiver in receivers:
            self.arrives_whole(receiver)
        for process in (*processes, *receivers):
            process.kill()

    def test_socat_sends_and_receives(self):
        receivers = {
            "ipv4": f"UDP4-RECV:5001,reuseaddr,ip-add-membership={SOCAT['ipv4']}:eth0",
            "ipv6": f"UDP6-RECV:5001,reuseaddr,ipv6-join-group=[{SOCAT['ipv6']}]:eth0",
        }
        senders = {
            "ipv4": f"UDP4-DATAGRAM:{SOCAT['ipv4']}:5001,ip-multicast-ttl=8,ip-multicast-if=10.1.0.2",
            # IPV6_MULTICAST_HOPS of IPPROTO_IPV6 has no name of its own in socat.
            "ipv6": f"UDP6-DATAGRAM:[{SOCAT['ipv6']}]:5001,setsockopt-int=41:18:8",
        }
        for family, receiver in receivers.items():
            sent = Process(self.source, f"socat-{family}", "sh", "-c",
                           f"while sleep 0.05; do echo from socat; done | socat -u - '{senders[family]}'")
            got = Process(self.blue, f"socat-{family}", "socat", "-u", receiver, "-")
            wait_for(lambda g=got: g.output().count("from socat") >= 20, f"packets of socat, {family}")
            for process in (got, sent):
                process.kill()


if __name__ == "__main__":
    unittest.main()
