"""Runs the same seeds with two builds of simulate and compares what they print, trace hashes included.

A difference is a fault of the simulation: something in it depends on the compiler, on addresses or on real time.
"""

import os
import subprocess
import sys
import tempfile

SEEDS = ["random", "1", "3", "0.5"]
SKIPPED = 77


def output_of(program: str) -> str:
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run([program, *SEEDS], cwd=folder, capture_output=True, text=True, check=False)
    return run.stdout


def main() -> int:
    one, other = (os.path.abspath(path) for path in sys.argv[1:3])
    if not os.path.exists(other):
        print(f"skipped: there is no {other} to compare with")
        return SKIPPED
    results = [output_of(one), output_of(other)]
    if results[0] != results[1] or "hash" not in results[0]:
        print(f"{one}:\n{results[0]}\n{other}:\n{results[1]}\nthe runs differ, or one build is older than the other")
        return 1
    print(results[0])
    return 0


if __name__ == "__main__":
    sys.exit(main())
