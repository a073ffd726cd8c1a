"""Users on one link of the router, each with rights of his or her own.

      lan ------ switch ----- ann  10.4.0.2
                    `-------- ben  10.4.0.3
"""

import json
import os

from lab import PROGRAMS, Host, Receiver, Segment, Sender, wait_for
from stage import show, show_receivers, show_table, title

ANNS, BENS = "239.1.2.1", "239.1.2.2"


def attach(router):
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


def play(network, users):
    """Ann is served and Ben refused; then the other way round."""
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
