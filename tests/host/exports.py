"""Checks what libmcasthost exports: the platform's names as platform/ declares them, HOST_ names as its public
headers declare them, under the version of the library; and the calls that it takes over from libc under their bare names,
because versioned ones would not be found by callers that were linked against libc."""

import glob
import os
import re
import subprocess
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
VERSION = "MCASTHOST_1"
FROM_LIBC = {"accept", "accept4", "bind", "connect", "epoll_ctl", "setsockopt", "socket"}


def declared(pattern):
    names = set()
    for path in glob.glob(os.path.join(ROOT, pattern)):
        with open(path) as header:
            text = re.sub(r"/\*.*?\*/", "", header.read(), flags=re.DOTALL)
        names |= set(re.findall(r"^[A-Za-z_][^(){};=]*?\b(\w+)\s*\([^()]*(?:\([^()]*\)[^()]*)*\);", text, re.MULTILINE))
        names |= set(re.findall(r"^extern [^{]*?(\w+)\s*(?:\[\w*\])?;", text, re.MULTILINE))
    return {name for name in names if name not in ("static_assert", "_Static_assert")}


def main(library):
    words = ("nm", "-D", "--defined-only", library)
    lines = subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
    versions = {name: version for name, _, version in (line.split()[-1].partition("@@") for line in lines)}
    versions.pop(VERSION, None)
    exported = set(versions)
    platform, own = declared("platform/*.h"), declared("host/include/mcasthost/*.h")
    faults = [f"exported, but nobody's: {n}" for n in sorted(exported - platform - own - FROM_LIBC)]
    faults += [f"not exported: {n}" for n in sorted((own | FROM_LIBC) - exported)]
    faults += [f"exported as of version '{version}': {name}" for name, version in sorted(versions.items())
               if version != ("" if name in FROM_LIBC else VERSION)]
    if not platform or not own:
        faults.append("no declarations found")
    print("\n".join(faults))
    print(f"{len(exported)} names exported; of the platform's still to come: {sorted(platform - exported)}")
    return 1 if faults else 0


sys.exit(main(sys.argv[1]))
