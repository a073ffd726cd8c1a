"""The program msdp_client, an MSDP daemon's end of the channel, on a router."""

import os
import subprocess
import time

from lab import PROGRAMS


class MsdpClient:
    """Commanded through a pipe; prints the view that the library keeps."""

    def __init__(self, router):
        self.path = f"/run/{router.name}.msdp_client-{time.monotonic_ns()}.log"
        self.log = open(self.path, "w")
        self.process = subprocess.Popen(router.words(os.path.join(PROGRAMS, "msdp_client")), text=True,
                                        stdin=subprocess.PIPE, stdout=self.log, stderr=self.log)

    def command(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def view(self):
        """The view it printed last."""
        with open(self.path) as log:
            lines = [line for line in log.read().splitlines() if line.startswith("show: ")]
        return lines[-1] if lines else ""

    def stop(self):
        self.process.stdin.close()
        status = self.process.wait(10)
        self.log.close()
        return status
