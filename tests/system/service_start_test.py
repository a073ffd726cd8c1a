"""gmpd has mribd started: once, whoever else tries; it outlives gmpd, leaves no zombie, and is started again.

The network of topology.py with unicast forwarding off, which multicast does not need.
"""

import os
import signal
import subprocess
import sys
import time
import unittest

from lab import PROGRAMS, Process, Receiver, Sender, wait_for
from topology import GMPD_OPTIONS, Network

CONFIG = "/run/router.toml"
BROKEN = "/run/broken.toml"
STATUS = "/run/started.mribd.status"
GROUP4, GROUP6 = "239.4.0.1", "ff1e::4:1"
RUNNING, STOPPED = 2, 3

# Prints the state that the service manager of a process of its own gives.
ASK = """
import ctypes, sys
host = ctypes.CDLL(sys.argv[1])
state = ctypes.c_uint32(99)
assert host.HOST_ConfigLoad(sys.argv[2].encode(), None, None, 0) == 0
assert host.SERVICE_GetStatus(0, ctypes.c_uint64(1), 0, ctypes.byref(state)) == 0
print(state.value)
"""


def write_config(path, *command):
    words = ", ".join(f'"{word}"' for word in command)
    with open(path, "w") as file:
        file.write(f"[[service]]\nid = 1\nname = \"mribd\"\nport = 2201\ncommand = [{words}]\n")


def processes(name):
    """The processes of this name, zombies among them, and their parents."""
    found = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat") as stat:
                head, tail = stat.read().rsplit(")", 1)
        except (FileNotFoundError, ProcessLookupError):
            continue
        if head.split("(", 1)[1] == name:
            found[int(pid)] = int(tail.split()[1])
    return found


class ServiceStart(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        write_config(CONFIG, os.path.join(PROGRAMS, "mribd"), "--config", CONFIG, "--status-file", STATUS)
        cls.network = Network(start=False)
        cls.router = cls.network.router
        cls.router.sysctl("net.ipv4.ip_forward", 0)
        cls.router.sysctl("net.ipv6.conf.all.forwarding", 0)
        cls.sender = Sender(cls.network.hosts["source"], "eth0", [GROUP4, GROUP6])
        cls.receivers = [Receiver(cls.network.hosts["red"], "eth0", group) for group in (GROUP4, GROUP6)]

    def setUp(self):
        self.gmpd = {}

    def tearDown(self):
        for daemon in self.gmpd.values():
            self.assertEqual(daemon.stop(), 0, daemon.output()[-2000:])
        for pid in processes("mribd"):
            self.end_orphan(pid)

    def end_orphan(self, pid):
        """Ends a daemon whose parent has gone. This process is the laboratory's init, so it takes it over."""
        os.kill(pid, signal.SIGTERM)
        self.assertEqual(os.waitpid(pid, 0)[1], 0)

    def start_gmpd(self, family, config=CONFIG):
        """A gmpd with a log of its own."""
        log = f"/run/{self.router.name}.gmpd-{family}.log"
        if os.path.exists(log):
            os.unlink(log)
        self.gmpd[family] = self.router.start_gmpd(family, *GMPD_OPTIONS, "--query-interval", "5",
                                                   "--config", config, "--start-mribd")
        return self.gmpd[family]

    def mribd(self):
        """The one mribd that runs, and its parent."""
        found = processes("mribd")
        self.assertEqual(len(found), 1, found)
        return next(iter(found.items()))

    def state(self, config=CONFIG):
        library = os.path.join(PROGRAMS, "..", "lib", "libmcasthost.so.1")
        return int(self.router.run(sys.executable, "-c", ASK, library, config))

    def assert_traffic(self):
        for receiver in self.receivers:
            receiver.grows(by=20)

    def await_state(self, state):
        wait_for(lambda: self.state() == state, f"state {state}")

    def test_both_gmpd_start_one_mribd_and_traffic_flows(self):
        self.assertEqual(processes("mribd"), {})
        self.start_gmpd("ipv4")
        self.start_gmpd("ipv6")
        self.assert_traffic()
        pid, parent = self.mribd()
        self.assertIn(parent, [daemon.process.pid for daemon in self.gmpd.values()])
        self.assertEqual(self.state(), RUNNING)
        for daemon in self.gmpd.values():
            self.assertRegex(daemon.output(), "mribd answers|not ready yet")  # the latter on a slow machine

        # Killed, it is seen as stopped, is no zombie, and nobody starts it again.
        os.kill(pid, signal.SIGKILL)
        self.await_state(STOPPED)
        wait_for(lambda: not processes("mribd"), "mribd reaped")
        time.sleep(1.5)
        self.assertEqual(processes("mribd"), {})

        # A gmpd that is started anew starts it anew, and the other one finds it.
        self.assertEqual(self.gmpd["ipv4"].stop(), 0)
        self.start_gmpd("ipv4")
        self.assert_traffic()
        again, parent = self.mribd()
        self.assertNotEqual(again, pid)
        self.assertEqual(parent, self.gmpd["ipv4"].process.pid)

        # It outlives the gmpd that started it.
        self.assertEqual(self.gmpd["ipv4"].stop(), 0)
        self.assertEqual(self.mribd(), (again, os.getpid()))
        self.assertEqual(self.state(), RUNNING)
        self.receivers[1].grows(by=20)

    def test_mribd_that_somebody_else_started_is_found(self):
        mribd = self.router.start_mribd()
        mribd.status()
        self.assertEqual(self.state(), RUNNING)
        gmpd = self.start_gmpd("ipv4")
        wait_for(lambda: "mribd answers" in gmpd.output(), "mribd found")
        self.assertEqual(self.mribd()[0], mribd.process.pid)
        self.assertEqual(mribd.stop(), 0)

    def test_service_that_cannot_be_started_is_told_and_gmpd_goes_on(self):
        write_config(BROKEN, "/nonexistent/mribd")
        gmpd = self.start_gmpd("ipv4", BROKEN)
        wait_for(lambda: "mribd (service 1, local port 2201) does not answer" in gmpd.output(), "the warning")
        self.assertIn("could not be run", gmpd.output())
        with open(BROKEN, "w") as file:
            file.write("")
        gmpd = self.start_gmpd("ipv6", BROKEN)
        wait_for(lambda: "does the configuration file name it as a [[service]]?" in gmpd.output(), "the warning")
        for daemon in self.gmpd.values():
            daemon.status()

    def test_start_without_a_configuration_file_is_refused(self):
        done = subprocess.run(self.router.words(os.path.join(PROGRAMS, "gmpd"), "--start-mribd"), text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=10, check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("--start-mribd: needs a configuration file", done.stdout)

    def test_mribd_says_what_forwarding_lacks(self):
        mribd = Process(self.router, "denied", "setpriv", "--bounding-set=-net_raw", "--inh-caps=-net_raw",
                        os.path.join(PROGRAMS, "mribd"))
        self.assertNotEqual(mribd.process.wait(10), 0)
        self.assertIn("multicast forwarding: no permission for IPv4 multicast routing (CAP_NET_RAW); "
                      "no permission for IPv6 multicast routing (CAP_NET_RAW)", mribd.output())

    def test_instance_without_a_vpn_is_told(self):
        path = "/run/instance.toml"
        with open(path, "w") as file:
            file.write("[[vpn]]\nname = \"red\"\nindex = 5\n[[mribd.instance]]\nvrf = 5\n[[mribd.instance]]\nvrf = 6\n")
        mribd = self.router.start_mribd("--config", path)
        mribd.status()
        self.assertIn("instance 6 of [[mribd.instance]] is not a [[vpn]]", mribd.output())
        self.assertNotIn("instance 5 of", mribd.output())
        self.assertNotIn("multicast forwarding:", mribd.output())
        self.assertEqual(mribd.stop(), 0)


if __name__ == "__main__":
    unittest.main()
