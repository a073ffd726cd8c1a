"""Checks the library's binary boundary.

exports.py LIBRARY: what it exports is exactly what the public headers declare with MCAST_API, all of it on the
list in src/exports.map; what it leaves undefined is libc's or on the platform's list; it needs libc alone.
"""

import os
import re
import subprocess
import sys

import public_names

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")


def lines(*words):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()


def listed():
    with open(os.path.join(ROOT, "src/exports.map")) as script:
        return set(re.findall(r"^\s+(\w+);", script.read(), re.MULTILINE))


def main(library):
    declared = set().union(*public_names.by_header().values())
    exported, undefined = set(), set()
    for line in lines("nm", "-D", library):
        kind, name = line.split()[-2:]
        bare = name.split("@")[0]
        if kind in "TDBRVW" and not bare.startswith("MCASTCOMMON"):
            exported.add(bare)
        elif kind == "U" and "@GLIBC" not in name:
            undefined.add(bare)
    needed = [line for line in lines("readelf", "-d", library) if "NEEDED" in line]
    faults = [f"exported but not declared in a public header: {n}" for n in sorted(exported - declared)]
    faults += [f"declared in a public header but not exported: {n}" for n in sorted(declared - exported)]
    faults += [f"exported but not on the list: {n}" for n in sorted(exported - listed())]
    faults += [f"undefined, and neither libc's nor the platform's: {n}" for n in sorted(undefined - public_names.platform())]
    faults += [f"needs more than libc: {n}" for n in needed if "[libc.so.6]" not in n]
    print("\n".join(faults))
    print(f"{len(exported)} names exported, {len(listed() - exported)} of the list still to come")
    return 1 if faults else 0


sys.exit(main(sys.argv[1]))
