"""./run mutate FOLDER N [SEED]: breaks N places of a module, one at a time, and lists those that no test noticed.

Everything happens in a copy of the tree under the temporary folder. A break that does not compile, warnings included,
is not counted. A test that fails, crashes or exceeds its time limit has noticed the break.
"""
import random
import signal
import sys
import time
from collections import Counter
from pathlib import Path

from breaks import applied, breaks_of, shown
from equivalent import reviewed
from laboratory import Laboratory, programs_of

MODULES = ("src", "host", "daemons")


def all_breaks(tree, folder):
    found = []
    files = [tree / folder] if (tree / folder).is_file() else sorted((tree / folder).rglob("*"))
    for file in files:
        path = str(file.relative_to(tree))
        if file.suffix in (".cpp", ".h"):
            found += breaks_of(path, file.read_text())
    return found


class Round:
    def __init__(self, laboratory, wanted):
        self.laboratory, self.wanted = laboratory, wanted
        self.counts = Counter()
        self.survivors = []
        self.equivalent = reviewed()

    @property
    def counted(self):
        return self.counts["test"] + self.counts["time limit"] + len(self.survivors)

    def verdict(self, one):
        """What noticed the break: "build", "test", "time limit", or nothing."""
        file = self.laboratory.tree / one.path
        text = file.read_text()
        file.write_text(applied(text, one))
        try:
            return self.verdict_of(self.laboratory.plain, one) or self.verdict_of(self.laboratory.sanitized, one)
        finally:
            file.write_text(text)

    def verdict_of(self, build, one):
        programs = programs_of(one.path)
        if self.laboratory.compile(build, programs):
            return "build"
        return next(filter(None, (self.laboratory.fails(build, program) for program in programs)), "")

    def try_out(self, one):
        line, before, after = shown((self.laboratory.tree / one.path).read_text(), one)
        if (one.path, before, after) in self.equivalent:
            self.counts["equivalent"] += 1
            return
        verdict = self.verdict(one)
        if not verdict:
            self.survivors.append(f"{one.path}:{line}\n  - {before}\n  + {after}")
        self.counts[verdict] += 1
        what = {"": "SURVIVED", "build": "does not compile", "test": "noticed", "time limit": "noticed, time limit"}
        print(f"{self.counted:4}/{self.wanted}  {what[verdict]}: {one.path}:{line}  {after}", flush=True)

    def report(self):
        noticed = self.counts["test"] + self.counts["time limit"]
        if not self.counted:
            print("no break was tried")
            return
        print(f"\n{self.counted} breaks: {noticed} noticed ({100 * noticed / self.counted:.1f} %, "
              f"{self.counts['time limit']} of them by the time limit), {len(self.survivors)} survived; "
              f"{self.counts['build']} more did not compile, {self.counts['equivalent']} more change nothing that a "
              "test could see, says equivalent.txt")
        for survivor in self.survivors:
            print(survivor)


def run(laboratory, folder, wanted, seed):
    laboratory.prepare()
    waiting = all_breaks(laboratory.tree, folder)
    if not waiting:
        sys.exit(f"mutate: nothing to break in {folder}")
    random.Random(seed).shuffle(waiting)
    print(f"{folder}: {len(waiting)} places to break, seed {seed}; building its tests", flush=True)
    begin = time.monotonic()
    programs = sorted({program for one in waiting for program in programs_of(one.path)})
    said = laboratory.compile(laboratory.plain, programs)
    if said:
        sys.exit(f"mutate: the unbroken tree does not build:\n{said[-4000:]}")
    failing = laboratory.measure(programs)
    if failing:
        sys.exit(f"mutate: {failing} fails without a break")
    print(f"built and run unbroken in {time.monotonic() - begin:.0f} s", flush=True)
    round_ = Round(laboratory, wanted)
    try:
        while waiting and round_.counted < wanted:
            # Breaks of the same file one after the other: the file that is restored need not be compiled.
            chosen = sorted(waiting[: wanted - round_.counted])
            del waiting[: len(chosen)]
            for one in chosen:
                round_.try_out(one)
    except KeyboardInterrupt:
        print("\ninterrupted")
    round_.report()
    print(f"seed {seed}, {time.monotonic() - begin:.0f} s")


def main():
    arguments = sys.argv[1:]
    folder = Path(arguments[0]) if arguments else Path()
    if not 2 <= len(arguments) <= 3 or not all(word.isdigit() for word in arguments[1:]) or (
            not folder.parts or folder.parts[0] not in MODULES):
        sys.exit("usage: ./run mutate FOLDER N [SEED]\n"
                 "FOLDER is src, host, daemons, or a folder or file in one of them, for example src/mrib")
    seed = int(arguments[2]) if len(arguments) == 3 else random.SystemRandom().randrange(1 << 32)
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    laboratory = Laboratory(seed)
    try:
        run(laboratory, folder, int(arguments[1]), seed)
    finally:
        laboratory.close()


if __name__ == "__main__":
    main()
