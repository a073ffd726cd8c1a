"""What mribd tells its clients from its configuration file, and the exchange with an MSDP daemon (topology.py).

The MSDP daemon is msdp_client, which prints the library's view and reports remote sources on command.
"""

import signal
import unittest

from lab import Sender, matches, wait_for
from msdp_client import MsdpClient
from topology import Network

CONFIG = "/run/mrib_view.toml"
INSTANCE = '[[mribd.instance]]\nrp = "10.1.0.1"\n'
RED = '[[mribd.interface]]\nname = "red"\nboundaries = ["239.255.0.0/16"]\n'


class MribView(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(CONFIG, "w") as file:
            file.write(INSTANCE)
        cls.network = Network(start=False)
        router = cls.network.router
        cls.network.mribd = router.start_mribd("--config", CONFIG, "--idle-timeout", "1")
        for family in ("ipv4", "ipv6"):
            cls.network.gmpd[family] = router.start_gmpd(family, *cls.network.gmpd_options)
        cls.network.mribd.status()  # it takes signals from now on

    @classmethod
    def tearDownClass(cls):
        cls.network.assert_healthy()

    def setUp(self):
        self.configure(INSTANCE)

    def configure(self, text):
        """Has mribd take the text; returns once it answered the signal."""
        with open(CONFIG, "w") as file:
            file.write(text)
        mribd = self.network.mribd
        before = mribd.output().count("SIGHUP received")
        mribd.reload()
        wait_for(lambda: mribd.output().count("SIGHUP received") > before, "mribd taking SIGHUP")

    def status_shows(self, pattern, present=True):
        wait_for(lambda: matches(pattern, self.network.mribd.status()) == present,
                 f"{pattern} {'in' if present else 'gone from'} mribd's status")

    def test_reloaded_boundaries_follow_file_and_names(self):
        self.configure(INSTANCE + RED)
        self.status_shows(r"boundary red, instance 0: 239\.255\.0\.0/16")
        router = self.network.router
        router.run("ip", "link", "set", "red", "down")
        router.run("ip", "link", "set", "red", "name", "other")
        self.status_shows("boundary", present=False)
        self.status_shows("configured interface red: there is none")
        router.run("ip", "link", "set", "other", "name", "red")
        router.run("ip", "link", "set", "red", "up")
        self.status_shows("boundary red")
        self.configure(INSTANCE)
        self.status_shows("boundary", present=False)

    def test_wrong_file_is_refused_with_its_place_and_changes_nothing(self):
        self.configure(INSTANCE + RED)
        self.status_shows("boundary red")
        self.configure(INSTANCE + RED.replace("239.255.0.0/16", "10.0.0.0/8"))
        wait_for(lambda: f"{CONFIG}:5:15: boundary is" in self.network.mribd.output(), "the error with its place")
        self.status_shows("boundary red, instance 0: 239.255")

    def test_msdp_daemon_learns_policy_and_local_sources(self):
        client = MsdpClient(self.network.router)
        wait_for(lambda: "vrf 1, acl none" in client.view(), "the instance enabled at the client")
        sender = Sender(self.network.hosts["source"], "eth0", ["239.6.0.1"])
        local = "10.1.0.2>239.6.0.1@10.1.0.1"
        wait_for(lambda: local in client.view(), "the local source at the client")
        self.configure(INSTANCE.replace("10.1.0.1", "10.2.0.1") + "ssm_acl.ipv4 = 2001\n")
        wait_for(lambda: "acl 2001" in client.view(), "the new SSM policy at the client")
        # No list 2001 is loaded at the client: every group then counts as one of the source-specific range.
        self.configure(INSTANCE.replace("10.1.0.1", "10.2.0.1"))
        wait_for(lambda: "10.1.0.2>239.6.0.1@10.2.0.1" in client.view(), "the local source under the new RP")
        self.assertNotIn(local, client.view())
        self.configure(INSTANCE + "enabled = false\n")
        wait_for(lambda: client.view().startswith("show: vrf 0") and client.view().endswith("local"),
                 "the instance disabled at the client")
        self.configure(INSTANCE)
        wait_for(lambda: client.view().startswith("show: vrf 1") and local in client.view(), "all back")
        sender.stop()
        self.status_shows(r"local source \(10\.1\.0\.2, 239\.6\.0\.1\)", present=False)
        self.network.mribd.signal(signal.SIGUSR2)
        wait_for(lambda: client.view().endswith("local"), "the expired source gone from the client")
        self.assertEqual(client.stop(), 0)

    def test_replay_reaches_clients_that_come_late_or_are_told_to_ask_again(self):
        sender = Sender(self.network.hosts["source"], "eth0", ["239.6.0.2"])
        self.status_shows(r"local source \(10\.1\.0\.2, 239\.6\.0\.2\): rp 10\.1\.0\.1")
        client = MsdpClient(self.network.router)
        wait_for(lambda: "10.1.0.2>239.6.0.2@10.1.0.1" in client.view(), "the replayed source")
        wait_for(lambda: "replays 1" in client.view(), "the end of the replay")
        self.network.mribd.signal(signal.SIGUSR2)
        wait_for(lambda: "replays 2" in client.view(), "the end of the second replay")
        self.assertIn("10.1.0.2>239.6.0.2@10.1.0.1", client.view())
        sender.stop()
        self.assertEqual(client.stop(), 0)

    def test_remote_sources_left_out_of_a_bracket_are_dropped(self):
        client = MsdpClient(self.network.router)
        wait_for(lambda: "vrf 1" in client.view(), "the client connected")
        client.command("remote 239.7.0.1 192.0.2.1")
        client.command("remote 239.7.0.2 192.0.2.2")
        client.command("remote 239.7.0.3 192.0.2.3")
        client.command("delete 239.7.0.3 0.0.0.0")
        client.command("enable")
        self.status_shows("msdp instance 0: requests enabled encapsulated data enabled")
        self.status_shows(r"remote source \(192\.0\.2\.1, 239\.7\.0\.1\)")
        self.status_shows(r"239\.7\.0\.3", present=False)
        self.assertEqual(client.stop(), 0)
        self.status_shows("component 7", present=False)
        self.status_shows(r"remote source \(192\.0\.2\.1, 239\.7\.0\.1\)")
        client = MsdpClient(self.network.router)
        wait_for(lambda: "vrf 1" in client.view(), "the client connected again")
        client.command("resend 239.7.0.2 192.0.2.2")
        self.status_shows(r"239\.7\.0\.1", present=False)
        self.status_shows(r"remote source \(192\.0\.2\.2, 239\.7\.0\.2\)")
        self.assertEqual(client.stop(), 0)


if __name__ == "__main__":
    unittest.main()
