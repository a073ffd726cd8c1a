"""The scale run: how joins become kernel forwarding entries, by the thousand (topology.py).

      red                                                        router
   scale_load ---- reports ----> gmpd ---- channel ----> mribd ---- route socket ----> kernel
       ^                                                                                  |
       +-------------------- route notifications, read in the router's namespace ---------+

Each join is of a group and a source of its own. Three cases for each family and number of joins, each with daemons
that were just started:

   burst      the reports come as fast as they can be sent, as many joins in each as a packet takes
   sustained  one join in a report, at a fixed rate
   stopped    the same, and mribd is stopped early in it for a while, so that most joins wait for it

In every one the kernel and mribd must have every entry in the end, and none besides. --short checks that alone,
for the smallest number.
"""

import argparse
import datetime
import itertools
import json
import os
import platform
import re
import signal
import statistics
import subprocess
import sys
import time

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, os.path.join(TOP, "tests", "system"))

from lab import PROGRAMS, wait_for  # noqa: E402
from topology import Network  # noqa: E402
import scale_page  # noqa: E402

COUNTS = (1000, 10000, 100000)
RATE = 20000
STOPPED_AFTER = 0.1  # of the time that sending takes
RECORDS = {"ipv4": 122, "ipv6": 40}  # a report of these fills a packet of 1500 bytes
SOURCES = {"ipv4": ("10.128.0.0/9", "10.1.0.2"), "ipv6": ("fd00:80::/64", "fd00:1::2")}  # and the way to them
TICK_S = 1 / os.sysconf("SC_CLK_TCK")


def high_water_kib(process):
    with open(f"/proc/{process.pid}/status") as status:
        return int(re.search(r"^VmHWM:\s*(\d+) kB", status.read(), re.MULTILINE).group(1))


def processor_s(process):
    with open(f"/proc/{process.pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) * TICK_S


class Chain:
    """The router with mribd and gmpd just started, and a host on red."""

    def __init__(self, network, family, count):
        self.network, self.router, self.family = network, network.router, family
        self.mribd = self.router.start_mribd()
        wait_for(lambda: "ready" in self.mribd.output(), "mribd ready")
        # A group and a source each, and one host makes them all.
        entries = str(max(262144, 8 * count))
        self.gmpd = self.router.start_gmpd(family, "--max-groups", str(max(65536, 2 * count)), "--max-entries", entries,
                                           "--max-interface-entries", entries, "--max-host-entries", entries,
                                           "--max-memory", "4096")
        self.daemons = {"mribd": self.mribd, "gmpd": self.gmpd}
        wait_for(lambda: json.loads(self.gmpd.status())["mrib_replayed"], "gmpd connected to mribd")

    def load(self, count, records, rate, stop_s):
        """Sends the joins and returns what became of them. mribd is stopped meanwhile when stop_s is not 0."""
        words = [os.path.join(PROGRAMS, "scale_load"), "--router", f"/run/netns/{self.router.name}",
                 "--family", self.family, "--count", str(count), "--records", str(records), "--rate", str(rate),
                 "--patience", str(stop_s + 15)]
        before = {name: processor_s(daemon.process) for name, daemon in self.daemons.items()}
        with subprocess.Popen(self.network.hosts["red"].words(*words), stdout=subprocess.PIPE, text=True) as load:
            load.stdout.readline()
            continued_at = self.stop_mribd(count / rate * STOPPED_AFTER, stop_s) if stop_s else None
            result = json.loads(load.stdout.read())
        result["processor_s"] = {name: processor_s(daemon.process) - before[name]
                                 for name, daemon in self.daemons.items()}
        result["high_water_kib"] = {name: high_water_kib(daemon.process) for name, daemon in self.daemons.items()}
        result["continued_at"] = continued_at
        return result

    def stop_mribd(self, after_s, stop_s):
        time.sleep(after_s)
        self.mribd.process.send_signal(signal.SIGSTOP)
        time.sleep(stop_s)
        self.mribd.process.send_signal(signal.SIGCONT)
        return time.monotonic()

    def ask(self, *words):
        answer = self.router.run(os.path.join(PROGRAMS, "mcastctl"), *words, "--json", "--family", self.family)
        # What mcastctl says of daemons that do not run may stand around the list.
        return json.JSONDecoder().raw_decode(answer[answer.index("["):])[0]

    def routes(self):
        """How many entries mribd says it forwards from the sources' link to the host's."""
        return sum(row["upstream"] == "src" and row["outgoing"] == ["red"] for row in self.ask("show", "routes"))

    def counters(self):
        found = {}
        for row in self.ask("show", "counters"):
            name = f"{row['daemon']}.{row['counter']}"
            found[name] = found.get(name, 0) + row["value"]
        return found

    def end(self):
        for name, daemon in (("gmpd", self.gmpd), ("mribd", self.mribd)):
            status = daemon.stop()
            assert status == 0, f"{name} ended with {status}: {daemon.output()[-2000:]}"


def measure(network, family, case, count, stop_s):
    """One round of a case, checked: nothing is lost, and nothing is there that nobody asked for."""
    chain = Chain(network, family, count)
    records, rate = (RECORDS[family], 0) if case == "burst" else (1, RATE)
    seen = chain.load(count, records, rate, stop_s if case == "stopped" else 0)
    routes, counters = chain.routes(), chain.counters()
    lost = {"kernel": count - seen["in_kernel"], "mribd": count - routes}
    assert lost == {"kernel": 0, "mribd": 0}, f"{family} {case} of {count}: lost {lost}: {counters}"
    assert seen["others_in_kernel"] == 0, f"{family} {case} of {count}: {seen['others_in_kernel']} entries of nobody"
    assert seen["overruns"] > 0 or seen["notified"] == count, f"{family} {case} of {count}: {seen['notified']} notified"
    chain.end()
    start = seen["continued_at"] if case == "stopped" else seen["started_at"]
    return {
        "total_s": seen["last_at"] - start,
        "first_ms": (seen["first_at"] - seen["started_at"]) * 1e3,
        "sending_s": seen["sent_at"] - seen["started_at"],
        "latency_ms": seen["latency_ms"],
        "reports": seen["packets"],
        "in_kernel": seen["in_kernel"],
        "notified": seen["notified"],
        "at_mribd": routes,
        "datagrams": counters["mribd.channel_messages"],
        "records": counters["mribd.channel_records"],
        "connects": counters["gmpd.mrib_connects"],
        "processor_s": seen["processor_s"],
        "high_water_kib": seen["high_water_kib"],
    }


def middle(rounds):
    """The median over the rounds of every figure."""
    if isinstance(rounds[0], dict):
        return {name: middle([one[name] for one in rounds]) for name in rounds[0]}
    return statistics.median(rounds)


def busy_share(for_s=3):
    """The share of the machine's processor time that is used meanwhile."""
    def idle_and_all():
        with open("/proc/stat") as stat:
            times = [int(word) for word in stat.readline().split()[1:]]
        return times[3] + times[4], sum(times[:8])

    idle, everything = idle_and_all()
    time.sleep(for_s)
    idle_then, everything_then = idle_and_all()
    return 1 - (idle_then - idle) / (everything_then - everything)


def machine():
    def first(pattern, path):
        with open(path) as file:
            found = re.search(pattern, file.read(), re.MULTILINE)
        return found.group(1).strip() if found else "unknown"

    compiler = first(r"^CMAKE_CXX_COMPILER:\w+=(.*)", os.path.join(PROGRAMS, "..", "CMakeCache.txt"))
    version = subprocess.run([compiler, "--version"], stdout=subprocess.PIPE, text=True, check=True).stdout
    return {
        "processor": first(r"^model name\s*:(.*)", "/proc/cpuinfo"),
        "cores": os.cpu_count(),
        "memory_mib": int(first(r"^MemTotal:\s*(\d+)", "/proc/meminfo")) // 1024,
        "kernel": platform.release(),
        "compiler": version.splitlines()[0],
    }


def options():
    parser = argparse.ArgumentParser(prog="./run bench scale", description=__doc__.splitlines()[0])
    parser.add_argument("--short", action="store_true", help=f"{COUNTS[0]} joins alone, nothing written")
    parser.add_argument("--rounds", type=int, default=3, help="rounds of each case, of which the median counts")
    parser.add_argument("--stop", type=float, default=10, help="seconds for which mribd is stopped")
    return parser.parse_args()


def main():
    given = options()
    counts, rounds, stop_s = (COUNTS[:1], 1, 0.5) if given.short else (COUNTS, given.rounds, given.stop)
    run = {"command": " ".join(["./run bench scale", *sys.argv[1:]]), "machine": machine(), "rounds": rounds,
           "date": datetime.date.today().isoformat(), "rate": RATE, "records": RECORDS, "stop_s": stop_s,
           "stopped_after": STOPPED_AFTER, "results": []}
    busy_before = 0 if given.short else busy_share()
    network = Network(start=False)
    for sources, way in SOURCES.values():
        network.router.route(sources, "via", way)
    for family, count, case in itertools.product(SOURCES, counts, scale_page.CASES):
        taken = [measure(network, family, case, count, stop_s) for _ in range(rounds)]
        run["results"].append({"family": family, "case": case, "count": count, "median": middle(taken),
                               "rounds": taken})
        print(scale_page.line(run["results"][-1]), flush=True)
    if not given.short:
        run["busy"] = max(busy_before, busy_share())
        with open(os.path.join(TOP, "build", "scale.json"), "w") as file:
            json.dump(run, file, indent=1)
        scale_page.write(run, os.path.join(TOP, "docs"))


if __name__ == "__main__":
    main()
