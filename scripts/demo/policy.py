"""What the operator allows: a boundary that keeps groups off a link, and a source-specific range by access list."""

from lab import Receiver, Sender, wait_for
from stage import MCASTCTL, show, show_table, title

CONFIG = "/run/demo.toml"
INSIDE = "239.255.1.1"
TRACED = "239.3.0.1"
LISTED, SOURCE = "239.232.1.1", "10.1.0.2"
BOUNDARY = """[[mribd.interface]]
name = "red"
boundaries = ["239.255.0.0/16"]
"""
RANGE = """[[mribd.instance]]
ssm_acl = { ipv4 = 2001 }

[[acl]]
number = 2001
family = "ipv4"

[[acl.rule]]
id = 1
action = "permit"
source = "239.232.0.0/16"
"""


def write(text):
    with open(CONFIG, "w") as file:
        file.write(text)


def reload(network, text):
    write(text)
    show(f"{CONFIG}, which mribd and gmpd read anew at SIGHUP", text or "(empty)")
    for daemon in (network.gmpd["ipv4"], network.mribd):
        daemon.reload()


def is_forwarded(router, group):
    return any(group in line and "red" in line for line in router.mroute("-4"))


def play(network):
    router, hosts = network.router, network.hosts
    title(f"A boundary on red: {INSIDE} stays outside, while blue goes on")
    sender = Sender(hosts["source"], "eth0", [INSIDE, LISTED])
    red, blue = (Receiver(hosts[name], "eth0", INSIDE) for name in ("red", "blue"))
    red.grows()
    blue.grows()
    reload(network, BOUNDARY)
    wait_for(lambda: not is_forwarded(router, INSIDE), "red cut off")
    blue.grows(by=20)
    show_table(router, "routes", "--group", INSIDE)
    show_table(router, "groups", "--group", INSIDE)
    reload(network, "")
    red.grows(by=20)
    print("   the boundary is gone, and red is served again")

    title(f"A source-specific range by access list: of {LISTED} only joins that name a source count")
    reload(network, RANGE)
    any_source = Receiver(hosts["red"], "eth0", LISTED)
    named = Receiver(hosts["blue"], "eth0", LISTED, SOURCE)
    named.grows(by=20)
    assert any_source.stays(), "red asked for any source and got one"
    show_table(router, "routes", "--group", LISTED)
    reload(network, "")
    any_source.grows(by=20)
    print("   without the list red is served too")
    for receiver in (red, blue, any_source, named):
        receiver.leave()
    sender.stop()


def trace(network):
    router = network.router
    title("A trace for one link, switched on while the daemons run")
    show("mcastctl debug on group channel --interface red",
         router.run(MCASTCTL, "debug", "on", "group", "channel", "--interface", "red"))
    gmpd = network.gmpd["ipv4"]
    before = len(gmpd.output())
    receiver = Receiver(network.hosts["red"], "eth0", TRACED)
    wait_for(lambda: "told: join" in gmpd.output()[before:], "the join in the trace")
    receiver.leave()
    wait_for(lambda: "told: prune" in gmpd.output()[before:], "the leave in the trace")
    show("the log of gmpd (IPv4)", gmpd.output()[before:])
    router.run(MCASTCTL, "debug", "off")
