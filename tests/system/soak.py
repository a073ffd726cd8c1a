"""Hours of the router with everything at once (topology.py): hosts of all versions that come and go, orders to read the
configuration, daemons that are killed, and hosts and clients that attack, mixed from a seed that is printed.

    soak.py PROGRAMS-FOLDER MINUTES [SEED]

blue joins one group of each family at the start and stays. From then on it misses no packet; around the kill of a daemon it
joins anew, and what comes between is not counted. At the end everybody leaves, and each daemon has no more descriptors
and groups than at the start, and about the memory.
"""

import os
import random
import re
import shutil
import signal
import socket
import sys
import time

from lab import Receiver, Sender, Wire, wait_for
from packets import ALL_REPORTS, ALL_SYSTEMS, IS_EX, packet, record, report
from topology import GMPD_OPTIONS, Network

STEADY = {"ipv4": "239.15.0.1", "ipv6": "ff1e::15:1"}
NEIGHBOUR = {"ipv4": "10.2.0.77", "ipv6": "fe80::77"}
FILE = "/run/router.toml"
CONFIGURATION = '[[acl]]\nnumber = 2001\nfamily = "ipv4"\n[[acl.rule]]\nid = 1\naction = "permit"\n'
MOST_RECEIVERS = 12
# What a process may hold more than at the start: its allocator keeps some of what it was given.
MEMORY_SLACK_KIB = 32 * 1024
RECOVERY_S = 60


def write_configuration(text=CONFIGURATION):
    if os.path.isdir(FILE):
        shutil.rmtree(FILE)
    elif os.path.lexists(FILE):
        os.unlink(FILE)
    with open(FILE, "w") as file:
        file.write(text)


class Soak:
    def __init__(self, seed):
        self.random = random.Random(seed)
        write_configuration()
        self.network = Network(start=False)
        self.router = self.network.router
        self.daemons = {}
        for name in ("mribd", "ipv4", "ipv6"):
            self.start(name)
        Sender(self.network.hosts["source"], "eth0", list(STEADY.values()))
        self.wire = Wire(self.network.hosts["red"], "eth0")
        self.receivers = []
        self.clients = []
        self.done = {}
        self.steady = {}
        self.restarted = set()
        self.joins_and_stays()
        self.at_start = {name: self.figures(name) for name in self.daemons}

    def start(self, name):
        if name == "mribd":
            self.daemons[name] = self.router.start_mribd("--config", FILE)
        else:
            self.daemons[name] = self.router.start_gmpd(name, "--config", FILE, *GMPD_OPTIONS)

    def figures(self, name):
        """Descriptors and memory in KiB of a daemon."""
        folder = f"/proc/{self.daemons[name].process.pid}"
        with open(f"{folder}/status") as status:
            return len(os.listdir(f"{folder}/fd")), int(re.search(r"VmRSS:\s+(\d+)", status.read()).group(1))

    def joins_and_stays(self):
        """From here on the receivers that stay miss nothing."""
        for receiver in self.steady.values():
            receiver.leave()
        self.steady = {name: Receiver(self.network.hosts["blue"], "eth0", group) for name, group in STEADY.items()}
        for receiver in self.steady.values():
            receiver.grows(RECOVERY_S)

    def check(self):
        for name, receiver in self.steady.items():
            assert receiver.missed() == 0, f"the receiver of {STEADY[name]} missed {receiver.missed()} packets"
        for name, daemon in self.daemons.items():
            assert daemon.alive(), f"{name} ended: {daemon.output()[-2000:]}"

    # What happens, each to be chosen.

    def join(self):
        if len(self.receivers) < MOST_RECEIVERS:
            host = self.network.hosts[self.random.choice(("red", "blue"))]
            group = self.random.choice(("239.16.0.{}", "ff1e::16:{}")).format(self.random.randrange(1, 200))
            self.receivers.append(Receiver(host, "eth0", group))

    def leave(self):
        if self.receivers:
            self.receivers.pop(self.random.randrange(len(self.receivers))).leave()

    def change_version(self):
        version = self.random.choice((0, 1, 2, 3))
        self.network.hosts["red"].sysctl("net.ipv4.conf.eth0.force_igmp_version", version)
        self.network.hosts["red"].sysctl("net.ipv6.conf.eth0.force_mld_version", min(version, 2))

    def reload(self):
        self.random.choice(list(self.daemons.values())).reload()

    def reload_a_wrong_file(self):
        write_configuration(self.random.choice(("a." * 40000 + "a = 1", "[[acl", "x = " + "[" * 10000)))
        daemon = self.random.choice(list(self.daemons.values()))
        refused = daemon.output().count("the configuration stays as it was")
        daemon.reload()
        wait_for(lambda: daemon.output().count("the configuration stays as it was") > refused, "the refusal", RECOVERY_S)
        write_configuration()

    def kill_mribd(self):
        self.check()
        self.daemons["mribd"].kill()
        self.start("mribd")
        self.restarted.add("mribd")
        self.joins_and_stays()

    def kill_gmpd(self):
        self.check()
        name = self.random.choice(("ipv4", "ipv6"))
        self.daemons[name].kill()
        self.start(name)
        self.restarted.add(name)
        self.joins_and_stays()

    def join_a_thousand_groups(self):
        family = self.random.choice(("ipv4", "ipv6"))
        form = "239.17.{}.{}" if family == "ipv4" else "ff1e::17:{:x}{:02x}"
        for high in range(20):
            records = (record(IS_EX, form.format(high, low)) for low in range(50))
            self.wire.send(packet(report(family, *records), NEIGHBOUR[family], ALL_REPORTS[family]), family)

    def send_noise(self):
        family = self.random.choice(("ipv4", "ipv6"))
        for _ in range(200):
            message = bytes(self.random.randrange(256) for _ in range(self.random.randrange(4, 100)))
            self.wire.send(packet(message, NEIGHBOUR[family], ALL_SYSTEMS[family]), family)

    def hold_control_connections(self):
        with self.router.inside():
            inode = os.stat("/proc/thread-self/ns/net").st_ino
        for port in (2201, 2202, 2203):
            client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET | socket.SOCK_NONBLOCK)
            try:
                client.connect(f"/run/mcast-{os.geteuid()}/net-{inode}/{port}")
            except OSError:
                client.close()
                continue
            self.clients.append(client)

    def let_control_connections_go(self):
        while self.clients:
            self.clients.pop().close()

    ACTIONS = {join: 10, leave: 8, change_version: 3, reload: 3, reload_a_wrong_file: 1, kill_mribd: 1, kill_gmpd: 1,
               join_a_thousand_groups: 2, send_noise: 3, hold_control_connections: 3, let_control_connections_go: 1}

    def go_on_until(self, end):
        actions, weights = list(self.ACTIONS), list(self.ACTIONS.values())
        while time.monotonic() < end:
            action = self.random.choices(actions, weights)[0]
            action(self)
            self.done[action.__name__] = self.done.get(action.__name__, 0) + 1
            self.check()
            time.sleep(self.random.uniform(0, 1))

    def finish(self):
        self.let_control_connections_go()
        self.network.hosts["red"].sysctl("net.ipv4.conf.eth0.force_igmp_version", 0)
        self.network.hosts["red"].sysctl("net.ipv6.conf.eth0.force_mld_version", 0)
        for receiver in self.receivers:
            receiver.leave()
        # Groups of the neighbour, of whom nobody hears again, end with their membership interval.
        for name in ("ipv4", "ipv6"):
            wait_for(lambda n=name: not re.search(r"239\.1[67]\.|ff1e::1[67]:", self.daemons[n].status()),
                     f"gmpd {name} without the groups that came and went", 400)
        wait_for(lambda: not re.search(r"member .*(239\.1[67]\.|ff1e::1[67]:)", self.daemons["mribd"].status()),
                 "mribd without their members", 60)
        self.check()
        for name in self.daemons:
            before, after = self.at_start[name], self.figures(name)
            print(f"{name}: descriptors {before[0]} -> {after[0]}, memory {before[1]} -> {after[1]} KiB"
                  f"{' (started again)' if name in self.restarted else ''}")
            assert after[0] <= before[0], f"{name} keeps descriptors"
            assert after[1] <= before[1] + MEMORY_SLACK_KIB, f"{name} keeps memory"
        for name, daemon in self.daemons.items():
            daemon.process.send_signal(signal.SIGTERM)
            assert daemon.process.wait(30) == 0, f"{name}: {daemon.output()[-2000:]}"


def main():
    minutes = float(sys.argv[1]) if len(sys.argv) > 1 else 2
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else random.SystemRandom().randrange(1 << 32)
    print(f"seed {seed}, {minutes:g} minutes", flush=True)
    soak = Soak(seed)
    soak.go_on_until(time.monotonic() + 60 * minutes)
    print(", ".join(f"{name} {count}" for name, count in sorted(soak.done.items())), flush=True)
    soak.finish()
    print("passed")


if __name__ == "__main__":
    main()
