"""Runs the built examples inside scripts/lab: examples_run.py PROGRAMS TREE SUFFIX.

PROGRAMS is the folder with the examples, SUFFIX what ends their names, TREE the installed tree whose mribd and mcastctl
they meet.
"""

import json
import os
import pathlib
import signal
import subprocess
import sys

PROGRAMS, TREE, SUFFIX = sys.argv[1:]
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))
from lab import run, wait_for  # noqa: E402

GROUP = "239.1.2.3"
SOURCE = "10.0.0.9"


class Program:
    """A program that runs until it is told to stop, with the lines that it has printed."""

    def __init__(self, path, *arguments):
        self.log = open(f"/run/{pathlib.Path(path).name}.log", "a+")
        self.process = subprocess.Popen([path, *arguments], stdout=self.log, stderr=subprocess.STDOUT)

    def lines(self):
        with open(self.log.name) as log:
            return log.read().splitlines()

    def prints(self, text, times=1):
        wait_for(lambda: sum(text in line for line in self.lines()) >= times, f"{self.log.name}: {text!r} {times} times")

    def stop(self):
        """Told to stop it ends well."""
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(20)
        assert status == 0, f"{self.log.name}: exit {status}"

    def kill(self):
        self.process.kill()
        self.process.wait()


def example(name):
    return os.path.join(PROGRAMS, name + SUFFIX)


def route_table():
    commands = ["add 239.0.0.0/8", "add 239.1.0.0/16 1", "add 239.1.2.0/24 600", "add ff3e::/32 1", "match 239.1.2.3",
                "match 239.1.9.9", "match 239.9.9.9", "match 224.1.1.1", "match ff3e::1", "delete 239.1.2.0/23", "match 239.1.2.3",
                "add 239.2.0.0/16 600", "add 239.2.0.0/16 1", "add 239.3.0.0/16 600", "add 239.3.0.0/16", "nonsense", "show"]
    done = subprocess.run([example("route_table")], input="\n".join(commands) + "\n", text=True, capture_output=True,
                          timeout=60, check=True)
    lines = done.stdout.splitlines()
    expected = ["match 239.1.2.0/24", "match 239.1.0.0/16", "match 239.0.0.0/8", "match nothing", "match ff3e::/32",
                "delete 239.1.2.0/24", "match 239.1.0.0/16", "not understood, or no memory: nonsense", "show 239.0.0.0/8",
                "show 239.1.0.0/16", "show 239.2.0.0/16", "show 239.3.0.0/16", "show ff3e::/32"]
    assert lines[:len(expected)] == expected, lines
    assert sorted(lines[len(expected):]) == ["aged 239.1.0.0/16", "aged 239.2.0.0/16", "aged ff3e::/32"], lines


def user_service():
    service = Program(example("user_service"))
    service.prints("ready")

    def agent(*words):
        run(example("user_agent"), *words)

    agent("announce", "7", "10.0.0.7", "239.1.1.1", "239.1.1.2")
    service.prints("online: user 7 of node 3 behind interface 7, address 10.0.0.7, may join 239.1.1.1 239.1.1.2")
    agent("announce", "7", "10.0.0.7", "239.1.1.2")
    service.prints("changed: user 7 of node 3, lost entries, may join 239.1.1.2")
    agent("withdraw", "7")
    service.prints("offline: user 7 of node 3")
    service.stop()


def members():
    done = subprocess.run([f"{TREE}/bin/mcastctl", "show", "members", "--json"], text=True, capture_output=True, check=False)
    rows = json.loads(done.stdout) if done.returncode == 0 and done.stdout.strip() else []
    return [(row["interface"], row["source"], row["group"]) for row in rows]


def clients():
    """Both survive the death of mribd, and what the one said is known again."""
    run("ip", "link", "add", "eth1", "type", "veth", "peer", "name", "far")
    run("ip", "link", "set", "far", "up")
    run("ip", "address", "add", "10.0.0.1/24", "dev", "eth1")
    run("ip", "link", "set", "eth1", "up", "multicast", "on")
    client = Program(example("group_client"), "eth1", GROUP, SOURCE)
    watcher = Program(example("own_loop"))
    for start in range(1, 3):
        mribd = Program(f"{TREE}/sbin/mribd")
        client.prints("connected", start)
        watcher.prints("connected", start)
        wait_for(lambda: members() == [("eth1", SOURCE, GROUP)], "the member of the client")
        client.prints(": is designated router", start)
        watcher.prints("instance 0: multicast enabled", start)
        watcher.prints(": designated router here", start)
        if start == 1:
            mribd.kill()
            client.prints("disconnected")
            watcher.prints("disconnected")
    mribd.process.send_signal(signal.SIGUSR2)
    client.prints("asked for everything again")
    wait_for(lambda: members() == [("eth1", SOURCE, GROUP)], "the member after everything was said again")
    client.stop()
    wait_for(lambda: members() == [], "no member of a client that is gone")
    watcher.stop()
    mribd.stop()


route_table()
user_service()
clients()
