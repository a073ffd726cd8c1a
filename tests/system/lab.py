"""Hosts, links, daemons and multicast endpoints for the system tests and the demo.

Everything here expects to run inside scripts/lab: as root of namespaces of its own, where whatever is left
behind disappears with the last process.
"""

import contextlib
import ctypes
import fcntl
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ENDPOINT = os.path.join(HERE, "endpoint.py")
SKIPPED = 77
CLONE_NEWNET = 0x40000000
SIOCETHTOOL, ETHTOOL_CHECKSUMS, ETHTOOL_SEGMENTS = 0x8946, 0x17, 0x24

# Where Debian keeps daemons, which not every user's path names.
os.environ["PATH"] += os.pathsep + os.pathsep.join(("/usr/sbin", "/sbin"))


def run(*words, check=True):
    """Runs a command and returns what it printed."""
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if check and done.returncode != 0:
        raise RuntimeError(f"{' '.join(words)}: exit {done.returncode}: {done.stdout}")
    return done.stdout


def wait_for(condition, what, timeout_s=20.0):
    """Waits until condition() is true and returns its value; a test fails by never getting there."""
    end = time.monotonic() + timeout_s
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {timeout_s:g} s: {what}")
        time.sleep(0.02)


def needs(program, package):
    """Ends a scenario as skipped, with the reason, when a program that it is about is not installed."""
    if not shutil.which(program):
        print(f"skipped: {program} is not installed (Debian package {package})")
        sys.exit(SKIPPED)


class Host:
    """A network namespace."""

    def __init__(self, name, forwarding=False):
        self.name = name
        run("ip", "netns", "add", name)
        self.sysctl("net.ipv6.conf.all.accept_dad", 0)
        self.sysctl("net.ipv6.conf.default.accept_dad", 0)
        self.sysctl("net.ipv6.conf.default.dad_transmits", 0)
        if forwarding:
            self.sysctl("net.ipv4.ip_forward", 1)
            self.sysctl("net.ipv6.conf.all.forwarding", 1)
        self.run("ip", "link", "set", "lo", "up")

    def words(self, *words):
        return ("ip", "netns", "exec", self.name) + words

    def run(self, *words, check=True):
        # ip enters a namespace by itself, in a fraction of the time.
        inside = ("ip", "-n", self.name) + words[1:] if words[0] == "ip" else self.words(*words)
        return run(*inside, check=check)

    @contextlib.contextmanager
    def inside(self):
        """Sockets that this process opens meanwhile belong to the namespace, for as long as they live."""
        with open("/proc/self/ns/net") as home, open(f"/run/netns/{self.name}") as there:
            enter(there)
            try:
                yield
            finally:
                enter(home)

    def sysctl(self, name, value):
        with self.inside(), open("/proc/sys/" + name.replace(".", "/"), "w") as file:
            file.write(str(value))

    def address(self, interface, *prefixes):
        for prefix in prefixes:
            self.run("ip", "address", "add", prefix, "dev", interface)

    def route(self, *words):
        family = "-6" if any(":" in word for word in words) else "-4"
        self.run("ip", family, "route", "add", *words)

    def no_offload(self, interface):
        """Packets that the host sends have their checksums, and one datagram is one packet, also where a daemon sees them."""
        with self.inside(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asked:
            for command in ETHTOOL_CHECKSUMS, ETHTOOL_SEGMENTS:
                value = ctypes.create_string_buffer(struct.pack("=II", command, 0))
                fcntl.ioctl(asked, SIOCETHTOOL, struct.pack("16sP", interface.encode(), ctypes.addressof(value)))

    def mroute(self, family):
        """The kernel's forwarding cache entries as ip mroute prints them."""
        return [line for line in self.run("ip", family, "mroute", "show").splitlines() if "Iif" in line]


def enter(namespace):
    if ctypes.CDLL(None, use_errno=True).setns(namespace.fileno(), CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


class Segment(Host):
    """A switch: what is attached to it is on one link, and every frame reaches everybody."""

    def __init__(self, name):
        super().__init__(name)
        self.run("ip", "link", "add", "bridge", "type", "bridge", "mcast_snooping", "0")
        self.run("ip", "link", "set", "bridge", "up")

    def attach(self, host, interface):
        link(host, interface, self, host.name)
        self.run("ip", "link", "set", host.name, "master", "bridge")


class Wire:
    """Sends whole IP packets from an interface, right or wrong as they are."""

    def __init__(self, host, interface):
        self.interface = interface
        with host.inside():
            self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, 0)
            self.socket.bind((interface, 0))

    def send(self, packet, family, mac=b"\x01\x00\x5e\x00\x00\x01"):
        """The receiver's kernel looks at the destination, a group's by default, only to see that it is one."""
        self.socket.sendto(packet, (self.interface, 0x0800 if family == "ipv4" else 0x86DD, 0, 0, mac))


def link(left, left_name, right, right_name):
    """Joins two hosts by a virtual cable and brings both ends up."""
    run("ip", "link", "add", left_name, "netns", left.name, "type", "veth",
        "peer", "name", right_name, "netns", right.name)
    left.run("ip", "link", "set", "dev", left_name, "up")
    right.run("ip", "link", "set", "dev", right_name, "up")


class Process:
    """A program on a host, its output kept in a file."""

    def __init__(self, host, name, *words):
        self.name = name
        self.path = f"/run/{host.name}.{name}.log"
        with open(self.path, "a") as log:
            self.process = subprocess.Popen(host.words(*words), stdout=log, stderr=log, stdin=subprocess.DEVNULL)

    def output(self):
        with open(self.path) as log:
            return log.read()

    def alive(self):
        return self.process.poll() is None

    def kill(self, number=signal.SIGKILL):
        self.process.send_signal(number)
        self.process.wait(10)

    def stop(self):
        """Ends the program as an operator would and returns its exit status."""
        if self.alive():
            self.process.send_signal(signal.SIGTERM)
        return self.process.wait(10)


class Daemon(Process):
    """A daemon of the reference router, with the status file it writes on SIGUSR1."""

    def __init__(self, host, name, *words):
        self.status_path = f"/run/{host.name}.{name}.status"
        if os.path.exists(self.status_path):
            os.unlink(self.status_path)
        super().__init__(host, name, *words, "--status-file", self.status_path)

    def signal(self, number):
        """Sends a signal that the daemon reads from a descriptor; before it is blocked it would end the daemon."""
        def takes_it():
            with open(f"/proc/{self.process.pid}/status") as status:
                blocked = re.search(r"^SigBlk:\s*([0-9a-f]+)", status.read(), re.MULTILINE)
            return blocked and int(blocked.group(1), 16) >> (number - 1) & 1

        wait_for(lambda: not self.alive() or takes_it(), f"{self.name} taking signals", 5)
        self.process.send_signal(number)

    def reload(self):
        """Has the daemon read its configuration anew."""
        self.signal(signal.SIGHUP)

    def status(self):
        """A fresh status text."""
        before = os.stat(self.status_path).st_ino if os.path.exists(self.status_path) else 0
        self.signal(signal.SIGUSR1)

        def fresh():
            return os.path.exists(self.status_path) and os.stat(self.status_path).st_ino != before

        wait_for(fresh, f"a status file of {self.name}", 5)
        with open(self.status_path) as status:
            return status.read()


class Sender:
    """Sends numbered packets to groups, a few a second each."""

    def __init__(self, host, interface, groups, rate=50, source=None):
        words = ["python3", ENDPOINT, "send", interface, "--rate", str(rate)]
        if source:
            words += ["--source", source]
        self.process = Process(host, f"send-{interface}-{time.monotonic_ns()}", *words, *groups)

    def stop(self):
        self.process.kill()


class Receiver:
    """Joins a group on an interface and counts the packets that arrive, by source."""

    def __init__(self, host, interface, group, source=None, port=5000):
        words = ["python3", ENDPOINT, "receive", interface, group, "--port", str(port)]
        if source:
            words += ["--source", source]
        self.process = Process(host, f"receive-{interface}-{time.monotonic_ns()}", *words)

    def counts(self):
        """Packets so far by source address."""
        return {source: count for source, count in self.said().items() if ":" in source or "." in source}

    def repeated(self):
        """How many of them had come before."""
        return self.said().get("repeated", 0)

    def repeats_until(self, sent, timeout_s=20.0):
        """When the last packet that came twice was sent, once packets that were sent after the given time are here."""
        wait_for(lambda: self.said().get("newest_sent", 0) > sent, f"newer packets in {self.process.path}", timeout_s)
        return self.said().get("repeated_sent", 0)

    def missed(self):
        """How many packets did not come though later ones of their source did."""
        return self.said().get("missed", 0)

    def lost(self):
        """How many packets did not come, those before the first that did included."""
        said = self.said()
        return said.get("missed", 0) + said.get("late", 0)

    def said(self):
        lines = [line for line in self.process.output().splitlines() if line.endswith("}")]
        return json.loads(lines[-1]) if lines else {}

    def total(self):
        return sum(self.counts().values())

    def grows(self, timeout_s=20.0, by=5):
        """Waits until more packets have arrived."""
        start = self.total()
        wait_for(lambda: self.total() >= start + by, f"traffic in {self.process.path}", timeout_s)

    def stays(self, for_s=1.0):
        """True when nothing more arrives for a while."""
        start = self.total()
        time.sleep(for_s)
        return self.total() == start

    def leave(self):
        """Leaves the group in an orderly way and ends."""
        self.process.stop()


class Router(Host):
    """A host with the reference router's daemons."""

    def __init__(self, name):
        super().__init__(name, forwarding=True)

    def assert_agrees(self, mribd, timeout_s=20.0):
        """The kernel's forwarding cache becomes what mribd says it installed, in both families."""
        end = time.monotonic() + timeout_s
        while True:
            daemon = forwarded_by_daemon(mribd.status())
            kernel = forwarded_by_kernel(self.mroute("-4") + self.mroute("-6"))
            heard = {pair: (None, kernel[pair][1]) for pair, (incoming, _) in daemon.items()
                     if incoming is None and pair in kernel}
            if daemon == kernel | heard:
                return
            assert time.monotonic() < end, f"mribd says {daemon}, ip mroute {kernel}"

    def start_mribd(self, *options):
        return Daemon(self, "mribd", os.path.join(PROGRAMS, "mribd"), *options)

    def start_gmpd(self, family, *options):
        return Daemon(self, f"gmpd-{family}", os.path.join(PROGRAMS, "gmpd"), "--family", family, *options)


def forwarded_by_daemon(status):
    """What a status text of mribd says is in the kernel: (source, group): (incoming, set of outgoing). An entry
    that only drops, for want of a route to its source, is incoming where the kernel heard it: None here."""
    pattern = r"^  entry \((\S+), (\S+)\):(?: from (\S+)| no usable route to the source,) to (.*?), \d+ packets"
    return {(source, group): (incoming or None, set(outgoing.replace("nowhere", "").split()))
            for source, group, incoming, outgoing in re.findall(pattern, status, re.MULTILINE)}


def forwarded_by_kernel(lines):
    """The same from what ip mroute prints, unresolved entries left out."""
    pattern = r"\((\S+),\s*(\S+)\)\s+Iif: (\S+)\s+(?:Oifs: (.*?)\s+)?State: resolved"
    return {(source, group): (incoming, set(outgoing.split()))
            for source, group, incoming, outgoing in re.findall(pattern, "\n".join(lines))}


def take_programs():
    """Takes the folder of the daemons' programs, the first argument of every scenario, from the command line."""
    if len(sys.argv) < 2:
        sys.exit("usage: scripts/lab python3 SCENARIO PROGRAMS-FOLDER")
    return os.path.abspath(sys.argv.pop(1))


PROGRAMS = take_programs()


def matches(pattern, text):
    return re.search(pattern, text, re.MULTILINE) is not None
