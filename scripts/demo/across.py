"""Several routers: PIM carries multicast from the source's router to the receiver's, which share no link with it.

                          ,---- rp ----.
      studio ---- first --+------------+-- last ---- receiver
                          `-- spare ---'
                                |  MSDP
                             abroad ---- listener

rp and spare offer themselves as rendezvous points; spare is the bootstrap router that tells all others. abroad is a domain
of its own, with itself as rendezvous point. last moves to a source's own tree in the first group alone, so that the
second one shows what hangs on the rendezvous point.
"""

import time

from lab import Receiver, Sender, wait_for
from msdp_topology import peer
from pim_network import FAMILIES, FAST, PimNetwork, address, candidate, router_address
from stage import show, show_table, title

GROUPS = {"ipv4": ("239.7.0.1", "239.7.0.2"), "ipv6": ("ff0e::7:1", "ff0e::7:2")}
RATE = 100
LINKS = {1: ("first", "studio"), 2: ("first", "rp"), 3: ("rp", "last"), 4: ("first", "spare"), 5: ("spare", "last"),
         6: ("first", "last"), 7: ("last", "receiver"), 8: ("spare", "abroad"), 9: ("abroad", "listener")}
RP, SPARE, ABROAD = 2, 3, 5  # the numbers of these routers
LISTS = "".join(f'[[acl]]\nnumber = 3007\nfamily = "{family}"\n[[acl.rule]]\nid = 1\naction = "permit"\n'
                f'destination = "{GROUPS[family][0]}"\n' for family in FAMILIES)


def msdp_peer(of, to):
    return "[msdpd]\nconnect_retry = 1\n" + peer(router_address("ipv4", to), router_address("ipv4", of))


def configuration():
    """Of each router, beside the intervals."""
    own = f'[[pimsmd.rp]]\naddress = "{router_address("ipv4", ABROAD)}"\n'
    return {"first": "", "rp": candidate(RP, 50, 10), "spare": candidate(SPARE, 100, 20) + msdp_peer(SPARE, ABROAD),
            "last": "spt_list = 3007\n" + LISTS, "abroad": own + msdp_peer(ABROAD, SPARE)}


def build():
    network = PimNetwork(("first", "rp", "spare", "last", "abroad"), ("studio", "receiver", "listener"), LINKS)
    texts = configuration()
    show("rp in its configuration file, beside short intervals", texts["rp"])
    began = time.monotonic()
    network.start({name: FAST + text for name, text in texts.items()}, msdp=("spare", "abroad"))
    network.wait_rp(RP, "abroad")
    print(f"   every router has its neighbors and knows the rendezvous point {time.monotonic() - began:.1f} s after the start")
    show_table(network["last"], "bsr")
    show_table(network["last"], "rp")
    return network


def show_lost(receivers, before=None):
    """Packets that did not come, since the numbers before were taken."""
    print("-- packets that the receivers lost")
    for name, receiver in receivers.items():
        print(f"   {name:<12} {receiver.lost() - (before or {}).get(name, 0)} of {receiver.total()}", flush=True)


def source_to_receiver(network):
    title("A receiver behind last joins two groups of each family; the source studio behind first sends to them")
    source = {family: address(family, 1, network.nodes["studio"].number) for family in FAMILIES}
    receivers = {group: Receiver(network["receiver"], "e7", group) for family in FAMILIES for group in GROUPS[family]}
    for family in FAMILIES:
        for group in GROUPS[family]:
            wait_for(lambda f=family, g=group: network["rp"].tree(f, g, "0.0.0.0" if f == "ipv4" else "::"),
                     f"the Join of {group} at the rendezvous point")
    show_table(network["rp"], "pim-trees")
    for family in FAMILIES:
        Sender(network["studio"], "e1", GROUPS[family], rate=RATE, source=source[family])
    for receiver in receivers.values():
        receiver.grows(by=2 * RATE)
    print(f"{RATE} packets a second to each group; last joined the source of {GROUPS['ipv4'][0]} and {GROUPS['ipv6'][0]} over its\n"
          "own tree, pruned it from the shared one, and leaves the other two groups there:")
    for family in FAMILIES:
        group = GROUPS[family][0]
        wait_for(lambda f=family, g=group: network["last"].tree(f, g, source[f]).get("source_tree"),
                 f"{group} on the source's own tree")
    show_table(network["last"], "pim-trees")
    show_table(network["first"], "pim-trees")
    show("the kernel of last (ip mroute)", "\n".join(network["last"].mroute("-4") + network["last"].mroute("-6")))
    show_lost(receivers)
    return receivers


def lose_rp(network, receivers):
    title("rp loses its power: its daemons are killed, its links are dead")
    before = {name: receiver.lost() for name, receiver in receivers.items()}
    cut = time.monotonic()
    network.power_off("rp")
    network.move_routes("rp")
    network.wait_rp(SPARE, "rp", "abroad")
    print(f"   after {time.monotonic() - cut:.1f} s the others take spare, {router_address('ipv4', SPARE)}, for the rendezvous point")
    for receiver in receivers.values():
        receiver.grows(30, by=RATE)
    show_table(network["last"], "rp")
    show_table(network["last"], "pim-trees")
    show_lost(receivers, before)


def other_domain(network, source):
    group = GROUPS["ipv4"][0]
    title(f"Another domain: a listener behind abroad joins {group}, of whose source abroad hears from spare by MSDP")
    abroad = network["abroad"]
    wait_for(lambda: any(row["group"] == group for row in abroad.rows("msdp-cache", "ipv4")), "the announcement")
    listener = Receiver(network["listener"], "e9", group)
    listener.grows(30, by=2 * RATE)
    show_table(network["spare"], "msdp-peers")
    show_table(abroad, "msdp-cache", "--group", group)
    wait_for(lambda: abroad.tree("ipv4", group, source).get("source_tree"), "the tree into the other domain")
    show_table(abroad, "pim-trees", "--family", "ipv4", "--group", group)
    # A listener that comes later begins in the middle.
    print(f"-- packets that the listener lost after its first\n   {group:<12} {listener.said().get('missed', 0)} of {listener.total()}")
    listener.leave()


def play():
    title("Five routers of their own, each with mribd and a gmpd and a pimsmd for each family")
    network = build()
    receivers = source_to_receiver(network)
    lose_rp(network, receivers)
    other_domain(network, address("ipv4", 1, network.nodes["studio"].number))
    for receiver in receivers.values():
        receiver.leave()
    del network.nodes["rp"]
    network.stop()

