"""Radix trees: prefixes of the caller's entries, with the glue nodes that join them."""

import ipaddress

from .memory import bytes_at, count, number_at


def nodes(tree):
    """Each node with its depth: a node, its left subtree, its right subtree; no more than the tree counts."""
    left = int(tree["entry_count"]) + int(tree["glue_count"])
    waiting = [(0, tree["root"])]
    while waiting and left > 0:
        depth, node = waiting.pop()
        if not int(node):
            continue
        yield depth, node
        waiting += [(depth + 1, node["right"]), (depth + 1, node["left"])]
        left -= 1


def entries(tree):
    for _, node in nodes(tree):
        if int(node["entry"]):
            yield node["entry"]


def prefix(tree, entry):
    """The prefix under which an entry is linked, as text."""
    longest = int(tree["maximum_length"])
    key = number_at(int(entry) + int(tree["key_pointer_offset"])) + int(tree["address_offset"])
    length = bytes_at(int(entry) + int(tree["length_offset"]), 1)[0]
    raw = bytes_at(key, (longest + 7) // 8)
    if longest in (32, 128):
        return f"{ipaddress.ip_address(raw)}/{length}"
    return f"{raw.hex()}/{length}"


def text(tree):
    glue = count(int(tree["glue_count"]), "glue node")
    return f"radix tree of {count(int(tree['entry_count']), 'prefix', 'prefixes')}, {glue}"


class TreePrinter:
    def __init__(self, tree):
        self.tree = tree

    def to_string(self):
        return text(self.tree)

    def children(self):
        for number, entry in enumerate(entries(self.tree)):
            yield f"key {number}", prefix(self.tree, entry)
            yield f"value {number}", entry

    def display_hint(self):
        return "map"


def lines(tree):
    """The tree as it branches."""
    yield text(tree)
    for depth, node in nodes(tree):
        entry = node["entry"]
        what = f"{prefix(tree, entry)} entry {hex(int(entry))}" if int(entry) else f"glue, bit {int(node['bit'])}"
        yield "  " * (depth + 1) + what


PRINTERS = {"MRT_RDX_TREE_S": TreePrinter}
