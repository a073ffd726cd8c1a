"""The library's own height-balanced tree."""

from .memory import count, listing


def nodes(tree):
    """The nodes in ascending order, no more than the tree counts."""
    path, node, left = [], tree["root"], int(tree["node_count"])
    while (path or int(node)) and left > 0:
        while int(node) and len(path) <= left:
            path.append(node)
            node = node["left"]
        node = path.pop()
        yield node
        node, left = node["right"], left - 1


def items(tree):
    for node in nodes(tree):
        yield node["data"]


def text(tree):
    height = int(tree["root"]["height"]) if int(tree["root"]) else 0
    return f"AVL tree of {count(int(tree['node_count']), 'item')}, height {height}"


PRINTERS = {"MCAST_AVL_S": listing(text, items)}
