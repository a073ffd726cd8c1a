"""Two routers of their own tell each other their sources over MSDP.

      source ---- src  near  mid ------ mid  far
     10.5.0.2     mribd, msdpd  10.9.0.0/24  mribd, msdpd
"""

from lab import Host, Sender, link, wait_for
from msdp_topology import MsdpRouter, peer
from stage import show_table, title

SOURCE, GROUP = "10.5.0.2", "239.5.0.1"
NEAR, FAR = "10.9.0.1", "10.9.0.2"


def play():
    """Whether both routers ended well."""
    title(f"MSDP: the router near has a source, {SOURCE}; the router far hears of it")
    near, far, source = MsdpRouter("near", NEAR), MsdpRouter("far", FAR), Host("near-source")
    link(near, "src", source, "eth0")
    link(near, "mid", far, "mid")
    near.address("src", "10.5.0.1/24")
    near.address("mid", f"{NEAR}/24")
    far.address("mid", f"{FAR}/24")
    far.route("10.5.0.0/24", "via", NEAR)
    source.address("eth0", f"{SOURCE}/24")
    source.route("default", "via", "10.5.0.1")
    near.configure(peer(FAR, NEAR))
    far.configure(peer(NEAR, FAR))
    near.start()
    far.start()
    near.established(FAR)
    sender = Sender(source, "eth0", [GROUP])
    far.learns(SOURCE, GROUP, NEAR, NEAR)
    wait_for(far.remote_sources, "mribd of the far router told")
    show_table(near, "msdp-peers")
    show_table(far, "msdp-cache")
    sender.stop()
    far.stop()
    near.stop()
