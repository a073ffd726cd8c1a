"""Two VPN instances of one router with everything the same in both: addresses, groups, sources.

      red-source ---- red-src            red-out ---- red-host
      10.1.0.2        10.1.0.1           10.2.0.1     10.2.0.2
      fd00:1::2             \\           /             fd00:2::2
                             router      mribd, gmpd x 2
      10.1.0.2              /           \\             10.2.0.2
      fd00:1::2       10.1.0.1           10.2.0.1     fd00:2::2
      blue-source --- blue-src           blue-out --- blue-host

Which sender a receiver hears shows when one of them is silent; which way the kernel forwards, in the multicast table of
each instance.
"""

import unittest

from lab import Host, Receiver, Router, Sender, forwarded_by_kernel, link, matches, wait_for
from topology import GMPD_OPTIONS

CONFIG = "/run/vpn_instances.toml"
TABLES = {"red": 5, "blue": 6}
SOURCES = {"-4": "10.1.0.2", "-6": "fd00:1::2"}
ANY_SOURCE = {"-4": "239.14.0.1", "-6": "ff1e::14:1"}
ONE_SOURCE = {"-4": "232.14.0.1", "-6": "ff3e::14:1"}
GROUPS = [*ANY_SOURCE.values(), *ONE_SOURCE.values()]


def instances(members=None, settings=""):
    """The file: which interfaces are in an instance, and mribd's settings for the instances."""
    members = members or {name: [f"{name}-src", f"{name}-out"] for name in TABLES}
    vpns = [f'[[vpn]]\nname = "{name}"\nindex = {TABLES[name]}\ninterfaces = {ports}\n'
            for name, ports in members.items()]
    return "".join(vpns) + "[[mribd.instance]]\nvrf = 6\n[[mribd.instance]]\nvrf = 5\n" + settings


class VpnInstances(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.router = Router("router")
        cls.hosts = {}
        for name in TABLES:
            for number, role, port in ((1, "source", "src"), (2, "host", "out")):
                host = cls.hosts[f"{name}-{role}"] = Host(f"{name}-{role}")
                link(cls.router, f"{name}-{port}", host, "eth0")
                cls.router.address(f"{name}-{port}", f"10.{number}.0.1/24", f"fd00:{number}::1/64")
                host.address("eth0", f"10.{number}.0.2/24", f"fd00:{number}::2/64")
        cls.write(instances())
        cls.mribd = cls.router.start_mribd("--config", CONFIG)
        cls.gmpd = {family: cls.router.start_gmpd(family, "--config", CONFIG, *GMPD_OPTIONS)
                    for family in ("ipv4", "ipv6")}
        cls.receivers = {name: [*(Receiver(cls.hosts[f"{name}-host"], "eth0", group) for group in ANY_SOURCE.values()),
                                *(Receiver(cls.hosts[f"{name}-host"], "eth0", ONE_SOURCE[family], source=source)
                                  for family, source in SOURCES.items())]
                         for name in TABLES}
        cls.senders = {name: cls.sender(name) for name in TABLES}

    @classmethod
    def tearDownClass(cls):
        for daemon in (*cls.gmpd.values(), cls.mribd):
            assert daemon.stop() == 0, f"{daemon.name}: {daemon.output()[-2000:]}"
        left = [cls.rules(family) for family in SOURCES]
        assert left == ["", ""], f"rules left in the kernel: {left}"

    @classmethod
    def sender(cls, name):
        return Sender(cls.hosts[f"{name}-source"], "eth0", GROUPS)

    @staticmethod
    def write(text):
        with open(CONFIG, "w") as file:
            file.write(text)

    @classmethod
    def rules(cls, family):
        return "".join(line for line in cls.router.run("ip", family, "mrule", "list").splitlines(True)
                       if line.startswith("2000:"))

    def configure(self, text):
        self.write(text)
        for daemon in (self.mribd, *self.gmpd.values()):
            daemon.reload()

    def forwards(self, name, family):
        """What the kernel's table of the instance forwards: group: (incoming, outgoing)."""
        # There is no such table as long as mribd starts, which ip calls an error.
        shown = self.router.run("ip", family, "mroute", "show", "table", str(TABLES[name]), check=False)
        return {group: path for (source, group), path in forwarded_by_kernel(shown.splitlines()).items()
                if source == SOURCES[family]}

    def wait_for_paths(self, name, outgoing, groups=GROUPS):
        """The kernel's table of the instance comes to forward each of the groups to these interfaces."""
        def agree():
            paths = {group: path for family in SOURCES for group, path in self.forwards(name, family).items()}
            return all(paths.get(group) == (f"{name}-src", set(outgoing)) for group in groups)
        wait_for(agree, f"instance {name} forwarding {groups} to {outgoing}")

    def hear(self, name):
        for receiver in self.receivers[name]:
            receiver.grows()

    def hear_nothing(self, name):
        """The receivers of the instance fall silent."""
        receivers = self.receivers[name]

        def silent():
            before = [receiver.total() for receiver in receivers]
            return receivers[0].stays() and before == [receiver.total() for receiver in receivers]
        wait_for(silent, f"the receivers of {name} hearing nothing")

    def test_each_receiver_hears_its_own_sender_alone(self):
        for name, other in (("red", "blue"), ("blue", "red")):
            self.hear(name)
            self.wait_for_paths(name, [f"{name}-out"])
            self.senders[other].stop()
            self.hear(name)
            self.hear_nothing(other)
            self.senders[other] = self.sender(other)
        self.hear("red")
        status = self.mribd.status()
        for name in TABLES:
            self.assertTrue(matches(rf"^ipv4 \({name}\)\n  interface {name}-src: ", status), status)
        for family in SOURCES:
            shown = self.router.run("ip", family, "mroute", "show", "table", "default" if family == "-4" else "main")
            self.assertEqual(shown.strip(), "", "entries of the public instance")

    def test_a_leave_counts_in_its_instance_alone(self):
        groups = ("239.14.0.2", "ff1e::14:2")
        sender = {name: Sender(self.hosts[f"{name}-source"], "eth0", groups) for name in TABLES}
        receivers = {name: [Receiver(self.hosts[f"{name}-host"], "eth0", group) for group in groups] for name in TABLES}
        for name in TABLES:
            for receiver in receivers[name]:
                receiver.grows()
        for receiver in receivers["red"]:
            receiver.leave()
        self.wait_for_paths("red", [], groups)
        self.wait_for_paths("blue", ["blue-out"], groups)
        for receiver in receivers["blue"]:
            receiver.grows()
            receiver.leave()
        for each in sender.values():
            each.stop()

    def test_a_disabled_instance_leaves_the_other_alone(self):
        self.configure(instances(settings="enabled = false\n"))
        self.wait_for_paths("red", [])
        self.hear("blue")
        self.hear_nothing("red")
        self.configure(instances())
        self.wait_for_paths("red", ["red-out"])
        self.hear("red")

    def test_policy_is_of_one_instance(self):
        groups = [*ANY_SOURCE.values()]
        self.configure(instances(
            settings='[[mribd.interface]]\nname = "red-out"\nboundaries = ["239.14.0.0/16", "ff1e::/16"]\n'))
        self.wait_for_paths("red", [], groups)
        self.wait_for_paths("red", ["red-out"], ONE_SOURCE.values())
        self.hear("blue")
        self.configure(instances())
        self.wait_for_paths("red", ["red-out"], groups)
        lists = ('[[acl]]\nnumber = 2001\nfamily = "{0}"\n[[acl.rule]]\nid = 1\naction = "permit"\nsource = "{1}"\n')
        self.configure(instances(settings='ssm_acl = { ipv4 = 2001, ipv6 = 2001 }\n') +
                       lists.format("ipv4", "239.14.0.0/16") + lists.format("ipv6", "ff1e::/16"))
        self.wait_for_paths("red", [], groups)
        self.hear("blue")
        self.configure(instances())
        self.wait_for_paths("red", ["red-out"])

    def test_mribd_that_was_killed_finds_what_it_left(self):
        before = {family: sorted(self.rules(family).splitlines()) for family in SOURCES}
        self.assertEqual([len(rules) for rules in before.values()], [8, 8], "two a port")
        self.mribd.kill()
        self.assertNotEqual(self.rules("-4"), "")
        type(self).mribd = self.router.start_mribd("--config", CONFIG)
        for name in TABLES:
            self.wait_for_paths(name, [f"{name}-out"])
            self.hear(name)
        self.assertEqual({family: sorted(self.rules(family).splitlines()) for family in SOURCES}, before)

    def test_an_interface_moves_to_the_other_instance_and_back(self):
        self.configure(instances({"red": ["red-src"], "blue": ["blue-src", "blue-out", "red-out"]}))
        self.wait_for_paths("red", [])
        self.wait_for_paths("blue", ["blue-out", "red-out"])
        self.senders["red"].stop()
        self.hear("red")
        self.configure(instances())
        self.wait_for_paths("blue", ["blue-out"])
        self.hear_nothing("red")
        type(self).senders["red"] = self.sender("red")
        self.wait_for_paths("red", ["red-out"])
        self.hear("red")

    def test_an_instance_that_is_served_later_starts_then(self):
        self.configure(instances().replace("[[mribd.instance]]\nvrf = 5\n", ""))
        wait_for(lambda: "ipv4 (red)" not in self.mribd.status(), "the instance red not being served")
        self.hear("blue")
        self.hear_nothing("red")
        self.configure(instances())
        self.wait_for_paths("red", ["red-out"])
        self.hear("red")

    def test_a_renamed_interface_stays_when_the_file_lists_both_names(self):
        self.configure(instances({"red": ["red-src", "red-out", "red-new"], "blue": ["blue-src", "blue-out"]}))
        self.router.run("ip", "link", "set", "dev", "red-out", "name", "red-new")
        try:
            self.wait_for_paths("red", ["red-new"])
            self.hear("red")
            self.assertIn("iif red-new", self.rules("-4"))
            self.assertNotIn("red-out", self.rules("-4"))
        finally:
            self.router.run("ip", "link", "set", "dev", "red-new", "name", "red-out")
        self.wait_for_paths("red", ["red-out"])
        self.configure(instances())


if __name__ == "__main__":
    unittest.main()
