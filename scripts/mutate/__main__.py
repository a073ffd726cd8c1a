"""./run mutate FOLDER N [SEED]: breaks N places of a module, one at a time, and lists those that no test noticed.
./run mutate again FILE: tries those breaks again that a run listed, in a file that holds the list.

Everything happens in a copy of the tree under the temporary folder. A break that does not compile, warnings included,
is not counted. A test that fails, crashes or exceeds its time limit has noticed the break.
"""
import random
import re
import signal
import sys
import time
from collections import Counter
from pathlib import Path

from breaks import applied, breaks_of, shown
from equivalent import reviewed
from laboratory import Laboratory, programs_of, sanitized_of, simulations_of

MODULES = ("src", "host", "daemons")
PORTION = 40
WORDS = {"": "SURVIVED", "build": "does not compile", "test": "noticed", "time limit": "noticed, time limit"}
LISTED = re.compile(r"^(\S+):(\d+)\n  - (.*)\n  \+ (.*)$", re.M)


def all_breaks(tree, folder):
    found = []
    files = [tree / folder] if (tree / folder).is_file() else sorted((tree / folder).rglob("*"))
    for file in files:
        path = str(file.relative_to(tree))
        if file.suffix in (".cpp", ".h"):
            found += breaks_of(path, file.read_text())
    return found


def drawn(folder, seed):
    def choose(tree):
        found = all_breaks(tree, folder)
        random.Random(seed).shuffle(found)
        return found
    return choose


def listed(file):
    """The breaks of a list, found again by their lines, of equal lines by the nearest; a line that changed is gone."""
    try:
        text = Path(file).read_text()
    except OSError as error:
        sys.exit(f"mutate: {error}")

    def choose(tree):
        found = []
        for path, line, before, after in LISTED.findall(text):
            there = (tree / path).read_text() if (tree / path).is_file() else ""
            places = [(abs(number - int(line)), one) for one in breaks_of(path, there)
                      for number, *lines in [shown(there, one)] if lines == [before, after]]
            if places:
                found.append(min(places)[1])
            else:
                print(f"is there no more: {path}:{line}  {after}")
        return found
    return choose


class Round:
    def __init__(self, laboratory, wanted):
        self.laboratory, self.wanted = laboratory, wanted
        self.counts = Counter()
        self.survivors = []
        self.equivalent = reviewed()

    @property
    def counted(self):
        return self.counts["test"] + self.counts["time limit"] + len(self.survivors)

    def verdict(self, one, build, programs):
        """What noticed the break: "build", "test", "time limit", or nothing."""
        file = self.laboratory.tree / one.path
        text = file.read_text()
        file.write_text(applied(text, one))
        try:
            return next(filter(None, (self.verdict_of(build, program) for program in programs)), "")
        finally:
            file.write_text(text)

    def verdict_of(self, build, program):
        if self.laboratory.compile(build, [program]):
            return "build"
        return self.laboratory.fails(build, program)

    def lines(self, one):
        return shown((self.laboratory.tree / one.path).read_text(), one)

    def try_out(self, one):
        line, before, after = self.lines(one)
        if (one.path, before, after) in self.equivalent:
            self.counts["equivalent"] += 1
            return
        verdict = self.verdict(one, self.laboratory.plain, programs_of(one.path) + simulations_of(one.path))
        if not verdict:
            self.survivors.append(one)
        else:
            self.counts[verdict] += 1
        print(f"{self.counted:4}/{self.wanted}  {WORDS[verdict]}: {one.path}:{line}  {after}", flush=True)

    def look_closer(self):
        """What survived, with sanitizers, whose build is a long one."""
        for one in list(self.survivors):
            verdict = self.verdict(one, self.laboratory.sanitized, sanitized_of(one.path))
            line, _, after = self.lines(one)
            print(f"with sanitizers, {WORDS[verdict]}: {one.path}:{line}  {after}", flush=True)
            if verdict:
                self.survivors.remove(one)
                self.counts[verdict] += 1
                self.counts["sanitizers"] += verdict != "build"

    def report(self):
        noticed = self.counts["test"] + self.counts["time limit"]
        if not self.counted:
            print("no break was tried")
            return
        print(f"\n{self.counted} breaks: {noticed} noticed ({100 * noticed / self.counted:.1f} %, "
              f"{self.counts['sanitizers']} of them by sanitizers alone, {self.counts['time limit']} by the time limit), "
              f"{len(self.survivors)} survived; {self.counts['build']} more did not compile, "
              f"{self.counts['equivalent']} more change nothing that a test could see, says equivalent.txt")
        for one in self.survivors:
            line, before, after = self.lines(one)
            print(f"{one.path}:{line}\n  - {before}\n  + {after}")


def run(laboratory, choose, wanted, seed):
    laboratory.prepare()
    waiting = choose(laboratory.tree)
    if not waiting:
        sys.exit("mutate: nothing to break there")
    wanted = min(wanted, len(waiting))
    print(f"{len(waiting)} places to break, seed {seed}; building their tests", flush=True)
    begin = time.monotonic()
    programs = sorted({program for path in {one.path for one in waiting}
                       for program in programs_of(path) + simulations_of(path)})
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
            # Breaks of the same file one after the other: the file that is restored need not be compiled. A portion at
            # a time: a run that is interrupted has tried them all over the folder.
            chosen = sorted(waiting[: min(PORTION, wanted - round_.counted)])
            del waiting[: len(chosen)]
            for one in chosen:
                round_.try_out(one)
        round_.look_closer()
    except KeyboardInterrupt:
        print("\ninterrupted; the sanitizers may not have looked at all that survived")
    round_.report()
    print(f"seed {seed}, {time.monotonic() - begin:.0f} s")


def asked_for(arguments):
    """What chooses the breaks, how many of them, and the seed; None if that is no way to ask."""
    folder, seed = Path(arguments[0] if arguments else ""), random.SystemRandom().randrange(1 << 32)
    if arguments[:1] == ["again"] and len(arguments) == 2:
        return listed(arguments[1]), sys.maxsize, seed
    if 2 <= len(arguments) <= 3 and all(map(str.isdigit, arguments[1:])) and folder.parts[:1] in zip(MODULES):
        seed = int(arguments[2]) if len(arguments) == 3 else seed
        return drawn(folder, seed), int(arguments[1]), seed
    return None


def main():
    asked = asked_for(sys.argv[1:])
    if not asked:
        sys.exit("usage: ./run mutate FOLDER N [SEED]\n       ./run mutate again FILE\n"
                 "FOLDER is src, host, daemons, or a folder or file in one of them, for example src/mrib; "
                 "FILE holds what an earlier run printed")
    choose, wanted, seed = asked
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    laboratory = Laboratory(seed)
    try:
        run(laboratory, choose, wanted, seed)
    finally:
        laboratory.close()


if __name__ == "__main__":
    main()
