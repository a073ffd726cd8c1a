"""The containers of the host platform, behind the handles that the library keeps.

A handle is opaque: another platform's containers cannot be walked here. libmcasthost lays them out so:

    tree   header node, compare, free, count      a node: parent, left, right, balance; the header's parent is the root
    hash   array of rings: begin, end, room; free              a node: next, previous
"""

import os

import gdb

from .memory import number_at

WORD = 8
COUNT_OF_TREE = 6 * WORD


class OtherPlatform(Exception):
    """The program's platform is not libmcasthost."""


def need_host():
    if not any(os.path.basename(found.filename or "").startswith("libmcasthost.so") for found in gdb.objfiles()):
        raise OtherPlatform("only the containers of libmcasthost can be walked")


def tree_records(handle):
    """Addresses of the records, in order."""
    need_host()
    handle = int(handle)
    if not handle:
        return
    path, node, left = [], number_at(handle), number_at(handle + COUNT_OF_TREE, "unsigned int")
    while (path or node) and left > 0:
        while node and len(path) <= left:
            path.append(node)
            node = number_at(node + WORD)
        node = path.pop()
        yield node
        node, left = number_at(node + 2 * WORD), left - 1


def tree_count(handle):
    need_host()
    return number_at(int(handle) + COUNT_OF_TREE, "unsigned int") if int(handle) else 0


def hash_records(handle):
    """Addresses of the records, bucket by bucket."""
    need_host()
    handle = int(handle)
    if not handle:
        return
    begin, end = number_at(handle), number_at(handle + WORD)
    for ring in range(begin, end, 2 * WORD):
        seen, node = {ring}, number_at(ring)
        while node not in seen:
            seen.add(node)
            yield node
            node = number_at(node)
