"""mcastctl watch beside the daemons that it listens in on (topology.py)."""

import os
import signal
import unittest

from lab import PROGRAMS, Process, Sender, wait_for
from topology import Network

CONFIG = "/run/watch.toml"
INSTANCE = '[[mribd.instance]]\nrp = "10.1.0.1"\n'
INTERFACES = """
[[mribd.interface]]
name = "red"
dr = false
boundaries = ["239.255.0.0/16", "ff15::/16"]
[[mribd.interface]]
name = "blue"
boundaries = ["239.254.0.0/16"]
"""


class Watch(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(CONFIG, "w") as file:
            file.write(INSTANCE)
        cls.network = Network(start=False)
        cls.network.mribd = cls.network.router.start_mribd("--config", CONFIG, "--idle-timeout", "1")
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = cls.network.router.start_gmpd(family, *cls.network.gmpd_options)
        wait_for(lambda: cls.network.mribd.status().count("designated router: red") == 2, "this router designated")

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def setUp(self):
        self.configure(INSTANCE)
        self.watches = []

    def tearDown(self):
        for watch in self.watches:
            self.assertEqual(watch.stop(), 0, watch.output())
        self.status_has("component 16", 0)

    def configure(self, text):
        with open(CONFIG, "w") as file:
            file.write(text)
        mribd = self.network.mribd
        before = mribd.output().count("SIGHUP received")
        mribd.reload()
        wait_for(lambda: mribd.output().count("SIGHUP received") > before, "mribd taking SIGHUP")

    def status_has(self, text, count):
        wait_for(lambda: self.network.mribd.status().count(text) == count, f"{text} {count} times in mribd's status")

    def watch(self, *words):
        """A running watch, its output begun afresh, once mribd knows it."""
        path = f"/run/router.watch{len(self.watches)}.log"
        if os.path.exists(path):
            os.unlink(path)
        watch = Process(self.network.router, f"watch{len(self.watches)}", os.path.join(PROGRAMS, "mcastctl"), "watch",
                        *words)
        self.watches.append(watch)
        wait_for(lambda: f"component 16, events" in self.network.mribd.status(), "the watch registered")
        return watch

    def shows(self, watch, *lines):
        for line in lines:
            wait_for(lambda: line in watch.output().splitlines(), f"{line} in {watch.output()}")

    def test_what_holds_and_what_changes(self):
        watch = self.watch()
        self.shows(watch, "ipv4: instance 0: enabled", "ipv4: source-specific range, instance 0: the default one",
                   "ipv4: designated router on red, instance 0: this one", "ipv4: end of designated routers",
                   "ipv6: designated router on blue, instance 0: this one", "ipv6: end of boundaries",
                   "ipv4: end of local sources")
        self.assertNotIn("boundary", watch.output())
        self.assertNotIn("ipv6: end of local sources", watch.output())
        self.configure(INSTANCE + "ssm_acl = { ipv4 = 2001 }\n" + INTERFACES)
        self.shows(watch, "ipv4: source-specific range, instance 0: access list 2001",
                   "ipv4: designated router on red, instance 0: not this one",
                   "ipv4: boundary 239.255.0.0/16 on red, instance 0: added",
                   "ipv4: boundary 239.254.0.0/16 on blue, instance 0: added",
                   "ipv6: boundary ff15::/16 on red, instance 0: added")
        sender = Sender(self.network.hosts["source"], "eth0", ["239.6.0.1"])
        self.shows(watch, "ipv4: local source (10.1.0.2, 239.6.0.1), instance 0, rp 10.1.0.1: added")
        sender.stop()
        self.shows(watch, "ipv4: local source (10.1.0.2, 239.6.0.1), instance 0, rp 10.1.0.1: removed")
        self.configure(INSTANCE)
        self.shows(watch, "ipv6: boundaries on red, instance 0: all removed")

    def test_only_what_was_asked_for(self):
        watch = self.watch("boundaries", "--family", "ipv4", "--interface", "red", "--changes")
        self.status_has("component 16, events 0x2,", 1)
        self.configure(INSTANCE + INTERFACES)
        self.shows(watch, "ipv4: boundary 239.255.0.0/16 on red, instance 0: added")
        self.configure(INSTANCE)
        self.shows(watch, "ipv4: boundaries on red, instance 0: all removed")
        self.assertEqual(len(watch.output().splitlines()), 2, watch.output())

    def test_two_watches_do_not_disturb_each_other(self):
        first = self.watch("boundaries", "--family", "ipv6", "--time")
        second = self.watch("instances", "--family", "ipv6", "--changes")
        self.status_has("component 16, events 0x2,", 1)
        self.status_has("component 16, events 0x1,", 1)
        self.configure(INSTANCE + "enabled = false\n")
        self.shows(second, "ipv6: instance 0: disabled")
        self.assertRegex(first.output(), r"(?m)^\d\d:\d\d:\d\d\.\d{3} ipv6: end of boundaries$")
        self.assertNotIn("instance 0: disabled", first.output())

    def test_mribd_goes_and_comes_back(self):
        watch = self.watch("designated-router")
        self.shows(watch, "ipv4: end of designated routers", "ipv6: end of designated routers")
        self.network.mribd.signal(signal.SIGUSR2)
        self.shows(watch, "ipv6: mribd asks to read everything again")
        wait_for(lambda: watch.output().count("ipv6: end of designated routers") == 2, "the second answer")
        self.network.mribd.kill()
        self.shows(watch, "ipv4: mribd is gone", "ipv6: mribd is gone",
                   "mcastctl: mribd cannot be reached, trying every second")
        self.network.mribd = self.network.router.start_mribd("--config", CONFIG, "--idle-timeout", "1")
        for family in ("ipv4", "ipv6"):
            wait_for(lambda: watch.output().count(f"{family}: end of designated routers") >= 2, "a new answer")
        self.network.mribd.status()


if __name__ == "__main__":
    unittest.main()
