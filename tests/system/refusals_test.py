"""What the daemons refuse, and how clearly: second daemons, foreign users, wrong arguments, missing peers.

One router without neighbours; no traffic.
"""

import json
import os
import signal
import subprocess
import unittest

from lab import PROGRAMS, Process, Router, wait_for


class Refusals(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router = Router("router")

    def run_program(self, *words, timeout=10):
        return subprocess.run(self.router.words(*words), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=timeout, check=False)

    def program(self, name):
        return os.path.join(PROGRAMS, name)

    def test_second_mribd_fails_and_says_why(self):
        first = self.router.start_mribd()
        wait_for(lambda: "in use" not in first.output() and first.alive(), "the first running")
        first.status()
        second = self.run_program(self.program("mribd"))
        self.assertNotEqual(second.returncode, 0)
        self.assertRegex(second.stdout, r"(?i)in use|already|another")
        self.assertTrue(first.alive())
        self.assertEqual(first.stop(), 0)

    def test_second_gmpd_fails_before_it_says_anything(self):
        mribd, first = self.router.start_mribd(), self.router.start_gmpd("ipv4")
        wait_for(lambda: json.loads(first.status())["mrib_connected"], "the first connected")
        second = self.run_program(self.program("gmpd"), "-4")
        self.assertNotEqual(second.returncode, 0)
        self.assertIn("another gmpd of the family is active in this network namespace", second.stdout)
        self.assertNotIn("started", second.stdout)
        self.assertIn("client 1:", mribd.status())
        self.assertNotIn("client 2", mribd.output())
        for daemon in (first, mribd):
            self.assertEqual(daemon.stop(), 0)

    def test_killed_mribd_leaves_nothing_that_blocks_the_next(self):
        for _ in range(3):
            daemon = self.router.start_mribd()
            daemon.status()
            daemon.kill(signal.SIGKILL)
        daemon = self.router.start_mribd()
        daemon.status()
        self.assertEqual(daemon.stop(), 0)

    def test_gmpd_without_mribd_waits_for_it(self):
        gmpd = self.router.start_gmpd("ipv4")
        self.assertFalse(json.loads(gmpd.status())["mrib_connected"])
        mribd = self.router.start_mribd()
        wait_for(lambda: json.loads(gmpd.status())["mrib_connected"], "gmpd connected")
        self.assertEqual(gmpd.stop(), 0)
        self.assertEqual(mribd.stop(), 0)

    def test_sigint_ends_cleanly(self):
        for daemon in (self.router.start_mribd(), self.router.start_gmpd("ipv6")):
            daemon.status()
            daemon.process.send_signal(signal.SIGINT)
            self.assertEqual(daemon.process.wait(10), 0)

    def test_wrong_arguments_are_named(self):
        for words, named in (
            (("gmpd", "--family", "ipx"), "family"),
            (("gmpd", "--family", "ipv4", "--robustness", "0"), "robustness"),
            (("gmpd", "--family", "ipv4", "--query-interval", "x"), "query-interval"),
            (("mribd", "--log-level", "loud"), "log-level"),
            (("mribd", "--no-such-option"), "no-such-option"),
            (("gmpd", "--family", "ipv4", "surplus"), "surplus"),
        ):
            with self.subTest(words=words):
                done = self.run_program(self.program(words[0]), *words[1:])
                self.assertNotEqual(done.returncode, 0)
                self.assertIn(named, done.stdout)

    def test_help_is_given(self):
        for name in ("mribd", "gmpd"):
            done = self.run_program(self.program(name), "--help")
            self.assertEqual(done.returncode, 0)
            self.assertIn("--log-level", done.stdout)

    def test_kernel_routing_socket_held_by_another_program(self):
        holder = Process(self.router, "holder", "python3", "-c",
                         "import socket, time\n"
                         "s = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP)\n"
                         "s.setsockopt(socket.IPPROTO_IP, 200, 1)\n"
                         "print('held', flush=True)\n"
                         "time.sleep(60)\n")
        wait_for(lambda: "held" in holder.output(), "the routing socket held")
        done = self.run_program(self.program("mribd"))
        self.assertNotEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"(?i)another|held|holds|in use")
        holder.kill()


if __name__ == "__main__":
    unittest.main()
