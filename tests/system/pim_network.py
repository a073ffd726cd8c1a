"""Networks of PIM routers for the scenarios, the demo and the scale run.

Link 3 is 10.3.0.0/24 and 2001:db8:3::/64. The node with the number 2 has .2, ::2 and fe80::3:2 on it, on its interface e3;
a router with the number 2 has 10.0.0.2 and 2001:db8::2 besides, wherever its links lead. Every link is a bridge in a
namespace of its own kind, in which its cables can be cut: a router notices nothing but silence, or a lost carrier.
"""

import collections
import json
import os

import lab
from lab import Daemon, Host, Router, wait_for

FAMILIES = ("ipv4", "ipv6")
MCASTCTL = os.path.join(lab.PROGRAMS, "mcastctl")
# All intervals as short as they go, a source's own tree aside: it is to outlive the pauses of a scenario.
FAST = """[pimsmd]
hello_interval = 1
join_prune_interval = 2
override_interval_ms = 200
propagation_delay_ms = 100
register_suppression = 4
register_probe = 1
bootstrap_interval = 1
"""


def address(family, number, at):
    """The address of node number at on the link."""
    return f"10.{number}.0.{at}" if family == "ipv4" else f"2001:db8:{number}::{at}"


def router_address(family, number):
    return f"10.0.0.{number}" if family == "ipv4" else f"2001:db8::{number}"


def candidate(number, bsr_priority=None, rp_priority=None, holdtime_s=3):
    """A router as a candidate of the elections, for both families."""
    lines = []
    for own in (router_address(family, number) for family in FAMILIES):
        if bsr_priority is not None:
            lines.append(f'[[pimsmd.candidate_bsr]]\naddress = "{own}"\npriority = {bsr_priority}\n')
        if rp_priority is not None:
            lines.append(f'[[pimsmd.candidate_rp]]\naddress = "{own}"\npriority = {rp_priority}\n'
                         f"holdtime = {holdtime_s}\n")
    return "".join(lines)


class Node:
    """What a network knows of a host or router: its number, and its links by their interfaces."""

    def __init__(self, machine, number):
        self.machine, self.number = machine, number
        self.links = {}

    @property
    def name(self):
        return self.machine.name

    @property
    def is_router(self):
        return isinstance(self.machine, PimRouter)


class PimRouter(Router):
    """A router of mribd and of a gmpd and a pimsmd for each family."""

    def __init__(self, name, families=FAMILIES):
        super().__init__(name)
        self.families = families
        self.config_path = f"/run/{name}.toml"
        self.daemons = {}
        self.sysctl("net.ipv4.conf.all.rp_filter", 0)
        self.sysctl("net.ipv6.conf.all.keep_addr_on_down", 1)

    def configure(self, text):
        with open(self.config_path, "w") as file:
            file.write(text)

    def start(self, msdp=False):
        self.daemons["mribd"] = self.start_mribd("--config", self.config_path)
        for family in self.families:
            self.daemons["gmpd", family] = self.start_gmpd(family, "--config", self.config_path,
                                                           "--last-member-interval", "1",
                                                           "--query-response-interval", "1")
            self.start_pimsmd(family)
        if msdp:
            self.daemons["msdpd"] = Daemon(self, "msdpd", os.path.join(lab.PROGRAMS, "msdpd"), "--config",
                                           self.config_path)

    def start_pimsmd(self, family):
        self.daemons["pimsmd", family] = Daemon(self, f"pimsmd-{family}", os.path.join(lab.PROGRAMS, "pimsmd"),
                                                "--family", family, "--config", self.config_path)

    def stop(self):
        """Ends all in an orderly way; every daemon must end well."""
        for daemon in reversed(self.daemons.values()):
            status = daemon.stop()
            assert status == 0, f"{self.name} {daemon.name} ended with {status}: {daemon.output()[-2000:]}"
        self.daemons = {}

    def kill(self):
        """Ends all without a word to anybody."""
        for daemon in self.daemons.values():
            daemon.kill()
        self.daemons = {}

    def rows(self, table, family, *words):
        """A table of mcastctl, empty while the daemon is not ready."""
        answer = self.run(MCASTCTL, "show", table, "--family", family, "--json", *words, check=False)
        # What it says of daemons that do not run may stand around the list.
        return json.JSONDecoder().raw_decode(answer[answer.index("["):])[0] if "[" in answer else []

    def tree(self, family, group, source):
        """The row of a group and source in pim-trees, {} without one."""
        rows = self.rows("pim-trees", family, "--group", group)
        return next((row for row in rows if row["source"] == source), {})

    def rps(self, family):
        """The RPs that it knows, by their priority."""
        return [row["rp"] for row in sorted(self.rows("rp", family), key=lambda row: row["priority"] or 0)]

    def bsr(self, family):
        return next((row["bsr"] for row in self.rows("bsr", family)), None)

    def told(self):
        """What all its daemons say, for the report of a failure."""
        return "\n".join(f"{self.name} {daemon.name}:\n{daemon.status()}" for name, daemon in self.daemons.items()
                         if daemon.alive() and name[0] != "gmpd")


class PimNetwork:
    """Routers and hosts, joined as links says: number to the names of those that are on it."""

    def __init__(self, routers, hosts, links, families=FAMILIES):
        self.families = families
        self.nodes = {}
        for number, name in enumerate(routers, 1):
            self.nodes[name] = Node(PimRouter(name, families), number)
        for number, name in enumerate(hosts, 101):
            self.nodes[name] = Node(Host(name), number)
        self.cables = Host("cables")
        self.links = links
        self.down = set()  # links over which no route may lead
        for number, names in links.items():
            self.cables.run("ip", "link", "add", f"b{number}", "type", "bridge", "mcast_snooping", "0")
            self.cables.run("ip", "link", "set", f"b{number}", "up")
            for name in names:
                self.join(number, self.nodes[name])
        for node in self.routers():
            for family in families:
                node.machine.address("lo", router_address(family, node.number) + ("/32" if family == "ipv4" else "/128"))
        self.move_routes()

    def __getitem__(self, name):
        return self.nodes[name].machine

    def routers(self):
        return [node for node in self.nodes.values() if node.is_router]

    def join(self, number, node):
        end, port = f"e{number}", f"{node.name}.{number}"
        lab.link(node.machine, end, self.cables, port)
        self.cables.run("ip", "link", "set", port, "master", f"b{number}")
        node.machine.run("ip", "link", "set", end, "addrgenmode", "none")
        node.machine.run("ip", "-6", "address", "flush", "dev", end, "scope", "link")
        node.machine.address(end, f"10.{number}.0.{node.number}/24", f"2001:db8:{number}::{node.number}/64",
                             f"fe80::{number}:{node.number}/64")
        node.links[number] = end
        if not node.is_router:
            node.machine.no_offload(end)
            first = self.nodes[self.links[number][0]]
            node.machine.route("default", "via", f"10.{number}.0.{first.number}")
            node.machine.route("default", "via", f"fe80::{number}:{first.number}", "dev", end)

    def cut(self, number, *names, carrier=True):
        """Cuts the cables of the link, or those of the nodes named alone; without carrier their ends look well."""
        for name in names or self.links[number]:
            words = ("down",) if carrier else ("nomaster",)
            self.cables.run("ip", "link", "set", f"{name}.{number}", *words)

    def mend(self, number, *names):
        for name in names or self.links[number]:
            self.cables.run("ip", "link", "set", f"{name}.{number}", "master", f"b{number}", "up")

    def power_off(self, name):
        """The router dies, and all its links with it."""
        node = self.nodes[name]
        for number in node.links:
            self.cut(number, name)
        node.machine.kill()

    def next_hops(self, start, without):
        """The shortest ways from a router: number of each link and name of each router, to (link, router) first on the way."""
        links, routers = {}, {}
        waiting = collections.deque((number, None) for number in sorted(start.links))
        seen = {start.name}
        while waiting:
            number, first = waiting.popleft()
            if number in links or number in self.down:
                continue
            links[number] = first
            for name in self.links[number]:
                node = self.nodes[name]
                if name in seen or name in without or not node.is_router:
                    continue
                seen.add(name)
                way = first or (number, node)
                routers[name] = way
                waiting.extend((further, way) for further in sorted(node.links))
        return links, routers

    def move_routes(self, *without):
        """Gives every router the shortest ways over the links that are not down, and through no router named."""
        for start in self.routers():
            if start.name in without:
                continue
            links, routers = self.next_hops(start, without)
            for family in self.families:
                wanted = self.routes_of(start, family, links, routers)
                version = "-4" if family == "ipv4" else "-6"
                commands = [f"route replace {prefix} {way} proto static" for prefix, way in wanted.items()]
                known = start.machine.run("ip", version, "route", "show", "proto", "static").splitlines()
                commands += [f"route del {one.split()[0]} proto static" for one in known
                             if self.prefix_of(one) not in wanted]
                self.batch(start.machine, version, commands)

    @staticmethod
    def prefix_of(route):
        prefix = route.split()[0]
        return prefix if "/" in prefix else prefix + ("/128" if ":" in prefix else "/32")

    def routes_of(self, start, family, links, routers):
        wanted = {}
        for number, first in links.items():
            if number not in start.links:
                prefix = f"10.{number}.0.0/24" if family == "ipv4" else f"2001:db8:{number}::/64"
                wanted[prefix] = self.way(family, first)
        for name, first in routers.items():
            own = router_address(family, self.nodes[name].number)
            wanted[own + ("/32" if family == "ipv4" else "/128")] = self.way(family, first)
        return wanted

    @staticmethod
    def way(family, first):
        number, node = first
        through = f"10.{number}.0.{node.number}" if family == "ipv4" else f"fe80::{number}:{node.number}"
        return f"via {through} dev e{number}"

    @staticmethod
    def batch(machine, version, commands):
        path = f"/run/{machine.name}.routes"
        with open(path, "w") as file:
            file.writelines(command + "\n" for command in commands)
        if commands:
            machine.run("ip", version, "-batch", path)

    def start(self, text=None, msdp=()):
        """Starts every router with the configuration of its name, and waits until all neighbours know each other."""
        for node in self.routers():
            node.machine.configure((text or {}).get(node.name, FAST))
            node.machine.start(node.name in msdp)
        self.wait_neighbors()

    def neighbors_of(self, node, without=()):
        """How many PIM routers are around it."""
        return sum(name != node.name and name not in without and self.nodes[name].is_router
                   for number in node.links if number not in self.down for name in self.links[number])

    def wait_neighbors(self, *without):
        for node in self.routers():
            if node.name in without:
                continue
            for family in self.families:
                wait_for(lambda n=node, f=family: len(n.machine.rows("pim-neighbors", f)) == self.neighbors_of(n, without),
                         f"neighbors of {node.name}, {family}", 30)

    def wait_rp(self, number, *without, timeout_s=60):
        """Until every router takes the router of the number for the best RP."""
        for node in self.routers():
            for family in self.families if node.name not in without else ():
                wait_for(lambda n=node, f=family: n.machine.rps(f)[:1] == [router_address(f, number)],
                         f"{node.name} taking {router_address(family, number)} for the RP", timeout_s)

    def stop(self):
        for node in self.routers():
            node.machine.stop()

    def told(self):
        return "\n".join(node.machine.told() for node in self.routers())
