"""Many flows at once in a scenario: who sends, who receives, and what came (flow_endpoint.py)."""

import json
import os
import signal
import time

from lab import HERE, Process, wait_for

PROGRAM = os.path.join(HERE, "flow_endpoint.py")


def write_list(name, pairs):
    path = f"/run/{name}.flows"
    with open(path, "w") as file:
        json.dump(sorted(pairs), file)
    return path


class FlowSender:
    def __init__(self, host, interface, pairs, rate):
        path = write_list(f"{host.name}.send", pairs)
        self.process = Process(host, "flow-send", "python3", PROGRAM, "send", interface, str(rate), path)

    def stop(self):
        """Ends it and returns how many packets of each flow were sent."""
        self.process.stop()
        return json.loads(self.process.output().splitlines()[-1])["sent"]


class FlowReceiver:
    """It wants the pairs; of a group without a source it expects those of sources."""

    def __init__(self, host, interface, pairs, sources):
        self.name = host.name
        self.expected = {(one, group) for source, group in pairs
                         for one in ([source] if source else [one for one in sources if (":" in one) == (":" in group)])}
        self.answer = f"/run/{host.name}.got"
        path = write_list(f"{host.name}.receive", pairs)
        self.process = Process(host, "flow-receive", "python3", PROGRAM, "receive", interface, path, self.answer)
        wait_for(lambda: "joined" in self.process.output(), f"{host.name} joining {len(pairs)} groups")

    def flows(self):
        """What came so far, by source and group."""
        before = os.stat(self.answer).st_ino if os.path.exists(self.answer) else 0
        self.process.process.send_signal(signal.SIGUSR1)
        wait_for(lambda: os.path.exists(self.answer) and os.stat(self.answer).st_ino != before, "an answer", 30)
        with open(self.answer) as file:
            return {(one["source"], one["group"]): one for one in json.load(file)}

    def silent_since(self, when):
        """The flows of which nothing came that was sent after the time."""
        flows = self.flows()
        return {pair for pair in self.expected if pair not in flows or flows[pair]["newest_sent"] <= when}

    def wait_all(self, what, timeout_s=30, after=None):
        """Until a packet of every flow came that was sent from now on, or after the time."""
        when = time.monotonic() if after is None else after
        end = time.monotonic() + timeout_s
        while True:
            time.sleep(0.2)
            silent = self.silent_since(when)
            if not silent:
                return
            assert time.monotonic() < end, f"{what}: {len(silent)} flows do not reach {self.name}: {sorted(silent)[:10]}"

    def longest_gap(self, begin, end):
        """Seconds and flow of the longest gap with a packet missing that was sent between the two times."""
        longest = (0.0, None)
        for pair, flow in self.flows().items():
            for _, _, before, after in flow["gaps"]:
                if after > begin and before < end:
                    longest = max(longest, (after - before, pair))
        return longest

    def lost(self, begin, end):
        """How many packets are missing of those gaps."""
        return sum(missing for flow in self.flows().values() for _, missing, before, after in flow["gaps"]
                   if after > begin and before < end)

    def repeated(self):
        """When the packets were sent that came again, by flow."""
        return {pair: flow["repeated"] for pair, flow in self.flows().items() if flow["repeated"]}
