"""Receivers join and leave, and the traffic follows; a killed mribd takes all entries along and gets them back."""

import signal

from lab import Receiver, Sender, wait_for
from stage import show, show_receivers, show_table, title

GROUP4, GROUP6, SOURCE4 = "239.1.1.1", "ff1e::1:1", "10.1.0.2"


def kernel_entries(router):
    return router.mroute("-4") + router.mroute("-6")


def show_kernel(router):
    show("the kernel says (ip mroute)", "\n".join(kernel_entries(router)))


def join_and_leave(network):
    """The receivers that stay, by what they are called."""
    router, hosts = network.router, network.hosts
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
    for table in ("queriers", "groups", "sources", "routes"):
        show_table(router, table)
    show_kernel(router)

    title(f"blue leaves {GROUP6}; red keeps it")
    left = receivers.pop(f"blue  {GROUP6}")
    left.leave()
    wait_for(lambda: not any("blue" in line for line in router.mroute("-6")), "blue pruned from the kernel entry")
    receivers[f"red   {GROUP6}"].grows(by=50)
    show_receivers(receivers)
    show_kernel(router)
    return receivers


def kill_and_restart(network, receivers, *options):
    router = network.router
    title("mribd is killed (SIGKILL): the kernel forgets every forwarding entry")
    network.mribd.kill(signal.SIGKILL)
    wait_for(lambda: not kernel_entries(router), "the entries gone")
    print("   ip mroute shows no entry")

    title("mribd starts again: gmpd reconnects, reports its state, and the traffic is back")
    network.mribd = router.start_mribd(*options)
    for receiver in receivers.values():
        receiver.grows(by=50)
    show_receivers(receivers)
    show_table(router, "routes")
    show_table(router, "clients")


def leave(network, receivers):
    title("Every receiver leaves: nothing is forwarded any more")
    for receiver in receivers.values():
        receiver.leave()
    wait_for(lambda: not any(name in line for name in ("red", "blue", "lan")
                             for line in kernel_entries(network.router)), "every output gone")
    show_kernel(network.router)
