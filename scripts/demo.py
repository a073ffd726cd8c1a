"""The demo: real IPv4 and IPv6 multicast through the reference router.

      source                    router                     red, blue
   10.1.0.2  eth0 ----- src  mribd, gmpd x 2  red  ----- eth0  10.2.0.2
   fd00:1::2                                  blue ----- eth0  10.3.0.2

Two receivers join groups of both families; the source's packets reach them through the kernel's forwarding
entries that the router's daemons made; a group is left again; the MRIB daemon is killed and started again.
"""

import os
import signal
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "system"))

from lab import PROGRAMS, Receiver, Sender, wait_for  # noqa: E402
from topology import Network  # noqa: E402

MCASTCTL = os.path.join(PROGRAMS, "mcastctl")
GROUP4, GROUP6, SOURCE4 = "239.1.1.1", "ff1e::1:1", "10.1.0.2"


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


def main():
    title("Building source, router, red and blue, each a network namespace")
    network = Network()
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

    title("Every receiver leaves: nothing is forwarded any more")
    for receiver in receivers.values():
        receiver.leave()
    wait_for(lambda: not any(name in line for name in ("red", "blue") for line in
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
