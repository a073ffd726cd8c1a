"""The network that most scenarios share.

      source                      router                        red
   10.1.0.2   eth0 ----- src    mribd, gmpd x 2    red ----- eth0   10.2.0.2
   fd00:1::2         10.1.0.1                    10.2.0.1           fd00:2::2
                                                   blue ---- eth0   10.3.0.2
                                                 10.3.0.1    blue   fd00:3::2
"""

from lab import Host, Router, link

# Hosts answer within a second, and are believed for minutes.
GMPD_OPTIONS = ("--last-member-interval", "1", "--query-response-interval", "1")


class Network:
    """The router with its daemons running and the three hosts around it."""

    def __init__(self, gmpd_options=GMPD_OPTIONS, start=True, prefix=""):
        """The prefix tells the namespaces of one network from those of another beside it."""
        self.prefix = prefix
        self.router = Router(prefix + "router")
        self.hosts = {}
        for number, name in ((1, "source"), (2, "red"), (3, "blue")):
            self.hosts[name] = self.attach(name, number)
        self.gmpd_options = gmpd_options
        self.mribd = None
        self.gmpd = {}
        if start:
            self.start()

    def attach(self, name, number):
        """A host of its own segment: NAME on the router's side, eth0 on the host's."""
        host = Host(self.prefix + name)
        port = "src" if name == "source" else name
        link(self.router, port, host, "eth0")
        self.router.address(port, f"10.{number}.0.1/24", f"fd00:{number}::1/64")
        host.address("eth0", f"10.{number}.0.2/24", f"fd00:{number}::2/64")
        host.route("default", "via", f"10.{number}.0.1")
        host.route("default", "via", f"fd00:{number}::1")
        return host

    def start(self):
        self.mribd = self.router.start_mribd()
        for family in ("ipv4", "ipv6"):
            self.gmpd[family] = self.router.start_gmpd(family, *self.gmpd_options)

    def daemons(self):
        return [self.mribd, *self.gmpd.values()]

    def assert_healthy(self):
        """Every daemon runs, forwards what it says, and ends cleanly when asked to."""
        for daemon in self.daemons():
            assert daemon.alive(), f"{daemon.name} died: {daemon.output()[-2000:]}"
        self.router.assert_agrees(self.mribd)
        for daemon in reversed(self.daemons()):
            status = daemon.stop()
            assert status == 0, f"{daemon.name} ended with {status}: {daemon.output()[-2000:]}"
        left = self.router.mroute("-4") + self.router.mroute("-6")
        assert not left, f"entries left in the kernel: {left}"
