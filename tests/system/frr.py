"""FRRouting on a host: zebra and pimd with files of their own below one folder, asked by vtysh. A scenario that
imports this is skipped where the package is absent.
"""

import json
import os

from lab import Process, needs, run, wait_for

PROGRAMS = "/usr/lib/frr"
GROUPS = "/run/group"

needs(f"{PROGRAMS}/pimd", "frr")


def admit_root():
    """Its daemons insist on a user of a certain group; the laboratory's own group list makes root one."""
    if not os.path.exists(GROUPS):
        with open("/etc/group") as groups, open(GROUPS, "w") as copy:
            copy.writelines(line.rstrip("\n") + ",root\n" if line.startswith("frrvty:") else line for line in groups)
        run("mount", "--bind", GROUPS, "/etc/group")


class Frr:
    def __init__(self, host, configuration):
        self.host = host
        self.folder = f"/run/{host.name}.frr"
        self.daemons = []
        admit_root()
        os.mkdir(self.folder)
        for name, text in (("zebra", ""), ("pimd", configuration)):
            with open(self.path(f"{name}.conf"), "w") as file:
                file.write(text)
        self.start()

    def path(self, name):
        return os.path.join(self.folder, name)

    def start(self):
        """zebra first: pimd learns the interfaces from it."""
        for name in ("zebra", "pimd"):
            self.daemons.append(Process(
                self.host, name, f"{PROGRAMS}/{name}", "-u", "root", "-g", "root", "--vty_port", "0",
                "-f", self.path(f"{name}.conf"), "-i", self.path(f"{name}.pid"),
                "-z", self.path("zserv.api"), "--vty_socket", self.folder))
            wait_for(lambda n=name: os.path.exists(self.path(f"{n}.vty")), f"{name} of FRRouting running")

    def stop(self):
        """Ends both in an orderly way; start may follow."""
        for daemon in reversed(self.daemons):
            daemon.stop()
        self.daemons = []
        for name in ("zebra.vty", "pimd.vty"):
            if os.path.exists(self.path(name)):
                os.unlink(self.path(name))

    def kill(self):
        """Ends both without a word to anybody; start may follow."""
        for daemon in self.daemons:
            daemon.kill()
        self.stop()

    def vtysh(self, *commands, check=True):
        words = ["vtysh", "--vty_socket", self.folder, "-d", "pimd"]
        for command in commands:
            words += ["-c", command]
        return self.host.run(*words, check=check)

    def show(self, what):
        """The answer to a show command, which may fail while the daemon starts."""
        return self.vtysh(f"show {what}", check=False)

    def show_json(self, what):
        """The same as a value, empty while there is none."""
        try:
            return json.loads(self.show(f"{what} json"))
        except ValueError:
            return {}

    def configure(self, *commands):
        self.vtysh("configure terminal", *commands)
