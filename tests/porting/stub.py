#!/usr/bin/env python3
"""The stub that ports start from has exactly the platform's names; with it every conformance program fails, none crashes
or hangs, and each name that was asked is said once.

stub.py LIBRARY BIN_FOLDER SERVICE...
"""

import collections
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "checks"))
import public_names  # noqa: E402

PREFIX_OPERATIONS = {f"Prefix{name}" for name in
                     ("Search", "Collect", "Insert", "Remove", "First", "Next", "Count", "Destroy")}


def main(library, folder, services):
    faults = []
    listed = subprocess.run(["nm", "-D", "--defined-only", library], stdout=subprocess.PIPE, text=True, check=True).stdout
    defined = {line.split()[-1] for line in listed.splitlines()}
    faults += [f"the stub lacks {name}" for name in sorted(public_names.platform() - defined)]
    faults += [f"the stub has {name}, which is not the platform's" for name in sorted(defined - public_names.platform())]
    asked = set()
    for service in services:
        run = subprocess.run([f"{folder}/port_stub_{service}"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                             timeout=60, check=False)
        if run.returncode != 1:
            faults.append(f"{service} with the stub ends with {run.returncode}, not as failed")
        said = collections.Counter(line.removesuffix(" is not ported yet") for line in run.stderr.splitlines())
        asked |= set(said)
        faults += [f"{service}: {name} was said {times} times" for name, times in said.items() if times != 1]
        faults += [f"{service}: not a name: {name}" for name in set(said) - public_names.platform() - PREFIX_OPERATIONS]
    if len(asked) < 30:
        faults.append(f"the conformance programs asked for {len(asked)} names only")
    print("\n".join(faults))
    print(f"{len(defined)} names, {len(asked)} of them asked by the conformance programs")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:]))
