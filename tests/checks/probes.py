"""Compares the probes in the built library with docs/probes.md, by the notes that tracers read.

probes.py LIBRARY: each probe of the page stands in the library with as many arguments as the page names, and has a line
for bpftrace that asks for no more; the library has no others.
"""

import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
PROVIDER = "mcastcommon"


def in_library(library):
    """The number of arguments of each probe, at every place at which it stands."""
    notes = subprocess.run(["readelf", "-nW", library], check=True, stdout=subprocess.PIPE, text=True).stdout
    found = {}
    for provider, name, arguments in re.findall(r"Provider: (\S+)\s+Name: (\S+)\s.*\n\s*Arguments: ?(.*)", notes):
        if provider == PROVIDER:
            # An argument is its size and where it is; commas and blanks only occur inside brackets.
            found.setdefault(name, set()).add(len(re.findall(r"-?\d+@", arguments)))
    return found


def in_page():
    """The number of arguments that the page's table names, and the highest that its line for bpftrace uses."""
    page = (TOP / "docs/probes.md").read_text()
    named = {}
    for name, arguments in re.findall(r"^\| `(\w+__\w+)` \| ([^|]+) \|", page, re.MULTILINE):
        # What is in brackets, and what follows a colon or semicolon, only explains.
        plain = re.sub(r"\([^)]*\)|[:;].*", "", arguments)
        named[name] = plain.count(",") + 1
    lines = dict(re.findall(rf"^    bpftrace -e 'usdt:LIB:{PROVIDER}:(\w+) (.*)'$", page, re.MULTILINE))
    used = {name: max(map(int, re.findall(r"\barg(\d)", line)), default=-1) for name, line in lines.items()}
    return named, used


def main(library):
    found, (named, used) = in_library(library), in_page()
    if not found:
        print("skipped: the library was built without <sys/sdt.h>, it has no probes")
        return 77
    wrong = [f"not in docs/probes.md: {name}" for name in sorted(found.keys() - named.keys())]
    wrong += [f"not in the library: {name}" for name in sorted(named.keys() - found.keys())]
    wrong += [f"{name} has {sorted(found[name])} arguments, the page names {named[name]}"
              for name in sorted(found.keys() & named.keys()) if found[name] != {named[name]}]
    wrong += [f"no line for bpftrace: {name}" for name in sorted(named.keys() - used.keys())]
    wrong += [f"the line of {name} uses arg{used[name]}, which there is not"
              for name in sorted(named.keys() & used.keys()) if used[name] >= named[name]]
    print("\n".join(wrong))
    print(f"{len(found)} probes")
    return 1 if wrong else 0


sys.exit(main(sys.argv[1]))
