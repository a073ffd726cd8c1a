"""What hosts of one link wait for while another link is attacked (topology.py): ./run bench attacks.

    red      the attack: a flood of large valid reports, sources by the hundred thousand that expire together, or leaves
             of thousands of groups
    blue     a host joins one group after the other while traffic flows to all of them; measured is the time from each join
             to its first packet

Rounds are those of the daemons' event loops: the processor time from one wait to the next (round_clock.cpp). A join whose
report the kernel lost before gmpd could read it, which the line says, is repeated by the host within a second.
"""

import ctypes
import fcntl
import json
import mmap
import os
import socket
import statistics
import struct
import sys
import time

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, os.path.join(TOP, "tests", "system"))

from lab import PROGRAMS, Daemon, Process, Wire, wait_for  # noqa: E402
from packets import ALL_REPORTS, ALLOW, IS_EX, IS_IN, TO_IN, ipv4, record, report  # noqa: E402
from topology import Network  # noqa: E402

GROUPS = [f"239.40.0.{number}" for number in range(1, 61)]
INTERVAL_S = 20
# A membership that is not confirmed ends after twice the interval and the response time.
OPTIONS = ("--query-interval", str(INTERVAL_S), "--query-response-interval", "1", "--last-member-interval", "1")
ETHERNET = bytes.fromhex("01005e000016 020000000001 0800")
SIOCETHTOOL, ETHTOOL_SGRO = 0x8946, 0x2C
LEAVES = 8000


def own_queue(host, interface):
    """What comes in over the interface waits in a queue of its own, as it would in that of a network card; by default all
    virtual cables of a processor share one, and what overflows there was never the daemon's."""
    value = ctypes.create_string_buffer(struct.pack("=II", ETHTOOL_SGRO, 1))
    with host.inside(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking:
        fcntl.ioctl(asking, SIOCETHTOOL, struct.pack("16sP16x", interface.encode(), ctypes.addressof(value)))


class ClockedDaemon(Daemon):
    """A daemon whose rounds are timed."""

    def __init__(self, host, name, *words):
        clock = f"/run/{host.name}.{name}.rounds"
        super().__init__(host, name, "env", f"LD_PRELOAD={PROGRAMS}/round_clock.so", f"MCAST_ROUND_CLOCK={clock}",
                         os.path.join(PROGRAMS, name), *words)
        wait_for(lambda: os.path.exists(clock) and os.path.getsize(clock) == 24, f"the rounds of {name}")
        with open(clock, "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 24)

    def rounds(self):
        """Milliseconds of the longest since the last look, and how many were over the limit."""
        _, longest_ns, over = struct.unpack("=QQQ", self.memory[:])
        self.memory[:] = bytes(24)
        return longest_ns / 1e6, over


class Attacked:
    def __init__(self):
        self.network = Network(start=False)
        self.hosts, self.router = self.network.hosts, self.network.router
        for name in ("src", "red", "blue"):
            own_queue(self.router, name)
        self.mribd = self.network.mribd = ClockedDaemon(self.router, "mribd")
        self.gmpd = self.network.gmpd["ipv4"] = ClockedDaemon(self.router, "gmpd", "-4", *OPTIONS)
        wait_for(lambda: self.link("blue")["running"], "gmpd on blue")
        self.wires = {name: Wire(self.hosts[name], "eth0") for name in ("red", "source")}
        self.sender = Process(self.hosts["source"], "sender", sys.executable, os.path.abspath(__file__), PROGRAMS, "send",
                              *GROUPS)
        self.join_ms(GROUPS[0])

    def link(self, name):
        return next(one for one in json.loads(self.gmpd.status())["interfaces"] if one["interface"] == name)

    def lost(self, name):
        return self.link(name)["counters"].get("packets_lost_in_kernel", 0)

    def arrived(self, name):
        return int(self.router.run("cat", f"/sys/class/net/{name}/statistics/rx_packets"))

    def join_ms(self, group):
        """From the join to the first packet."""
        with self.hosts["blue"].inside(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
            index = socket.if_nametoindex("eth0")
            receiver.bind((group, 5000))
            receiver.settimeout(30)
            began = time.monotonic()
            receiver.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                                struct.pack("=4s4si", socket.inet_aton(group), bytes(4), index))
            receiver.recv(100)
            return (time.monotonic() - began) * 1000

    def measure(self, name, seconds):
        """Joins for so long, and a line about them."""
        lost, arrived, began = self.lost("blue"), self.arrived("red"), time.monotonic()
        self.join_ms(GROUPS[0])  # now the round that wrote the status is over
        for daemon in (self.gmpd, self.mribd):
            daemon.rounds()
        waited = []
        while time.monotonic() < began + seconds:
            waited.append(self.join_ms(GROUPS[len(waited) % len(GROUPS)]))
            time.sleep(0.05)
        longest, over = zip(*(daemon.rounds() for daemon in (self.gmpd, self.mribd)))
        rate = (self.arrived("red") - arrived) / (time.monotonic() - began)
        waited.sort()
        print(f"{name:24} {rate:9.0f} {len(waited):6} {statistics.median(waited):8.1f} {waited[len(waited) * 95 // 100]:7.1f} "
              f"{waited[-1]:7.1f} {sum(one > 50 for one in waited):6} {self.lost('blue') - lost:8} {longest[0]:8.1f} "
              f"{longest[1]:8.1f} {sum(over):6}", flush=True)

    def nothing(self):
        self.measure("nothing", 10)

    def flood(self, name, records):
        packet = ETHERNET + ipv4(report("ipv4", *records), "10.2.0.77", ALL_REPORTS["ipv4"])
        with open("/run/flood.cfg", "w") as flood:
            flood.write("{ " + ", ".join(f"0x{byte:02x}" for byte in packet) + " }\n")
        flood = Process(self.hosts["red"], "flood", "timeout", "-s", "KILL", "14", "trafgen", "-i", "/run/flood.cfg", "-o",
                        "eth0", "-P", "1", "-q")
        time.sleep(2)
        self.measure(name, 10)
        flood.process.wait(20)

    def floods(self):
        # Many addresses that are no sources: much to look at, nothing to keep.
        sources = [f"239.9.0.{number}" for number in range(1, 250)]
        self.flood("flood, 1050 bytes", [record(IS_IN, "239.21.0.1", sources)])
        self.flood("flood, 58 bytes", [record(IS_IN, "239.21.0.1", sources[:1])])

    def expiry(self):
        """All that two hosts of each of two links may hold, never confirmed."""
        for name, prefix in (("red", "10.2.0"), ("source", "10.1.0")):
            for host in (77, 78):
                for number in range(270):
                    sources = [f"10.{number % 250}.{source}.{host}" for source in range(1, 251)]
                    group = f"239.{50 + host}.{number // 250}.{number % 250}"
                    message = report("ipv4", record(ALLOW, group, sources))
                    self.wires[name].send(ipv4(message, f"{prefix}.{host}", ALL_REPORTS["ipv4"]), "ipv4")
                    if number % 16 == 0:
                        time.sleep(0.02)
        groups = [group for name in ("red", "src") for group in self.link(name)["groups"]]
        entries = sum(1 + len(group["sources"]) for group in groups)
        self.measure(f"{entries} entries expire", 2 * INTERVAL_S + 5)

    def leaves(self):
        for kind in (IS_EX, TO_IN):
            for at in range(0, LEAVES, 150):
                groups = [f"239.60.{number // 250}.{number % 250}" for number in range(at, min(at + 150, LEAVES))]
                self.wires["red"].send(ipv4(report("ipv4", *(record(kind, group) for group in groups)), "10.2.0.77",
                                            ALL_REPORTS["ipv4"]), "ipv4")
            if kind == IS_EX:
                time.sleep(4)
        self.measure(f"{LEAVES} leaves", 10)

    def end(self):
        self.sender.kill()
        self.network.assert_healthy()


def send(groups):
    """A packet a group each millisecond or so: what a join waits for beyond the router."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 8)
        while True:
            for group in groups:
                sender.sendto(b"packet 1", (group, 5000))
            time.sleep(0.001)


def main():
    attacked = Attacked()
    print(f"{'':24} {'on red':>9} {'':6} {'joins on blue, ms':>24} {'over':>6} {'lost':>8} {'longest round, ms':>17} {'over':>6}\n"
          f"{'attack':24} {'packets/s':>9} {'joins':>6} {'median':>8} {'p95':>7} {'longest':>7} {'50 ms':>6} {'on blue':>8} "
          f"{'gmpd':>8} {'mribd':>8} {'20 ms':>6}", flush=True)
    attacked.nothing()
    attacked.floods()
    attacked.expiry()
    attacked.leaves()
    attacked.end()


if sys.argv[1:2] == ["send"]:
    send(sys.argv[2:])
else:
    main()
