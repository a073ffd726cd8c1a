"""The router of the soak: the network of topology.py, a link whose hosts are users, and a peer that speaks MSDP.

      source ------ src               red   ------ red       attacks come from here
                       mribd          blue  ------ blue      receivers that stay
      peer -------- peer gmpd x 2     users ------ users     likewise, as the user alice, whom an agent announces
     10.5.0.2          msdpd
"""

import json
import os
import re
import resource
import shutil
import socket
import subprocess

from lab import PROGRAMS, Daemon, Process, wait_for
from msdp_peer import MsdpPeer
from topology import GMPD_OPTIONS, Network

FILE = "/run/router.toml"
CONFIGURATION = """
[[acl]]
number = 2001
family = "ipv4"
[[acl.rule]]
id = 1
action = "permit"
[[mribd.instance]]
rp = "10.5.0.1"
[msdpd]
connect_retry = 1
sa_interval = 2
sa_hold_down = 1
sa_state_time = 20
[[msdpd.peer]]
address = "10.5.0.2"
local_address = "10.5.0.1"
sa_limit = 2000
"""
STEADY = {"ipv4": "239.15.0.1", "ipv6": "ff1e::15:1"}
# What nobody confirms is over in less than a minute.
OPTIONS = {"mribd": ("--idle-timeout", "20"),
           "msdpd": (),
           "gmpd": (*GMPD_OPTIONS, "--query-interval", "20", "--querier-silence-max", "20", "--user-auth", "users")}
RECOVERY_S = 120


def write_configuration(text=CONFIGURATION):
    if os.path.isdir(FILE):
        shutil.rmtree(FILE)
    elif os.path.lexists(FILE):
        os.unlink(FILE)
    with open(FILE, "w") as file:
        file.write(text)


class LoggedDaemon(Daemon):
    """A daemon whose log passes through a program that can be stopped."""

    def __init__(self, host, name, *words):  # pylint: disable=super-init-not-called
        self.name = name
        self.path = f"/run/{host.name}.{name}.log"
        self.status_path = f"/run/{host.name}.{name}.status"
        if os.path.exists(self.status_path):
            os.unlink(self.status_path)
        with open(self.path, "a") as log:
            self.reader = subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=log)
        self.process = subprocess.Popen(host.words(*words, "--status-file", self.status_path), stdin=subprocess.DEVNULL,
                                        stdout=self.reader.stdin, stderr=self.reader.stdin)
        self.reader.stdin.close()


class SoakRouter:
    def __init__(self):
        write_configuration()
        self.network = Network(start=False)
        self.router = self.network.router
        self.hosts = self.network.hosts
        self.hosts["users"] = self.network.attach("users", 4)
        self.hosts["peer"] = self.network.attach("peer", 5)
        self.daemons = {}
        for name in ("mribd", "ipv4", "ipv6", "msdpd"):
            self.start(name)
        self.speaker = MsdpPeer(self.hosts["peer"], "10.5.0.2")
        self.feeds = [self.start_agent(family) for family in STEADY]
        with self.router.inside():
            inode = os.stat("/proc/thread-self/ns/net").st_ino
        self.base = f"/run/mcast-{os.geteuid()}"
        self.ports = f"{self.base}/net-{inode}"

    def start(self, name):
        program = "gmpd" if name in STEADY else name
        family = ("--family", name) if name in STEADY else ()
        self.daemons[name] = LoggedDaemon(self.router, name, os.path.join(PROGRAMS, program), *family, "--config", FILE,
                                          *OPTIONS[program])

    def user_address(self, family):
        if family == "ipv4":
            return "10.4.0.2"
        text = self.hosts["users"].run("ip", "-6", "address", "show", "dev", "eth0", "scope", "link")
        return re.search(r"inet6 (fe80\S+)/", text).group(1)

    def start_agent(self, family):
        """An agent that announces alice, who may join the group of those that stay, to each daemon that comes."""
        path = f"/run/agent-{family}"
        os.mkfifo(path)
        feed = os.open(path, os.O_RDWR)
        os.write(feed, f"announce node=0 id=7 kind=1 interface=users address={self.user_address(family)} "
                       f"group={STEADY[family]}\n".encode())
        Process(self.router, f"agent-{family}", os.path.join(PROGRAMS, "uagent"), "--family", family, "--watch",
                "--reconnect", "--file", path)
        return feed

    def tell_users(self, family, lines):
        """Another agent's commands, sent at once; the daemon may be away."""
        words = (os.path.join(PROGRAMS, "uagent"), "--family", family, "--file", "-")
        subprocess.run(self.router.words(*words), input="\n".join(lines) + "\n", text=True, check=False, timeout=60,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def connect(self, port):
        """A client of a local port that says nothing; None when the port takes nobody now."""
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET | socket.SOCK_NONBLOCK)
        try:
            client.connect(f"{self.ports}/{port}")
            return client
        except OSError:
            client.close()
            return None

    def all_reached(self):
        text = self.router.run(os.path.join(PROGRAMS, "mcastctl"), "status", check=False)
        return len(re.findall(r"^(?:mribd|gmpd|msdpd)\s+\S+\s+yes", text, re.MULTILINE)) == len(self.daemons)

    def wait_until_reached(self):
        wait_for(self.all_reached, "mcastctl reaching every daemon", RECOVERY_S)

    def limited(self, name, kind, soft):
        """Gives a daemon a soft limit; the former one comes back."""
        pid = self.daemons[name].process.pid
        before, hard = resource.prlimit(pid, kind)
        resource.prlimit(pid, kind, (soft, hard))
        return before

    def lift(self, name, kind, before):
        pid = self.daemons[name].process.pid
        resource.prlimit(pid, kind, (before, resource.prlimit(pid, kind)[1]))

    def memory_kib(self, name, kind="VmRSS"):
        with open(f"/proc/{self.daemons[name].process.pid}/status") as status:
            return int(re.search(kind + r":\s+(\d+)", status.read()).group(1))

    def address_space(self, name):
        return self.memory_kib(name, "VmSize") * 1024

    def descriptors(self, name):
        return len(os.listdir(f"/proc/{self.daemons[name].process.pid}/fd"))

    def has_group(self, family, group, links):
        """Whether the gmpd knows members of the group on the links."""
        interfaces = {one["interface"]: one for one in json.loads(self.daemons[family].status())["interfaces"]}
        return all(link in interfaces and any(one["group"] == group for one in interfaces[link]["groups"])
                   for link in links)

    def entries(self, name):
        """What a daemon holds for others, as numbers."""
        text = self.daemons[name].status()
        if name == "mribd":
            return [int(count) for count in re.findall(r"^  entries: (\d+)", text, re.MULTILINE)] + [
                len(re.findall(r"^\s+(?:member|remote source) ", text, re.MULTILINE))]
        table = json.loads(text)
        if name == "msdpd":
            return [len(table["cache"])]
        return [sum(one["group_count"] for one in table["interfaces"]), len(table["user_authentication"]["users"])]
