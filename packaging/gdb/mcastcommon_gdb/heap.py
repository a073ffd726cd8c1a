"""The binary heap."""

from .memory import count, listing


def elements(heap):
    """By position, the least first."""
    for at in range(min(int(heap["count"]), int(heap["capacity"]))):
        yield heap["slots"][at]


def text(heap):
    return f"heap of {count(int(heap['count']), 'element')}, room for {int(heap['capacity'])}"


PRINTERS = {"MCAST_MINHEAP_S": listing(text, elements)}
