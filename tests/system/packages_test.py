"""The Debian packages in a Debian of their own: installed by apt, started by the commands of their units as the units' user
with no more than the units' capabilities, a join routed, upgraded while packets flow, removed and purged.

      source                      router                        red
   10.1.0.2   eth0 ----- src    mribd, gmpd x 2    red ----- eth0   10.2.0.2      the router's programs are those of the
   fd00:1::2         10.1.0.1                    10.2.0.1           fd00:2::2     packages, in a root of their own

The test is what the units expect of a supervisor: it hears on the socket that each daemon tells that it is ready and lives.
BARE_ROOT in the environment names a Debian with what the packages depend on, as ./run test makes it.
"""

import configparser
import glob
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
import unittest

from lab import HERE, PROGRAMS, SKIPPED, Process, Receiver, Sender, needs, run, wait_for
from topology import Network

TOP = os.path.join(HERE, "..", "..")
BARE_ROOT = os.environ.get("BARE_ROOT", os.path.join(TOP, "build", "bare-root.tar"))
ROOT = "/run/root"
SERVICES = ("mribd", "gmpd@ipv4", "gmpd@ipv6")
GROUPS = {"ipv4": "239.1.1.1", "ipv6": "ff15::1"}
WATCHDOG_PERIOD = 5
# What dpkg, apt and the user database write down wherever something is installed.
NOTES = re.compile(r"/(var/(lib/(dpkg|apt|systemd)|cache|log|backups)|etc/(passwd|group|shadow|gshadow|subuid|subgid)-?|packages|etc/apt|"
                   r"proc|sys|dev|tmp|run)(/|$)")


def inside(*words, check=True):
    return run("chroot", ROOT, "env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive", *words,
               check=check)


def files():
    """Every path of the root that an installation is answerable for."""
    listing = run("find", ROOT, "-xdev", "-printf", "/%P\n").splitlines()
    return {path for path in listing if not NOTES.match(path)}


def repack(package, version, folder):
    """The package with another version, as if it had been built again."""
    os.makedirs("/run/repack", exist_ok=True)
    tree = f"/run/repack/{os.path.basename(package)}"
    run("dpkg-deb", "-R", package, tree)
    control = os.path.join(tree, "DEBIAN", "control")
    with open(control) as file:
        text = re.sub(r"^Version: .*$", f"Version: {version}", file.read(), flags=re.MULTILINE)
    with open(control, "w") as file:
        file.write(text)
    run("dpkg-deb", "--root-owner-group", "-Zgzip", "-b", tree, folder)


class Unit:
    """A service of the packages: its command, its rights, and the socket on which it says how it is."""

    def __init__(self, name):
        template = re.sub(r"@.*", "@", name)
        parser = configparser.ConfigParser(strict=False, interpolation=None)
        parser.optionxform = str
        parser.read(f"{ROOT}/lib/systemd/system/{template}.service")
        self.name = name
        self.service = parser["Service"]
        self.command = self.service["ExecStart"].replace("%i", name.partition("@")[2]).split()
        self.process = None
        self.said = []
        self.inlet = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.notify = f"/run/notify-{name}"
        self.inlet.bind(ROOT + self.notify)
        os.chmod(ROOT + self.notify, 0o777)
        self.inlet.setblocking(False)

    def start(self, router):
        capabilities = self.service["AmbientCapabilities"].lower().replace("cap_", "+").replace(" ", ",")
        assert self.service["AmbientCapabilities"] == self.service["CapabilityBoundingSet"]
        user = self.service["User"]
        self.said.clear()
        # What systemd does before it starts the command.
        self.process = Process(
            router, self.name, "chroot", ROOT, "setpriv", f"--reuid={user}", f"--regid={self.service['Group']}",
            "--clear-groups", f"--inh-caps=-all,{capabilities}", f"--ambient-caps=-all,{capabilities}",
            f"--bounding-set=-all,{capabilities}", "--no-new-privs", "env", "-i", self.service["Environment"],
            f"NOTIFY_SOCKET={self.notify}", f"WATCHDOG_USEC={WATCHDOG_PERIOD * 1000000}", *self.command)
        self.await_line("READY=1")

    def hear(self):
        while True:
            try:
                self.said += self.inlet.recv(4096).decode().splitlines()
            except BlockingIOError:
                return self.said

    def await_line(self, line):
        wait_for(lambda: line in self.hear() or not self.process.alive(), f"{line} of {self.name}", 60)
        assert self.process.alive(), self.process.output()[-2000:]

    def reload(self):
        self.said.clear()
        assert self.service["ExecReload"] == "/bin/kill -HUP $MAINPID"
        self.process.process.send_signal(signal.SIGHUP)
        self.await_line("RELOADING=1")
        self.await_line("READY=1")

    def capabilities(self):
        with open(f"/proc/{self.process.process.pid}/status") as status:
            return dict(re.findall(r"^(Cap\w+|NoNewPrivs|Uid):\s*(.*)$", status.read(), re.MULTILINE))


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        os.mkdir(ROOT)
        run("mount", "-t", "tmpfs", "root", ROOT)
        run("tar", "-C", ROOT, "-xf", BARE_ROOT)
        run("mount", "-t", "proc", "proc", f"{ROOT}/proc")
        for device in ("null", "zero", "random", "urandom"):
            run("touch", f"{ROOT}/dev/{device}")
            run("mount", "--bind", f"/dev/{device}", f"{ROOT}/dev/{device}")
        cls.play_service_manager()
        cls.made = "/run/packages"
        cls.build(cls.made)
        cls.network = Network(start=False)

    @staticmethod
    def play_service_manager():
        """What the packages' scripts say to one is written down."""
        os.makedirs(f"{ROOT}/run/systemd/system")
        os.unlink(f"{ROOT}/usr/bin/systemctl")
        with open(f"{ROOT}/usr/bin/systemctl", "w") as script:
            script.write("#!/bin/sh\necho \"$@\" >>/run/systemctl.log\n")
        os.chmod(f"{ROOT}/usr/bin/systemctl", 0o755)

    def told(self, action):
        """The units that the service manager was told to do this with since it was last asked."""
        path = f"{ROOT}/run/systemctl.log"
        if not os.path.exists(path):
            return set()
        with open(path) as log:
            lines = [line.split() for line in log]
        os.unlink(path)
        return {unit for words in lines if words[0] == action for unit in words[1:]}

    @staticmethod
    def build(folder):
        done = subprocess.run((os.path.join(TOP, "packaging", "build.sh"), folder, os.path.dirname(PROGRAMS)),
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        assert done.returncode == 0, done.stdout[-4000:]

    def offer(self, packages):
        """Makes them what apt finds, and nothing else."""
        folder = f"{ROOT}/packages"
        shutil.rmtree(folder, ignore_errors=True)
        os.mkdir(folder)
        for package in packages:
            shutil.copy(package, folder)
        with open(f"{folder}/Packages", "w") as index:
            subprocess.run(("dpkg-scanpackages", "-m", "."), cwd=folder, stdout=index, stderr=subprocess.DEVNULL, check=True)
        with open(f"{ROOT}/etc/apt/sources.list", "w") as sources:
            sources.write("deb [trusted=yes] file:/packages ./\n")
        inside("apt-get", "update", "-q")

    def ctl(self, *words):
        return run(*self.network.router.words("chroot", ROOT, "mcastctl", *words), check=False)

    def test_the_packages_are_installed_run_are_upgraded_and_leave_nothing(self):
        before = files()
        packages = glob.glob(f"{self.made}/*.deb")
        self.assertEqual(len(packages), 3)
        self.offer(packages)
        inside("apt-get", "install", "-q", "-y", "--no-install-recommends", "mcast-router")
        self.assertEqual(self.told("start") | self.told("restart"), set(), "what nobody has configured is not started")
        self.judge_units()
        self.assertIn("nothing is wrong", inside("mcastctl", "check", "/etc/mcast/router.toml"))
        units = [Unit(name) for name in SERVICES]
        self.run_them(units, packages)
        for unit in reversed(units):
            self.assertEqual(unit.process.stop(), 0, unit.process.output()[-2000:])
            self.assertIn("STOPPING=1", unit.hear())
        inside("apt-get", "purge", "-q", "-y", "mcast-router", "libmcastcommon1", "libmcasthost1")
        self.assertLessEqual({"mcast-router.target", "mribd.service", "gmpd@*.service"}, self.told("stop"))
        self.assertEqual(files() ^ before, set())
        with open(f"{ROOT}/etc/passwd") as users:
            self.assertNotIn("mcast:", users.read())

    def judge_units(self):
        names = [os.path.basename(path).replace("@.", "@ipv4.") for path in glob.glob(f"{ROOT}/lib/systemd/system/mcast*.target")
                 + [f"{ROOT}/lib/systemd/system/{name}.service" for name in ("mribd", "gmpd@", "pimsmd@", "msdpd")]]
        done = subprocess.run(("systemd-analyze", "verify", "--man=no", f"--root={ROOT}", *names), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        for name in names[1:]:
            # In tenths; with more it fails.
            text = run("systemd-analyze", "security", "--offline=true", f"--root={ROOT}", "--no-pager", "--threshold=25", name)
            print(text.splitlines()[-1])

    def run_them(self, units, packages):
        network = self.network
        os.mkdir(f"{ROOT}/run/mcast", 0o700)
        inside("chown", "mcast:mcast", "/run/mcast")
        for unit in units:
            unit.start(network.router)
        for unit in units:
            rights = unit.capabilities()
            user = inside("id", "-u", "mcast").strip()
            self.assertEqual(rights["Uid"].split(), [user] * 4)
            self.assertEqual(rights["NoNewPrivs"], "1")
            self.assertEqual(int(rights["CapEff"], 16), 1 << 12 | 1 << 13, unit.name)  # CAP_NET_ADMIN, CAP_NET_RAW
            self.assertEqual(rights["CapBnd"], rights["CapEff"])
        self.assertIn("yes", self.ctl("status"))
        receivers = {family: Receiver(network.hosts["red"], "eth0", group) for family, group in GROUPS.items()}
        Sender(network.hosts["source"], "eth0", GROUPS.values(), rate=100)
        for receiver in receivers.values():
            receiver.grows()
        for unit in units:
            unit.reload()
            unit.said.clear()
            unit.await_line("WATCHDOG=1")
        again = "/run/packages-again"
        os.mkdir(again)
        for package in packages:
            repack(package, "1.1.0+again", again)
        self.offer(glob.glob(f"{again}/*.deb"))
        inside("apt-get", "install", "-q", "-y", "mcast-router")
        self.assertIn("1.1.0+again", inside("dpkg-query", "-W", "mcast-router"))
        missed = {family: receiver.missed() for family, receiver in receivers.items()}
        self.assertEqual(set(missed.values()), {0}, "packets missed while files were replaced")
        self.assertLessEqual({"mribd.service", "gmpd@*.service"}, self.told("try-restart"))
        for unit in units:
            self.assertEqual(unit.process.stop(), 0, unit.process.output()[-2000:])
            unit.start(network.router)
        for family, receiver in receivers.items():
            receiver.grows(by=100)
            print(f"{family}: {receiver.missed()} packets of 100 a second missed while each daemon was started again")


if __name__ == "__main__":
    needs("dpkg-buildpackage", "dpkg-dev")
    needs("dh", "debhelper")
    needs("systemd-analyze", "systemd")
    if os.path.exists("/proc/self/uid_map") and "4294967295" not in open("/proc/self/uid_map").read():
        print("skipped: other users can be played by root only")
        sys.exit(SKIPPED)
    if not os.path.exists(BARE_ROOT):
        print("skipped: there is no Debian to install to, which ./run test makes (build/bare-root.tar)")
        sys.exit(SKIPPED)
    unittest.main()
