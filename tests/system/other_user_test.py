"""The daemons run as a user without more rights than they need; mcastctl of root finds them, and is told whose when there
are two users' (one router, no links).
"""

import os
import shutil
import subprocess
import sys
import unittest

from lab import PROGRAMS, SKIPPED, Daemon, Router, needs, wait_for

MCASTCTL = os.path.join(PROGRAMS, "mcastctl")
USERS = (65534, 65533)
SERVICE_USER = 65532
FOR_ALL = "/run/programs"  # the tree may lie where only its owner may look


def runtime_dir(uid, path=None):
    path = path or f"/run/mcast-{uid}"
    os.mkdir(path, 0o700)
    os.chown(path, uid, uid)


class OtherUser(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router = Router("router")
        os.mkdir(FOR_ALL, 0o755)
        libraries = os.path.join(PROGRAMS, "..", "lib")
        for path in ([os.path.join(PROGRAMS, name) for name in ("mribd", "gmpd")]
                     + [os.path.join(libraries, name) for name in os.listdir(libraries) if name.endswith(".so.1")]):
            os.chmod(shutil.copy(path, FOR_ALL), 0o755)

    def start(self, uid, program, *options):
        words = ("setpriv", f"--reuid={uid}", f"--regid={uid}", "--clear-groups", "--inh-caps=+net_admin,+net_raw",
                 "--ambient-caps=+net_admin,+net_raw", "env", f"LD_LIBRARY_PATH={FOR_ALL}",
                 os.path.join(FOR_ALL, program), *options)
        return Daemon(self.router, f"{program}-{uid}", *words)

    def ctl(self, *words):
        done = subprocess.run(self.router.words(MCASTCTL, *words), stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False, timeout=60)
        return done.returncode, done.stdout

    def running(self, daemon, family, *options):
        row = [line.split() for line in self.ctl(*options, "status")[1].splitlines() if line.startswith(daemon)]
        return any(words[1:3] == [family, "yes"] for words in row)

    def test_root_finds_the_daemons_of_other_users(self):
        for uid in USERS:
            runtime_dir(uid)
        first = self.start(USERS[0], "mribd")
        wait_for(lambda: self.running("mribd", "-"), "root seeing mribd of another user", 60)
        code, text = self.ctl("show", "counters", "--all")
        self.assertIn("control_connections", text)
        self.assertNotIn("mribd is not ready", text)
        self.assertTrue(self.running("mribd", "-", "--user", str(USERS[0])))
        second = self.start(USERS[1], "gmpd", "--family", "ipv4")
        wait_for(lambda: self.running("gmpd", "ipv4", "--user", str(USERS[1])), "the second user's gmpd", 60)
        code, text = self.ctl("status")
        self.assertEqual(code, 1)
        self.assertIn("several users", text)
        self.assertEqual(self.ctl("--user", "nobody-of-this-name", "status")[0], 1)
        own = self.router.start_gmpd("ipv6")
        wait_for(lambda: self.running("gmpd", "ipv6"), "root's own first", 60)
        for daemon in (first, second, own):
            self.assertEqual(daemon.stop(), 0, daemon.output()[-2000:])

    def test_a_folder_that_was_made_for_a_user_is_its_place_and_nobody_elses(self):
        runtime_dir(SERVICE_USER, "/run/mcast")
        mribd = self.start(SERVICE_USER, "mribd")
        wait_for(lambda: self.running("mribd", "-"), "root seeing the service's mribd", 60)
        self.assertTrue(self.running("mribd", "-", "--user", str(SERVICE_USER)))
        self.assertEqual(len(os.listdir("/run/mcast")), 1)
        self.assertFalse(os.path.exists(f"/run/mcast-{SERVICE_USER}"))
        gmpd = self.router.start_gmpd("ipv6")
        wait_for(lambda: self.running("gmpd", "ipv6", "--user", "root"), "root's gmpd in a folder of its own", 60)
        for daemon in (gmpd, mribd):
            self.assertEqual(daemon.stop(), 0, daemon.output()[-2000:])


if __name__ == "__main__":
    needs("setpriv", "util-linux")
    with open("/proc/self/uid_map") as ids:
        if sum(int(line.split()[2]) for line in ids) < USERS[0]:
            print("skipped: other users can be played by root only")
            sys.exit(SKIPPED)
    unittest.main()
