"""A standby gmpd takes over from the active one: no packet is lost, and users keep their interfaces."""

import json
import signal

from lab import wait_for
from stage import show_table, title
from users import BENS, agent


def is_ready(standby):
    status = json.loads(standby.status())
    return status["role"] == "standby" and status["synchronised"]


def play(network, receivers):
    router = network.router
    title("A second gmpd (IPv4) stands by, and the active one is killed (SIGKILL)")
    standby = router.start_gmpd("ipv4", *network.gmpd_options, "--standby")
    wait_for(lambda: is_ready(standby), "the standby knowing everything")
    show_table(router, "users")
    missed = {name: receiver.missed() for name, receiver in receivers.items()}
    network.gmpd["ipv4"].kill(signal.SIGKILL)
    network.gmpd["ipv4"] = standby
    wait_for(lambda: json.loads(standby.status())["role"] == "active", "the standby being active")
    agent(router, "announce", "id=2", "node=0", "kind=1", "interface=lan", "address=10.4.0.3", "name=ben",
          f"group={BENS}")
    show_table(router, "users")
    print("-- packets that the receivers missed meanwhile")
    for name, receiver in receivers.items():
        receiver.grows(by=50)
        print(f"   {name:<28} {receiver.missed() - missed[name]}")
