"""Hours of the router with everything at once (soak_router.py): hosts of all versions that come and go, users and their
agents, a peer that speaks MSDP, orders to read the configuration, daemons that are killed, and what hosts, clients and
the machine do to the router (soak_attacks.py), mixed from a seed that is printed.

    soak.py PROGRAMS-FOLDER MINUTES [SEED]

Receivers of both families join at the start on blue, and on users as a user that an agent announced, and stay. From
their first packet on they miss none; around the kill of a daemon they join anew, and what comes between is not counted. At the
end everybody else leaves, and each daemon has no more descriptors and entries than at the start, and about the memory.
"""

import random
import signal
import sys
import time

import soak_attacks
from lab import Receiver, Sender, Wire, wait_for
from soak_router import RECOVERY_S, STEADY, SoakRouter

MOST_RECEIVERS = 12
# What a process may hold more than at the start: its allocator keeps some of what it was given.
MEMORY_SLACK_KIB = 32 * 1024
# By when nothing is left of what came and went.
REST_S = 400


class Soak:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.router = SoakRouter()
        # Few enough that a receiver that has no turn for seconds loses none.
        Sender(self.router.hosts["source"], "eth0", list(STEADY.values()), rate=20)
        self.wire = Wire(self.router.hosts["red"], "eth0")
        self.forgers = [Wire(self.router.hosts[name], "eth0") for name in ("blue", "users")]
        self.receivers = []
        self.clients = []
        self.done = {}
        self.latest = []
        self.began = time.monotonic()
        self.steady = {}
        self.received = 0
        self.restarted = set()
        self.joins_and_stays()
        self.router.wait_until_reached()
        self.at_start = {name: self.figures(name) for name in self.router.daemons}

    def figures(self, name):
        """Descriptors, memory in KiB and entries of a daemon."""
        return self.router.descriptors(name), self.router.memory_kib(name), self.router.entries(name)

    def joins_and_stays(self):
        """From here on the receivers that stay miss nothing."""
        for receiver in self.steady.values():
            self.received += receiver.total()
            receiver.leave()
        self.steady = {(host, family): Receiver(self.router.hosts[host], "eth0", group)
                       for host in ("blue", "users") for family, group in STEADY.items()}
        for receiver in self.steady.values():
            receiver.grows(RECOVERY_S)
        # mribd holds for a while what a gmpd told that is gone; from now on its successor knows it.
        for family, group in STEADY.items():
            wait_for(lambda f=family, g=group: self.router.has_group(f, g, ("blue", "users")), f"{group} known", RECOVERY_S)

    def check(self):
        for name, daemon in self.router.daemons.items():
            assert daemon.alive(), f"{name} ended: {daemon.output()[-2000:]}"
        for name, receiver in self.steady.items():
            assert receiver.missed() == 0, f"the receiver {name} missed {receiver.missed()} packets"

    def kill(self, name, afterwards=None):
        self.check()
        self.router.daemons[name].kill()
        self.router.start(name)
        if afterwards:
            afterwards()
        self.restarted.add(name)
        if name != "msdpd":
            self.joins_and_stays()

    # What happens beside attacks, each to be chosen.

    def join(self):
        if len(self.receivers) < MOST_RECEIVERS:
            host = self.router.hosts[self.random.choice(("red", "blue"))]
            group = self.random.choice(("239.16.0.{}", "ff1e::16:{}")).format(self.random.randrange(1, 200))
            self.receivers.append(Receiver(host, "eth0", group))

    def leave(self):
        if self.receivers:
            self.receivers.pop(self.random.randrange(len(self.receivers))).leave()

    def change_version(self, version=None):
        version = self.random.choice((0, 1, 2, 3)) if version is None else version
        self.router.hosts["red"].sysctl("net.ipv4.conf.eth0.force_igmp_version", version)
        self.router.hosts["red"].sysctl("net.ipv6.conf.eth0.force_mld_version", min(version, 2))

    def kill_one(self):
        self.kill(self.random.choice(tuple(self.router.daemons)))

    ACTIONS = {join: 10, leave: 8, change_version: 3, kill_one: 2, **soak_attacks.ATTACKS}

    def go_on_until(self, end):
        actions, weights = list(self.ACTIONS), list(self.ACTIONS.values())
        while time.monotonic() < end:
            action = self.random.choices(actions, weights)[0]
            began = time.monotonic()
            try:
                action(self)
                self.check()
            except Exception:
                self.explain(action.__name__)
                raise
            times, seconds = self.done.get(action.__name__, (0, 0.0))
            self.done[action.__name__] = (times + 1, seconds + time.monotonic() - began)
            self.latest = [*self.latest[-9:], f"{action.__name__} at {began - self.began:.1f} s"]
            self.router.speaker.send(b"")
            time.sleep(self.random.uniform(0, 1))

    def explain(self, action):
        """Says what came before something that must not be."""
        print(f"in {action}, after {', '.join(self.latest)}")
        for name, daemon in self.router.daemons.items():
            print(f"-- the end of the log of {name}\n{daemon.output()[-3000:]}")
        print("-- mribd\n" + "\n".join(line for line in self.router.daemons["mribd"].status().splitlines()
                                      if any(group in line for group in STEADY.values())), flush=True)

    def everybody_leaves(self):
        while self.clients:
            self.clients.pop().close()
        self.change_version(0)
        for receiver in self.receivers:
            receiver.leave()
        soak_attacks.withdraw_users(self)
        for name in self.router.daemons:
            before = self.at_start[name][2]
            wait_for(lambda n=name, b=before: self.router.entries(n) == b,
                     f"{name} with the entries of the start, {before}; now {self.router.entries(name)}", REST_S)

    def finish(self):
        self.everybody_leaves()
        self.check()
        for name in self.router.daemons:
            before, after = self.at_start[name], self.figures(name)
            print(f"{name}: descriptors {before[0]} -> {after[0]}, memory {before[1]} -> {after[1]} KiB, entries {after[2]}"
                  f"{' (started again)' if name in self.restarted else ''}", flush=True)
            assert after[0] <= before[0], f"{name} keeps descriptors"
            assert after[1] <= before[1] + MEMORY_SLACK_KIB, f"{name} keeps memory"
        self.received += sum(receiver.total() for receiver in self.steady.values())
        for name, daemon in self.router.daemons.items():
            daemon.process.send_signal(signal.SIGTERM)
            assert daemon.process.wait(30) == 0, f"{name}: {daemon.output()[-2000:]}"


def main():
    minutes = float(sys.argv[1]) if len(sys.argv) > 1 else 2
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else random.SystemRandom().randrange(1 << 32)
    print(f"seed {seed}, {minutes:g} minutes", flush=True)
    soak = Soak(seed)
    soak.go_on_until(time.monotonic() + 60 * minutes)
    print(", ".join(f"{name} {times} ({seconds / times:.1f} s)" for name, (times, seconds) in sorted(soak.done.items())),
          flush=True)
    soak.finish()
    print(f"passed: {soak.received} packets received by those that stay, none missed")


if __name__ == "__main__":
    main()
