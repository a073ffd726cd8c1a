"""The scale run of PIM: pimsmd with mribd, and FRRouting's pimd with zebra where it is installed, on the same work.

   up 10.1.0.9 ---- e1 router e3 ---- down 10.3.0.9         a PIM router of few words on each side (pim_load.py)

   source ---- first ---- last ---- receiver                the RP is last; packets of a new source, and a restart

Every time ends when the kernel has told of the last entry, and in the end it has them all: otherwise the run fails.
--short does the smallest number alone, and writes nothing.
"""

import argparse
import datetime
import json
import os
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.join(HERE, "..")
sys.path.insert(0, os.path.join(TOP, "tests", "system"))

import lab  # noqa: E402
from flows import FlowReceiver, FlowSender  # noqa: E402
from lab import Host, link, wait_for  # noqa: E402
from pim_network import FAST, PimNetwork, PimRouter  # noqa: E402
import pim_page  # noqa: E402
from scale import Chain, busy_share, high_water_kib, machine, middle, processor_s  # noqa: E402
from topology import Network  # noqa: E402

HAS_PEER = os.path.exists("/usr/lib/frr/pimd")
CASES = ((1000, 1), (10000, 1), (50000, 1), (10000, 10000), (30000, 30000))
GROUP, SOURCE = "239.9.9.9", "10.11.0.101"


class Ours:
    name = "ours"

    def __init__(self, router):
        self.router = router
        router.configure("[pimsmd]\n")
        router.daemons["mribd"] = router.start_mribd("--config", router.config_path)
        wait_for(lambda: "ready" in router.daemons["mribd"].output(), "mribd ready")
        router.start_pimsmd("ipv4")
        wait_for(lambda: len(router.rows("pim-interfaces", "ipv4")) == 2, "PIM on both links")

    def processes(self):
        return {str(name): daemon.process for name, daemon in self.router.daemons.items()}

    def stop(self):
        self.router.stop()


class Peer:
    name = "peer"

    def __init__(self, router):
        import frr
        interfaces = "".join(f"interface {one}\n ip pim\n" for one in ("e1", "e3"))
        self.router = router
        shutil.rmtree(f"/run/{router.name}.frr", ignore_errors=True)
        self.frr = frr.Frr(router, interfaces)
        wait_for(lambda: len(self.frr.show_json("ip pim interface")) >= 2, "PIM on both links", 30)

    def processes(self):
        return {one.name: one.process for one in self.frr.daemons}

    def stop(self):
        self.frr.kill()  # an orderly end waits for every entry


def kinds():
    return [Ours, Peer] if HAS_PEER else [Ours]


def build():
    """The router between the two speakers."""
    router, up, down = PimRouter("router", ("ipv4",)), Host("up"), Host("down")
    link(up, "e0", router, "e1")
    link(router, "e3", down, "e0")
    for host, interface, address in ((up, "e0", "10.1.0.9/24"), (router, "e1", "10.1.0.1/24"),
                                     (router, "e3", "10.3.0.1/24"), (down, "e0", "10.3.0.9/24")):
        host.address(interface, address)
    router.route("10.128.0.0/9", "via", "10.1.0.9")
    return router


def load(count, sources, *more):
    words = ["python3", os.path.join(HERE, "pim_load.py"), "router", "down", "up", str(count), str(sources),
             "3" if count < 100000 else "8", *more]
    done = subprocess.run(words, stdout=subprocess.PIPE, text=True, check=True)
    return json.loads(done.stdout)


def measure_joins(kind, router, count, sources):
    measured = kind(router)
    try:
        processes = measured.processes()
        before = {name: processor_s(one) for name, one in processes.items()}
        seen = load(count, sources)
        used = {name: processor_s(one) - before[name] for name, one in processes.items()}
        in_kernel = sum("State: resolved" in line and "Oifs: e3" in line for line in router.mroute("-4"))
        assert seen["entries"] == count and in_kernel == count, f"{measured.name}: {count} joins, {seen}, {in_kernel} left"
        before = {name: processor_s(one) for name, one in processes.items()}
        load(count, sources, "again")
        time.sleep(1)
        again = sum(processor_s(one) - before[name] for name, one in processes.items())
        return {"entries_s": seen["entries_s"], "up_s": seen["up_s"], "joined_up": seen["joined_up"],
                "messages_up": seen["messages_up"], "processor_s": sum(used.values()), "again_processor_s": again,
                "memory_mib": sum(high_water_kib(one) for one in processes.values()) / 1024}
    finally:
        measured.stop()


def measure_limit(router, count):
    """More joins of one neighbour than are allowed: what it refuses is counted, and it goes on."""
    ours = Ours(router)
    try:
        seen = load(count, count)
        counters = {row["counter"]: row["value"] for row in router.rows("counters", "ipv4")}
        assert all(one.alive() for one in router.daemons.values())
        return {"tried": count, "entries": seen["entries"],
                "refused": {name: value for name, value in counters.items()
                            if value and any(word in name for word in ("refused", "lost"))}}
    finally:
        ours.stop()


def remove(network):
    """Its namespaces, so that another one can have their names."""
    for node in network.nodes.values():
        lab.run("ip", "netns", "delete", node.name)
        shutil.rmtree(f"/run/{node.name}.frr", ignore_errors=True)
    lab.run("ip", "netns", "delete", "cables")


class Way:
    """Two routers between a source and a receiver, ours or the peer."""

    def __init__(self, kind):
        self.network = PimNetwork(("first", "last"), ("source", "receiver"),
                                  {1: ("first", "last"), 11: ("first", "source"), 12: ("last", "receiver")},
                                  families=("ipv4",))
        self.kind = kind
        self.frr = {}

    def start(self):
        if self.kind is Ours:
            self.network.start({name: FAST + '[[pimsmd.rp]]\naddress = "10.0.0.2"\n' for name in ("first", "last")})
            return
        import frr
        for name, ports in (("first", ("e1", "e11", "lo")), ("last", ("e1", "e12", "lo"))):
            text = "ip pim rp 10.0.0.2 224.0.0.0/4\n" + "".join(
                f"interface {port}\n ip pim\n" + (" ip igmp\n" if port == "e12" else "") for port in ports)
            self.frr[name] = frr.Frr(self.network[name], text)
        for one in self.frr.values():
            wait_for(lambda o=one: o.show_json("ip pim neighbor").get("e1"), "neighbors of the peer", 40)

    def knows_receiver(self):
        if self.kind is Ours:
            return any(row["hosts"] for row in self.network["last"].rows("pim-joins", "ipv4"))
        return GROUP in self.frr["last"].show("ip pim join") or GROUP in self.frr["last"].show("ip igmp groups")

    def restart(self):
        """Of the program that speaks PIM at the source's router."""
        if self.kind is Ours:
            router = self.network["first"]
            router.daemons["pimsmd", "ipv4"].kill()
            router.start_pimsmd("ipv4")
        else:
            self.frr["first"].kill()
            self.frr["first"].start()

    def measure(self, rate, after_s):
        """Packets that a new source loses, and the longest time without any after the restart."""
        receiver = FlowReceiver(self.network["receiver"], "e12", [("", GROUP)], [SOURCE])
        wait_for(self.knows_receiver, "the receiver known", 30)
        time.sleep(3)
        sender = FlowSender(self.network["source"], "e11", [(SOURCE, GROUP)], rate)
        time.sleep(3)
        flow = receiver.flows()[SOURCE, GROUP]
        lost = flow["newest"] - flow["count"]
        begin = time.monotonic()
        if after_s:
            self.restart()
            time.sleep(after_s)
        gap = receiver.longest_gap(begin, time.monotonic())[0] if after_s else None
        silent = time.monotonic() - receiver.flows()[SOURCE, GROUP]["newest_sent"]
        sender.stop()
        receiver.process.kill()
        return {"lost": lost, "repeated": len(flow["repeated"]), "gap_s": gap, "silent_s": silent}

    def stop(self):
        if self.kind is Ours:
            self.network.stop()
        for one in self.frr.values():
            one.kill()
        remove(self.network)


def measure_way(kind, rate, after_s):
    way = Way(kind)
    try:
        way.start()
        return way.measure(rate, after_s)
    finally:
        way.stop()


FLOOD = ("import socket, struct\n"
         "s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)\n"
         "s.setsockopt(0, socket.IP_MULTICAST_TTL, 16)\n"
         "s.setsockopt(0, socket.IP_MULTICAST_IF, socket.inet_aton('10.11.0.101'))\n"
         f"while True: s.sendto(bytes(972), ('{GROUP}', 5001))\n")


def measure_registers(kind, for_s=3):
    """Packets of 1000 bytes that a source sends as fast as it can, and Registers that reach an RP which never says stop."""
    network = PimNetwork(("first",), ("source", "rp"), {11: ("first", "source"), 1: ("first", "rp")}, families=("ipv4",))
    rp, peer = "10.1.0.102", None
    if kind is Ours:
        network.start({"first": f'[pimsmd]\nregister_rate = 16777216\n[[pimsmd.rp]]\naddress = "{rp}"\n'})
    else:
        import frr
        peer = frr.Frr(network["first"], f"ip pim rp {rp} 224.0.0.0/4\ninterface e1\n ip pim\ninterface e11\n ip pim\n")
        time.sleep(5)

    def packets(name, port, way):
        return json.loads(network[name].run("ip", "-s", "-j", "link", "show", "dev", port))[0]["stats64"][way]["packets"]

    flood = lab.Process(network["source"], "flood", "python3", "-c", FLOOD)
    wait_for(lambda: packets("rp", "e1", "rx") > 1000, "Registers")
    began, sent, came = time.monotonic(), packets("source", "e11", "tx"), packets("rp", "e1", "rx")
    time.sleep(for_s)
    took_s = time.monotonic() - began
    result = {"sent_s": (packets("source", "e11", "tx") - sent) / took_s,
              "registers_s": (packets("rp", "e1", "rx") - came) / took_s}
    flood.kill()
    if peer:
        peer.stop()
    else:
        network.stop()
    remove(network)
    return result


def measure_gmp(count):
    """The joins of hosts as in the scale run of gmpd and mribd, while PIM runs on their link."""
    network = Network(start=False, prefix="gmp-")
    network.router.route("10.128.0.0/9", "via", "10.1.0.2")
    chain = Chain(network, "ipv4", count)
    path = "/run/gmp.toml"
    with open(path, "w") as file:
        file.write("[pimsmd]\n")
    pimsmd = lab.Daemon(network.router, "pimsmd", os.path.join(lab.PROGRAMS, "pimsmd"), "--config", path)
    wait_for(lambda: len(json.loads(pimsmd.status())["links"]) == 3, "PIM on the links")
    seen = chain.load(count, 122, 0, 0)
    assert seen["in_kernel"] == count, f"{seen['in_kernel']} of {count} joins in the kernel"
    assert pimsmd.stop() == 0
    chain.end()
    for host in (network.router, *network.hosts.values()):
        lab.run("ip", "netns", "delete", host.name)
    return {"total_s": seen["last_at"] - seen["started_at"]}


def options():
    parser = argparse.ArgumentParser(prog="./run bench pim", description=__doc__.splitlines()[0])
    parser.add_argument("--short", action="store_true", help=f"{CASES[0][0]} joins alone, nothing written")
    parser.add_argument("--rounds", type=int, default=3, help="rounds of each case, of which the median counts")
    return parser.parse_args()


def rounds_of(what, rounds, action):
    taken = [action() for _ in range(rounds)]
    result = middle([{key: value for key, value in one.items() if value is not None} for one in taken])
    print(f"{time.strftime('%H:%M:%S')} {what}", json.dumps({key: round(value, 3) for key, value in result.items()}), flush=True)
    return {"median": result, "rounds": taken}


def main():
    given = options()
    rounds, cases = (1, CASES[:1]) if given.short else (given.rounds, CASES)
    run = {"command": " ".join(["./run bench pim", *sys.argv[1:]]), "machine": machine(), "rounds": rounds,
           "date": datetime.date.today().isoformat(), "joins": [], "way": {}}
    busy_before = 0 if given.short else busy_share()
    router = build()
    for count, sources in cases:
        for kind in kinds() if not given.short else [Ours]:
            result = rounds_of(f"{kind.name} {count} joins of {sources} sources", rounds,
                               lambda k=kind: measure_joins(k, router, count, sources))
            run["joins"].append({"who": kind.name, "count": count, "sources": sources, **result})
    for kind in kinds() if not given.short else [Ours]:
        run["way"][kind.name] = rounds_of(f"{kind.name} new source", rounds, lambda k=kind: measure_way(k, 2000, 0))
    if given.short:
        return
    run["registers"] = {kind.name: rounds_of(f"{kind.name} Registers", rounds, lambda k=kind: measure_registers(k))
                        for kind in kinds()}
    run["gmp"] = rounds_of("joins of hosts while PIM runs", rounds, lambda: measure_gmp(100000))
    run["limit"] = measure_limit(router, 270000)
    print("limit", run["limit"], flush=True)
    for kind in kinds():
        run["way"][f"{kind.name} restart"] = rounds_of(f"{kind.name} restart", 1, lambda k=kind: measure_way(k, 100, 75))
    run["busy"] = max(busy_before, busy_share())
    with open(os.path.join(TOP, "build", "pim.json"), "w") as file:
        json.dump(run, file, indent=1)
    pim_page.write(run, os.path.join(TOP, "docs"))


if __name__ == "__main__":
    main()
