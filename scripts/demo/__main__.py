"""The demo: real IPv4 and IPv6 multicast through the reference router, a chapter a file.

      source                    router                     red, blue
   10.1.0.2  eth0 ----- src  mribd, gmpd x 2  red  ----- eth0  10.2.0.2
   fd00:1::2                                  blue ----- eth0  10.3.0.2
                                              lan ------ ann and ben, 10.4.0.0/24
"""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "tests", "system"))

import across  # noqa: E402
import forwarding  # noqa: E402
import instances  # noqa: E402
import msdp  # noqa: E402
import policy  # noqa: E402
import switch_over  # noqa: E402
import users  # noqa: E402
from stage import show, title  # noqa: E402
from topology import GMPD_OPTIONS, Network  # noqa: E402

# What a vanished gmpd wanted is forwarded until its successor has heard the hosts.
MRIBD_OPTIONS = ("--config", policy.CONFIG, "--hold-time", "20")


def start():
    title("Building source, router, red and blue, each a network namespace")
    network = Network(gmpd_options=(*GMPD_OPTIONS, "--config", policy.CONFIG, "--user-auth", "lan"), start=False)
    people = users.attach(network.router)
    policy.write("")
    network.mribd = network.router.start_mribd(*MRIBD_OPTIONS)
    for family in ("ipv4", "ipv6"):
        network.gmpd[family] = network.router.start_gmpd(family, *network.gmpd_options)
    return network, people


def take_down(network):
    """The exit status of the demo."""
    title("Everything is taken down")
    for daemon in reversed(network.daemons()):
        status = daemon.stop()
        print(f"   {daemon.name} ended with status {status}")
        if status != 0:
            show("its log", daemon.output())
            return 1
    left = forwarding.kernel_entries(network.router)
    print(f"   forwarding entries left in the kernel: {len(left)}")
    print("\nThe demo is complete.")
    return 0 if not left else 1


def main():
    network, people = start()
    receivers = forwarding.join_and_leave(network)
    forwarding.kill_and_restart(network, receivers, *MRIBD_OPTIONS)
    users.play(network, people)
    switch_over.play(network, receivers)
    policy.play(network)
    policy.trace(network)
    instances.play()
    msdp.play()
    across.play()
    forwarding.leave(network, receivers)
    return take_down(network)


try:
    sys.exit(main())
except KeyboardInterrupt:
    print("\ninterrupted; the namespaces and daemons go with this process")
    sys.exit(130)
