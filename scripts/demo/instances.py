"""One router, two VPN instances with the same addresses, groups and sources in both.

      red-source ---- red-src          red-out ---- red-host
      10.1.0.2                \\       /             10.2.0.2
                               carrier
      10.1.0.2                /       \\             10.2.0.2
      blue-source --- blue-src         blue-out --- blue-host
"""

from lab import Host, Receiver, Router, Sender, link
from stage import show, show_receivers, show_table, title

CONFIG = "/run/demo-instances.toml"
GROUP = "239.6.0.1"
INDEXES = {"red": 5, "blue": 6}


def build(router):
    """The hosts, by name."""
    hosts = {}
    for name in INDEXES:
        for number, role, port in ((1, "source", "src"), (2, "host", "out")):
            host = hosts[f"{name}-{role}"] = Host(f"{name}-{role}")
            link(router, f"{name}-{port}", host, "eth0")
            router.address(f"{name}-{port}", f"10.{number}.0.1/24")
            host.address("eth0", f"10.{number}.0.2/24")
    return hosts


def configure():
    text = "\n".join(f'[[vpn]]\nname = "{name}"\nindex = {index}\ninterfaces = ["{name}-src", "{name}-out"]\n'
                     f"[[mribd.instance]]\nvrf = {index}\n" for name, index in INDEXES.items())
    with open(CONFIG, "w") as file:
        file.write(text)
    show(CONFIG, text)


def play():
    title(f"Two VPN instances on one router: both have 10.1.0.2 sending to {GROUP}, and neither hears the other")
    router = Router("carrier")
    hosts = build(router)
    configure()
    daemons = [router.start_mribd("--config", CONFIG), router.start_gmpd("ipv4", "--config", CONFIG)]
    senders = [Sender(hosts[f"{name}-source"], "eth0", [GROUP], rate=rate)
               for name, rate in (("red", 20), ("blue", 200))]
    receivers = {f"{name}  {GROUP}": Receiver(hosts[f"{name}-host"], "eth0", GROUP) for name in INDEXES}
    for receiver in receivers.values():
        receiver.grows(by=40)
    print("red's source sends 20 packets a second, blue's 200")
    show_receivers(receivers)
    show_table(router, "routes")
    for name, index in INDEXES.items():
        show(f"the kernel's table of {name} (ip mroute show table {index})",
             router.run("ip", "mroute", "show", "table", str(index)))
    for receiver in receivers.values():
        receiver.leave()
    for sender in senders:
        sender.stop()
    for daemon in reversed(daemons):
        assert daemon.stop() == 0, daemon.output()
