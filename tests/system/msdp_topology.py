"""What the MSDP scenarios share: a router with mribd and msdpd, its configuration file and its tables."""

import json
import os

import lab
from lab import Daemon, Router, wait_for


def peer(address, local, **settings):
    """The configuration of a peer."""
    lines = [f'[[msdpd.peer]]\naddress = "{address}"\nlocal_address = "{local}"']
    for key, value in settings.items():
        lines.append(f"{key} = {json.dumps(value)}")
    return "\n".join(lines) + "\n"


class MsdpRouter(Router):
    """mribd tells local sources for rp; msdpd has the peers."""

    def __init__(self, name, rp=None):
        super().__init__(name)
        self.rp = rp
        self.config_path = f"/run/{name}.toml"
        self.mribd = self.msdpd = None

    def configure(self, text, settings="connect_retry = 1\n"):
        with open(self.config_path, "w") as file:
            if self.rp:
                file.write(f'[[mribd.instance]]\nrp = "{self.rp}"\n')
            file.write(f"[msdpd]\n{settings}{text}")

    def start_msdpd(self):
        self.msdpd = Daemon(self, "msdpd", os.path.join(lab.PROGRAMS, "msdpd"), "--config", self.config_path)

    def start(self):
        self.mribd = self.start_mribd("--config", self.config_path)
        self.start_msdpd()

    def reload(self):
        self.msdpd.reload()

    def tables(self):
        return json.loads(self.msdpd.status())

    def peer(self, address):
        """The peer as msdpd shows it; one that was just configured may not be there yet."""
        return wait_for(lambda: next((one for one in self.tables()["peers"] if one["peer"] == address), None),
                        f"{self.name}: peer {address} being configured")

    def count(self, address, name):
        return self.peer(address)["counters"].get(name, 0)

    def cache(self):
        """(source, group) to (originator, peer)."""
        return {(one["source"], one["group"]): (one["originator"], one["peer"]) for one in self.tables()["cache"]}

    def established(self, *addresses):
        for address in addresses:
            wait_for(lambda: self.peer(address)["state"] == "established", f"{self.name}: peer {address}")

    def learns(self, source, group, originator, from_peer):
        wait_for(lambda: self.cache().get((source, group)) == (originator, from_peer),
                 f"{self.name}: ({source}, {group}) of {originator} from {from_peer}")

    def remote_sources(self):
        """What mribd was told, as its status shows it."""
        return [line.strip() for line in self.mribd.status().splitlines() if "remote source (" in line]

    def stop(self):
        """Ends both daemons as an operator would."""
        for daemon in (self.msdpd, self.mribd):
            if daemon is not None:
                assert daemon.alive(), f"{self.name} {daemon.name} died: {daemon.output()[-2000:]}"
                status = daemon.stop()
                assert status == 0, f"{self.name} {daemon.name} ended with {status}: {daemon.output()[-2000:]}"
