"""Checks the includes of every room against the table of rooms in docs/architecture.md.

Each row of that table names a folder and what it may use; an include of anything else of this project fails.
Private headers (those without a folder of include/ or host/include) stay inside their own room.
"""

import glob
import os
import re
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


def rooms():
    table = {}
    with open(os.path.join(ROOT, "docs/architecture.md")) as text:
        for line in text:
            match = re.match(r"\| `([\w/]+)` \|[^|]*\|([^|]*)\|", line)
            if match:
                table[match.group(1)] = set(re.findall(r"`([\w/]+)`", match.group(2)))
    return table


def room_of_include(name, folder):
    """The room an included header belongs to, or None for a foreign header."""
    for prefix, room in (("mcast/", "include/mcast"), ("platform/", "platform"), ("mcasthost/", "host/include")):
        if name.startswith(prefix):
            return room
    if name.startswith("host/"):
        return "/".join(name.split("/")[:2])
    for base, room in ((os.path.join(ROOT, "src"), "src/"), (os.path.join(ROOT, "daemons"), "daemons/")):
        if os.path.exists(os.path.join(base, name)):
            return room + name.split("/")[0]
    if os.path.exists(os.path.join(folder, name)):
        return os.path.relpath(folder, ROOT)
    return None


def main():
    faults, files = [], 0
    table = rooms()
    if not table:
        sys.exit("no table of rooms in docs/architecture.md")
    for room, allowed in sorted(table.items()):
        for path in glob.glob(os.path.join(ROOT, room, "**", "*"), recursive=True):
            if not re.search(r"\.(h|cpp|inc)$", path):
                continue
            files += 1
            with open(path) as source:
                for name in re.findall(r'^\s*#include "([^"]+)"', source.read(), re.MULTILINE):
                    used = room_of_include(name, os.path.dirname(path))
                    if used is None or used == room or used.startswith(room + "/") or used in allowed:
                        continue
                    faults.append(f"{os.path.relpath(path, ROOT)} includes {name}: {room} may not use {used}")
    print("\n".join(faults))
    print(f"{files} files in {len(table)} rooms")
    return 1 if faults or files == 0 else 0


sys.exit(main())
