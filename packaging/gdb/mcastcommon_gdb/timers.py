"""Timers and their manager."""

from . import heap
from .memory import count, function_name, listing, pointer_to, summary


def timers(manager):
    """The pending timers, the next first."""
    kind = pointer_to("MCAST_TMR_NODE_S")
    pending = [slot.cast(kind).dereference() for slot in heap.elements(manager["heap"])]
    return sorted(pending, key=lambda timer: int(timer["expiry"]))


def manager_text(manager):
    if not int(manager["heap"]) or not int(manager["heap"]["count"]):
        return "no timers"
    first = timers(manager)[0]
    return f"{count(int(manager['heap']['count']), 'timer')}, the next at {int(first['expiry'])} s since boot"


def timer_text(timer):
    data = ", ".join(hex(int(timer["data"][at])) for at in range(4))
    return f"at {int(timer['expiry'])} s since boot: {function_name(timer['callback'])}({data})"


PRINTERS = {"MCAST_TMR_S": listing(manager_text, timers), "MCAST_TMR_NODE_S": summary(timer_text)}
