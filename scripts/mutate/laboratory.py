"""A copy of the tree under the temporary folder, and the tests of a module built and run there.

Two builds stand side by side: a plain one, and one with sanitizers, which alone sees a write beside a block. As
`./run test` runs both, a break is noticed when either notices it. The simulation, which has an oracle of its own, is run
in the plain one only.
"""
import os
import resource
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MEMORY = 4 << 30
SANITIZED_IS_SLOWER = 10
SIMULATION = "simulate"
SIMULATED = ("common", "gmpd", "mribd", "msdpd")
LOOK_S = 0.05
# Hours of random life without faults and with them: what an unbroken tree runs in a few seconds.
SIMULATED_SEEDS = (("calm", "100", "1", "1"), ("random", "1", "3", "1"))


def programs_of(path):
    """The test programs of the module that a source belongs to, the quickest first. What all daemons share has tests
    of its own, and is under the tests of each daemon."""
    parts = Path(path).parts
    if parts[0] == "src":
        own = [f"unit_{parts[1]}"] if (ROOT / "tests/unit" / parts[1]).is_dir() else []
        return [*own, "property"]
    if parts[0] == "host":
        return ["host_parts", "host_tests"]
    if parts[1] == "common":
        return [f"daemons_{name}" for name in ("common", "mcastctl", "uagent", "msdpd", "mribd", "gmpd")]
    return [f"daemons_{parts[1]}"]


def sanitized_of(path):
    """Those of them that are run with sanitizers too: of what daemons share its own, for all would take too long."""
    programs = programs_of(path)
    return programs[:1] if path.startswith("daemons/common/") else programs


def simulations_of(path):
    """The program that runs the whole router, if the source is a part of what it runs."""
    parts = Path(path).parts
    return [SIMULATION] if parts[0] == "daemons" and parts[1] in SIMULATED else []


class Laboratory:
    def __init__(self, seed):
        self.folder = Path(tempfile.mkdtemp(prefix="mcast-mutate."))
        self.tree = self.folder / "tree"
        self.plain, self.sanitized = self.folder / "plain", self.folder / "sanitized"
        # A compiler cache, where there is one, shall find the unbroken files again in the next copy.
        self.environment = os.environ | {"CCACHE_BASEDIR": str(self.folder), "MCAST_PROPERTY_SEED": str(seed)}
        self.limits = {}  # program: seconds of processor time, seconds of waiting

    def close(self):
        shutil.rmtree(self.folder, ignore_errors=True)

    def prepare(self):
        listed = subprocess.run(["git", "ls-files", "-zco", "--exclude-standard"], cwd=ROOT, check=True,
                                capture_output=True, text=True).stdout.split("\0")
        for name in filter(None, listed):
            if (ROOT / name).is_file():
                (self.tree / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(ROOT / name, self.tree / name)
        self.configure(self.plain, "gcc", "g++")
        self.configure(self.sanitized, "clang-14", "clang++-14", "-DMCAST_SANITIZE=address,undefined")

    def configure(self, build, c_compiler, compiler, *options):
        subprocess.run(["cmake", "-S", self.tree, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=",
                        f"-DCMAKE_C_COMPILER={c_compiler}", f"-DCMAKE_CXX_COMPILER={compiler}",
                        "-DCMAKE_CXX_FLAGS=-O0", "-DMCAST_BENCH=OFF", *options],
                       check=True, stdout=subprocess.DEVNULL, env=self.environment)

    def compile(self, build, programs):
        """Empty if the programs were built, else what the compiler said."""
        done = subprocess.run(["ninja", "-C", build, *programs], capture_output=True, text=True,
                              env=self.environment)
        return "" if done.returncode == 0 else done.stdout + done.stderr

    def measure(self, programs):
        """Learns how long the tests take while nothing is broken. Returns the program that fails even so."""
        for program in programs:
            before, begin = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
            self.limits[program] = (600, 600)
            if self.fails(self.plain, program):
                return program
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
            self.limits[program] = (int(5 + 2 * used), 30 + 10 * (time.monotonic() - begin))
        return None

    def fails(self, build, program):
        """Runs the shares of a test program at once, until the first failure or the limit.
        Returns what gave it away, empty if nothing did."""
        slower = 1 if build == self.plain else SANITIZED_IS_SLOWER
        cpu, patience = (int(limit * slower) for limit in self.limits[program])

        def confine():
            resource.setrlimit(resource.RLIMIT_CPU, (cpu, cpu + 1))
            if build == self.plain:  # a sanitizer reserves more than any limit
                resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        # Temporary files of their own: in a laboratory every program has the same process number.
        folders = [Path(tempfile.mkdtemp(dir=self.folder)) for _ in self.shares(program)]
        running = [subprocess.Popen(
            [ROOT / "scripts/lab", build / "bin" / program, *words],
            cwd=build, env=self.environment | variables | {"TMPDIR": str(folder)}, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True, preexec_fn=confine)
            for (words, variables), folder in zip(self.shares(program), folders)]
        try:
            return self.first_failure(running, patience)
        finally:
            for one, folder in zip(running, folders):
                if one.poll() is None:
                    os.killpg(one.pid, signal.SIGKILL)
                    one.wait()
                shutil.rmtree(folder, ignore_errors=True)

    def shares(self, program):
        """Arguments and environment of each share: of the simulation its scripts and some seeds, of other programs
        their tests, divided among the cores."""
        if program == SIMULATION:
            scripts = sorted(map(str, (self.tree / "tests/simulation/scripts").glob("*.script")))
            return [(words, {}) for words in (("replay", *scripts), *SIMULATED_SEEDS)]
        cores = len(os.sched_getaffinity(0))
        return [(("--gtest_fail_fast", "--gtest_brief=1"),
                 {"GTEST_TOTAL_SHARDS": str(cores), "GTEST_SHARD_INDEX": str(share)}) for share in range(cores)]

    @staticmethod
    def first_failure(running, patience):
        """Patience is counted in waits: while this program itself is stopped, the tests are as well."""
        waiting, patience = list(running), patience / LOOK_S
        while waiting:
            for one in list(waiting):
                try:
                    code = one.wait(timeout=LOOK_S)
                except subprocess.TimeoutExpired:
                    patience -= 1
                    if patience < 0:
                        return "time limit"
                    continue
                if code != 0:
                    return "time limit" if code in (-signal.SIGXCPU, 128 + signal.SIGXCPU) else "test"
                waiting.remove(one)
        return ""
