"""What hosts, users' agents, peers and the machine do to the router in the soak. Each takes the soak, whose random numbers
decide, and is over when it returns, but for what it left in the router.

Attacks by valid messages come from red, where nobody stays: a flooded link may lose its own packets. Peers of another user
are not among them: the folder of the ports keeps them out.
"""

import fcntl
import os
import resource
import shutil
import signal
import socket
import time

from lab import Process, wait_for
from msdp_peer import announcements
from packets import ALL_REPORTS, ALL_SYSTEMS, ALLOW, IS_EX, IS_IN, TO_IN, ipv4, packet, query, record, report
from soak_router import FILE, RECOVERY_S, STEADY, write_configuration

NEIGHBOUR = {"ipv4": "10.2.0.77", "ipv6": "fe80::77"}
GROUP_FORM = {"ipv4": "239.17.{}.{}", "ipv6": "ff1e::17:{:x}{:02x}"}
DATAGRAM = bytes.fromhex("1388138800100000") + b"packet 0"
ETHERNET = bytes.fromhex("01005e000016 020000000001 0800")
REFUSED = "the configuration stays as it was"


def family_of(soak):
    return soak.random.choice(tuple(STEADY))


def say(soak, family, kind, numbers, sources=()):
    """Reports of the neighbour about its groups of these numbers."""
    for at in range(0, len(numbers), 50):
        records = (record(kind, GROUP_FORM[family].format(one // 50, one % 50), sources) for one in numbers[at:at + 50])
        soak.wire.send(packet(report(family, *records), NEIGHBOUR[family], ALL_REPORTS[family]), family)


def forge_queries(soak):  # 1
    endless = {"flags": 7, "interval": 255, "time": 255}
    for sender, family in (("10.2.0.0", "ipv4"), ("10.2.0.255", "ipv4"), ("fe80::", "ipv6"), ("fe80::1", "ipv6")):
        message = query("0.0.0.0" if family == "ipv4" else "::", **endless)
        soak.wire.send(packet(message, sender, ALL_SYSTEMS[family]), family)


def report_sources(soak):  # 2 and 3
    family = family_of(soak)
    form = "10.{}.{}.9" if family == "ipv4" else "fd00:99::{:x}:{:x}"
    sources = [form.format(number // 250, number % 250) for number in range(soak.random.choice((60, 80)))]
    for number in range(soak.random.choice((50, 500))):
        message = report(family, record(ALLOW, GROUP_FORM[family].format(100 + number // 50, number % 50), sources))
        soak.wire.send(packet(message, NEIGHBOUR[family], ALL_REPORTS[family]), family)


def win_elections(soak):  # 1
    """As a router that forwards nothing, on any link, with an hour to answer."""
    wire = soak.random.choice((soak.wire, *soak.forgers))
    for number in range(soak.random.randrange(1, 4)):
        message = query("::", flags=7, interval=255, time=65535)
        wire.send(packet(message, f"fe80::{number + 1}", ALL_SYSTEMS["ipv6"]), "ipv6")


def spoof_senders(soak):  # 4
    for number in range(soak.random.randrange(100, 2000)):
        source, group = f"10.2.0.{3 + number % 250}", f"239.18.{number // 250}.1"
        soak.wire.send(ipv4(DATAGRAM, source, group, ttl=8, options=b"", protocol=17), "ipv4")


def shorten_memory(soak):  # 5
    """A daemon gets little more than it has, while a host and a peer give all of them more to hold."""
    name = soak.random.choice(tuple(soak.router.daemons))
    room = soak.random.choice((256, 1024, 4096)) * 1024
    before = soak.router.limited(name, resource.RLIMIT_AS, soak.router.address_space(name) + room)
    for family in STEADY:
        say(soak, family, IS_EX, range(soak.random.choice((100, 3000))))
    announce_sources(soak)
    time.sleep(1)
    soak.router.lift(name, resource.RLIMIT_AS, before)


def take_descriptors(soak):  # 6
    name = soak.random.choice(tuple(soak.router.daemons))
    before = soak.router.limited(name, resource.RLIMIT_NOFILE, soak.router.descriptors(name) + 3)
    clients = [soak.router.connect(port) for port in (2182, 2183, 2192, 2195, 2201, 2202, 2203, 2204) for _ in range(8)]
    soak.router.daemons[name].reload()
    time.sleep(1)
    soak.router.lift(name, resource.RLIMIT_NOFILE, before)
    for client in filter(None, clients):
        client.close()


def stall_the_logs_reader(soak):  # 7
    readers = [daemon.reader for daemon in soak.router.daemons.values()]
    for reader in readers:
        reader.send_signal(signal.SIGSTOP)
    for _ in range(5):
        send_noise(soak)
        for daemon in soak.router.daemons.values():
            daemon.reload()
    for reader in readers:
        reader.send_signal(signal.SIGCONT)


def pester_as_agents(soak):  # 8
    port = soak.random.choice((2192, 2195))
    clients = list(filter(None, (soak.router.connect(port) for _ in range(100))))
    for client in clients[:20]:
        client.shutdown(socket.SHUT_WR)
    time.sleep(0.5)
    for client in clients:
        client.close()


def reload_what_is_no_configuration(soak):  # 10
    form = soak.random.choice(("deep", "wrong", "nested", "pipe", "folder", "device"))
    daemon = soak.router.daemons[soak.random.choice(tuple(soak.router.daemons))]
    if form in ("pipe", "folder", "device"):
        os.unlink(FILE)
        if form == "pipe":
            os.mkfifo(FILE)
        elif form == "folder":
            os.mkdir(FILE)
        else:
            os.symlink("/dev/zero", FILE)
    else:
        write_configuration({"deep": "a." * 40000 + "a = 1", "wrong": "[[acl", "nested": "x = " + "[" * 10000}[form])
    refused = daemon.output().count(REFUSED)
    daemon.reload()
    # A line that came often lately is held back, and its number told later.
    end = time.monotonic() + 5
    while daemon.output().count(REFUSED) == refused and time.monotonic() < end:
        time.sleep(0.05)
    write_configuration()


def flood_with_reports(soak):  # 11
    if not shutil.which("trafgen"):
        return
    sources = [f"239.9.0.{number}" for number in range(1, 250)]
    frame = ETHERNET + ipv4(report("ipv4", record(IS_IN, "239.21.0.1", sources)), NEIGHBOUR["ipv4"], ALL_REPORTS["ipv4"])
    with open("/run/flood.cfg", "w") as flood:
        flood.write("{ " + ", ".join(f"0x{byte:02x}" for byte in frame) + " }\n")
    # trafgen's worker outlives it unless both are killed, which timeout does.
    seconds = str(soak.random.uniform(0.5, 2))
    Process(soak.router.hosts["red"], "flood", "timeout", "-s", "KILL", seconds, "trafgen", "-i", "/run/flood.cfg",
            "-o", "eth0", "-P", "1", "-q").process.wait(20)


def leave_hundreds_of_groups(soak):  # 12
    family = family_of(soak)
    numbers = range(soak.random.randrange(100, 400))
    say(soak, family, IS_EX, numbers)
    say(soak, family, TO_IN, numbers)
    say(soak, family, TO_IN, range(4000, 4400))


def delete_ports(soak):  # 13
    path = soak.random.choice((soak.router.base, soak.router.ports, f"{soak.router.ports}/2202"))
    if os.path.isdir(path):
        shutil.rmtree(path)
    elif os.path.lexists(path):
        os.unlink(path)
    soak.router.wait_until_reached()


def put_a_link_in_place_of_a_port(soak):  # 15
    path = f"{soak.router.ports}/{soak.random.choice((2182, 2201, 2203))}"
    if os.path.lexists(path):
        os.unlink(path)
    os.symlink("lock", path)
    soak.router.wait_until_reached()


def start_under_a_foreign_lock(soak):  # 15
    with open(f"{soak.router.ports}/lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        soak.kill("ipv4", afterwards=lambda: time.sleep(0.5) or lock.close())


def join_a_thousand_groups(soak):
    say(soak, family_of(soak), IS_EX, range(1000))


def send_noise(soak):
    family = family_of(soak)
    for _ in range(200):
        message = soak.random.randbytes(soak.random.randrange(4, 100))
        soak.wire.send(packet(message, NEIGHBOUR[family], ALL_SYSTEMS[family]), family)


def hold_control_connections(soak):
    for port in (2201, 2202, 2203, 2204):
        client = soak.router.connect(port)
        if client is not None:
            soak.clients.append(client)
    while len(soak.clients) > 100:
        soak.clients.pop(0).close()


def announce_users(soak):
    family = family_of(soak)
    address = "10.4.1.{}" if family == "ipv4" else "fe80::4:{:x}"
    soak.router.tell_users(family, [f"announce node=1 id={number} kind=3 interface=users address={address.format(number)} "
                                    f"group={STEADY[family]}" for number in range(1, soak.random.randrange(10, 200))])


def withdraw_users(soak):
    for family in STEADY:
        soak.router.tell_users(family, ["refresh-begin node=1 kind=3", "refresh-end node=1 kind=3"])


def announce_sources(soak):
    """More than the limit of the peer, at times."""
    pairs = [(f"10.99.{number}.{one}", f"239.19.{number}.{one}") for number in range(1, soak.random.randrange(2, 31))
             for one in range(100)]
    soak.router.speaker.send(announcements("10.5.0.2", pairs))


def send_noise_as_peer(soak):
    soak.router.speaker.send(soak.random.randbytes(soak.random.randrange(1, 2000)))


def reload(soak):
    soak.router.daemons[soak.random.choice(tuple(soak.router.daemons))].reload()


ATTACKS = {forge_queries: 2, win_elections: 2, report_sources: 2, spoof_senders: 2, shorten_memory: 2, take_descriptors: 2,
           stall_the_logs_reader: 1, pester_as_agents: 2, reload_what_is_no_configuration: 2, flood_with_reports: 1,
           leave_hundreds_of_groups: 2, delete_ports: 1, put_a_link_in_place_of_a_port: 1,
           start_under_a_foreign_lock: 1, join_a_thousand_groups: 2, send_noise: 3, hold_control_connections: 3,
           announce_users: 2, withdraw_users: 1, announce_sources: 3, send_noise_as_peer: 2, reload: 3}
