"""The network of the scenarios with authenticated users.

      source ------ src  router  lan ------ switch ---- alice  10.2.0.2
   10.1.0.2                       |           `-------- bob    10.2.0.3
   fd00:1::2                      blue ------ carol            10.3.0.2
"""

from lab import Host, Router, Segment, link


def build():
    """Router, source, the other hosts by name, and the switch."""
    router, source, switch = Router("router"), Host("source"), Segment("switch")
    hosts = {name: Host(name) for name in ("alice", "bob", "carol")}
    link(router, "src", source, "eth0")
    switch.attach(router, "lan")
    for name in ("alice", "bob"):
        switch.attach(hosts[name], "eth0")
    link(router, "blue", hosts["carol"], "eth0")
    for number, port in ((1, "src"), (2, "lan"), (3, "blue")):
        router.address(port, f"10.{number}.0.1/24", f"fd00:{number}::1/64")
    source.address("eth0", "10.1.0.2/24", "fd00:1::2/64")
    for name, address in (("alice", "10.2.0.2"), ("bob", "10.2.0.3"), ("carol", "10.3.0.2")):
        hosts[name].address("eth0", address + "/24")
    for gateway in ("10.1.0.1", "fd00:1::1"):
        source.route("default", "via", gateway)
    return router, source, hosts, switch
