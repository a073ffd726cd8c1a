"""The demo: real IPv4 and IPv6 multicast through the reference router.

      source                    router                     red, blue
   10.1.0.2  eth0 ----- src  mribd, gmpd x 2  red  ----- eth0  10.2.0.2
   fd00:1::2                                  blue ----- eth0  10.3.0.2
                                              lan ------ switch ----- ann  10.4.0.2
                                                            `-------- ben  10.4.0.3

Two receivers join groups of both families; the source's packets reach them through the kernel's forwarding
entries that the router's daemons made; a group is left again; the MRIB daemon is killed and started again. On
the link that Ann and Ben share only announced users count, each for what he or she may join.
"""

import json
import os
import signal
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "system"))

from lab import PROGRAMS, Host, Receiver, Segment, Sender, wait_for  # noqa: E402
from topology import GMPD_OPTIONS, Network  # noqa: E402

MCASTCTL = os.path.join(PROGRAMS, "mcastctl")
GROUP4, GROUP6, SOURCE4 = "239.1.1.1", "ff1e::1:1", "10.1.0.2"
ANNS, BENS = "239.1.2.1", "239.1.2.2"


def title(text):
    print(f"\n== {text}", flush=True)


def show(name, text):
    print(f"-- {name}")
    for line in text.splitlines():
        print(f"   {line}")
    sys.stdout.flush()


def show_table(router, *words):
    show(f"mcastctl show {' '.join(words)}", router.run(MCASTCTL, "show", *words))


def show_router(router):
    for table in ("queriers", "groups", "sources", "routes"):
        show_table(router, table)
    show("the kernel says (ip mroute)", "\n".join(router.mroute("-4") + router.mroute("-6")))


def show_receivers(receivers):
    print("-- the receivers got")
    for name, receiver in receivers.items():
        print(f"   {name:<28} {receiver.counts()}")
    sys.stdout.flush()


def attach_users(router):
    """Ann and Ben on one link of the router."""
    switch = Segment("switch")
    switch.attach(router, "lan")
    router.address("lan", "10.4.0.1/24")
    users = {"ann": Host("ann"), "ben": Host("ben")}
    for number, (name, host) in enumerate(users.items(), 2):
        switch.attach(host, "eth0")
        host.address("eth0", f"10.4.0.{number}/24")
    return users


def agent(router, *words):
    """An authentication agent's command."""
    show(f"uagent {' '.join(words)}", router.run(os.path.join(PROGRAMS, "uagent"), *words))


def is_refused(gmpd, name):
    """Whether the user was refused a join."""
    users = json.loads(gmpd.status())["user_authentication"]["users"]
    return any(user["name"] == name and user.get("counters", {}).get("refused_user_group") for user in users)


def show_users(network, users):
    router, gmpd = network.router, network.gmpd["ipv4"]
    title(f"Users on one link: Ann may join {ANNS}, Ben nothing yet; each tries one group")
    Sender(network.hosts["source"], "eth0", [ANNS, BENS])
    agent(router, "announce", "id=1", "node=0", "kind=1", "interface=lan", "address=10.4.0.2", "name=ann",
          f"group={ANNS}")
    agent(router, "announce", "id=2", "node=0", "kind=1", "interface=lan", "address=10.4.0.3", "name=ben")
    receivers = {f"ann   {ANNS}": Receiver(users["ann"], "eth0", ANNS),
                 f"ben   {BENS}": Receiver(users["ben"], "eth0", BENS)}
    ann, ben = receivers.values()
    ann.grows(by=20)
    wait_for(lambda: is_refused(gmpd, "ben"), "Ben refused")
    show_receivers(receivers)
    show_table(router, "users")

    title("Ben is given his group; Ann is withdrawn")
    agent(router, "groups", "id=2", "node=0", "kind=1", f"group={BENS}")
    agent(router, "withdraw", "id=1", "node=0", "kind=1")
    wait_for(lambda: not any("lan" in line for line in router.mroute("-4") if ANNS in line), "Ann's traffic stopped")
    ben.grows(by=20)
    show_receivers(receivers)
    show_table(router, "user-rights")
    for receiver in receivers.values():
        receiver.leave()


def main():
    title("Building source, router, red and blue, each a network namespace")
    network = Network(gmpd_options=(*GMPD_OPTIONS, "--user-auth", "lan"), start=False)
    users = attach_users(network.router)
    network.start()
    router, hosts, mribd = network.router, network.hosts, network.mribd
    Sender(hosts["source"], "eth0", [GROUP4, GROUP6])
    print(f"source sends 50 packets a second to {GROUP4} and to {GROUP6}")

    title(f"red joins {GROUP4} and {GROUP6}; blue joins {GROUP6}, and {GROUP4} from {SOURCE4} only")
    receivers = {
        f"red   {GROUP4}": Receiver(hosts["red"], "eth0", GROUP4),
        f"red   {GROUP6}": Receiver(hosts["red"], "eth0", GROUP6),
        f"blue  {GROUP6}": Receiver(hosts["blue"], "eth0", GROUP6),
        f"blue  {GROUP4} ({SOURCE4})": Receiver(hosts["blue"], "eth0", GROUP4, SOURCE4),
    }
    for receiver in receivers.values():
        receiver.grows(by=50)
    show_receivers(receivers)
    show_router(router)

    title(f"blue leaves {GROUP6}; red keeps it")
    left = receivers.pop(f"blue  {GROUP6}")
    left.leave()
    wait_for(lambda: not any("blue" in line for line in router.mroute("-6")), "blue pruned from the kernel entry")
    receivers[f"red   {GROUP6}"].grows(by=50)
    show_receivers(receivers)
    show("the kernel says (ip mroute)", "\n".join(router.mroute("-4") + router.mroute("-6")))

    title("mribd is killed (SIGKILL): the kernel forgets every forwarding entry")
    mribd.kill(signal.SIGKILL)
    wait_for(lambda: not router.mroute("-4") and not router.mroute("-6"), "the entries gone")
    print(f"   ip mroute shows {len(router.mroute('-4') + router.mroute('-6'))} entries")

    title("mribd starts again: gmpd reconnects, reports its state, and the traffic is back")
    network.mribd = mribd = router.start_mribd()
    for receiver in receivers.values():
        receiver.grows(by=50)
    show_receivers(receivers)
    show_table(router, "routes")
    show_table(router, "clients")

    show_users(network, users)

    title("Every receiver leaves: nothing is forwarded any more")
    for receiver in receivers.values():
        receiver.leave()
    wait_for(lambda: not any(name in line for name in ("red", "blue", "lan") for line in
                             router.mroute("-4") + router.mroute("-6")), "every output gone")
    show("the kernel says (ip mroute)", "\n".join(router.mroute("-4") + router.mroute("-6")))

    title("Everything is taken down")
    for daemon in reversed(network.daemons()):
        status = daemon.stop()
        print(f"   {daemon.name} ended with status {status}")
        if status != 0:
            show("its log", daemon.output())
            return 1
    left = router.mroute("-4") + router.mroute("-6")
    print(f"   forwarding entries left in the kernel: {len(left)}")
    print("\nThe demo is complete.")
    return 0 if not left else 1


try:
    sys.exit(main())
except KeyboardInterrupt:
    print("\ninterrupted; the namespaces and daemons go with this process")
    sys.exit(130)
