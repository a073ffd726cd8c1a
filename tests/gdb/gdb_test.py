"""What gdb shows of the library's records, in a program that it has stopped and in the program's core dump.

gdb_test.py BUILD PROGRAM: installs the printers and puts the libraries beside them as an installed tree has them, so that
gdb finds the printers by itself; then compares what each print and each command shows with the table below.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

# A command of gdb and the lines that it must show; each is a pattern.
CASES = [
    ("print g_address4", [r"\$\d+ = 192\.0\.2\.1"]),
    ("print g_address6", [r"\$\d+ = 2001:db8::1"]),
    ("print g_stMribGmpVrfInfo.vrfs[1].key", [r"\$\d+ = IPv4, instance 1"]),
    ("print *g_routes->tree", [
        r"\$\d+ = radix tree of 2 prefixes, 1 glue node = {"
        r"\[239\.1\.0\.0/16\] = 0x[0-9a-f]+, \[239\.2\.2\.2/32\] = 0x[0-9a-f]+}"]),
    ("print *g_routes", [
        r"\$\d+ = table 'routes' of 2 groups = {239\.1\.0\.0/16 with 1 source, 239\.2\.2\.2/32 with 2 sources}"]),
    ("mcast tree g_routes->tree", [
        r"radix tree of 2 prefixes, 1 glue node",
        r"  glue, bit 14",
        r"    239\.1\.0\.0/16 entry 0x[0-9a-f]+",
        r"    239\.2\.2\.2/32 entry 0x[0-9a-f]+"]),
    ("mcast table g_routes", [
        r"table 'routes' of 2 groups",
        r"  239\.1\.0\.0/16 with 1 source",
        r"    10\.1\.1\.1/32",
        r"  239\.2\.2\.2/32 with 2 sources",
        r"    10\.1\.1\.1/32",
        r"    10\.2\.0\.0/16, user data 0x[0-9a-f]+"]),
    ("print g_members", [
        r"\$\d+ = table of 2 groups, 2 sources = {ff0e::1 with 0 sources, ff0e::2 with 2 sources}"]),
    ("mcast table &g_members", [
        r"table of 2 groups, 2 sources",
        r"  ff0e::1 with 0 sources",
        r"  ff0e::2 with 2 sources",
        r"    2001:db8::1",
        r"    2001:db8::2"]),
    ("print g_items", [
        r"\$\d+ = AVL tree of 3 items, height 2 = "
        r"{0x[0-9a-f]+ <items\+16>, 0x[0-9a-f]+ <items\+32>, 0x[0-9a-f]+ <items>}"]),
    ("mcast avl &g_items as struct ITEM_S", [
        r"AVL tree of 3 items, height 2",
        r"  \[0\] {position = 1, weight = 10}",
        r"  \[1\] {position = 3, weight = 20}",
        r"  \[2\] {position = 2, weight = 30}"]),
    ("mcast heap g_heap as struct ITEM_S", [
        r"heap of 3 elements, room for 16",
        r"  \[0\] {position = 1, weight = 10}",
        r"  \[1\] {position = 2, weight = 30}",
        r"  \[2\] {position = 3, weight = 20}"]),
    ("print *g_heap", [
        r"\$\d+ = heap of 3 elements, room for 16 = "
        r"{0x[0-9a-f]+ <items\+16>, 0x[0-9a-f]+ <items>, 0x[0-9a-f]+ <items\+32>}"]),
    ("mcast timers g_timers", [
        r"3 timers, the next at \d+ s since boot",
        r"  at \d+ s since boot: OnTimer\(0x0, 0x0, 0x0, 0x0\)",
        r"  at \d+ s since boot: nothing\(0x0, 0x0, 0x0, 0x0\)",
        r"  at \d+ s since boot: OnTimer\(0x1, 0x2, 0x3, 0x4\)"]),
    ("mcast channel", [
        r"component 4, IPv4, connected by descriptor \d+; 95 bytes in the current message; 2 of 8192 messages wait; 0 lost",
        r"  queued ever 2, lost to a full queue 0, lost to short memory 0",
        r"  flow control 0, replays awaited 0",
        r"  current: 95 bytes: 1 GMP_JOIN_PRUNE, 1 GMP_ENABLE",
        r"  waiting 1: 225 bytes: 3 GMP_JOIN_PRUNE",
        r"  waiting 2: 225 bytes: 3 GMP_JOIN_PRUNE"]),
    ("mcast view", [
        r"view of 2 instances",
        r"  IPv4, instance 0: disabled, no SSM list, flags 0",
        r"  IPv4, instance 1: enabled, no SSM list, flags 0"]),
    ("mcast users", [
        r"store of IPv4 users",
        r"  user (7 'alice' of node 1|8 'bobby' of node 2): .*",
        r"  user (7 'alice' of node 1|8 'bobby' of node 2): .*"]),
    ("mcast users 1", [
        r"store of IPv4 users",
        r"  user 7 'alice' of node 1: kind 3, interface 107, 192\.0\.2\.9, 1 group"]),
    ("mcast users 2", [
        r"store of IPv4 users",
        r"  user 8 'bobby' of node 2: kind 3, no interface, 192\.0\.2\.9, 1 group, not online"]),
    ("mcast tree no_such_object", [r'No symbol "no_such_object" in current context\.']),
    ("mcast table (MTABLE_S *)8", [r"Cannot access memory at address 0x10"]),
    ("mcast avl", [r"an expression is missing: the record, or a pointer to it"]),
    ("set print elements 1", []),
    ("mcast table g_routes", [
        r"table 'routes' of 2 groups",
        r"  239\.1\.0\.0/16 with 1 source",
        r'\.\.\. \("set print elements 0" shows all\)']),
    ("mcast table g_heap", [r"it takes MRT_TABLE_S or MTABLE_S, this is MCAST_MINHEAP_S \*"]),
]

MARK = "=== "


def install(build, tree):
    """The printers as they are installed, and the libraries in the folder for which they were."""
    subprocess.run(["cmake", "--install", build, "--prefix", tree, "--component", "gdb"], check=True,
                   stdout=subprocess.DEVNULL)
    scripts = os.path.join(tree, "share/gdb/auto-load")
    for folder, _, files in os.walk(scripts):
        if any(name.endswith("-gdb.py") for name in files):
            libdir = os.path.join("/", os.path.relpath(folder, scripts))
            break
    else:
        sys.exit("gdb_test: nothing was installed for gdb")
    os.makedirs(libdir, exist_ok=True)
    for name in os.listdir(os.path.join(build, "lib")):
        if name.startswith(("libmcastcommon.so", "libmcasthost.so")):
            shutil.copy(os.path.join(build, "lib", name), libdir, follow_symlinks=False)
    return scripts, libdir


class Shown(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.tree = os.path.realpath(tempfile.mkdtemp(prefix="gdb_test."))
        cls.addClassCleanup(shutil.rmtree, cls.tree)
        cls.scripts, cls.libdir = install(BUILD, cls.tree)
        cls.core = os.path.join(cls.tree, "core")
        os.mkdir(os.path.join(cls.tree, "run"), 0o700)
        cls.live = cls.gdb(["break StopHere", "run"], [f"generate-core-file {cls.core}"])
        cls.dead = cls.gdb([f"core-file {cls.core}"], [])

    @classmethod
    def gdb(cls, before, after):
        """What gdb says to each of the cases."""
        script = os.path.join(cls.tree, "script")
        with open(script, "w") as out:
            settings = ("confirm off", "pagination off", "width 0", "debuginfod enabled off",
                        "startup-with-shell off")
            out.write("\n".join([f"set {setting}" for setting in settings] + before) + "\n")
            for number, (command, _) in enumerate(CASES):
                # A failing command would end a script; python goes on and says why.
                out.write(f'echo {MARK}{number}\\n\npython\ntry:\n    gdb.execute({command!r})\n'
                          "except gdb.error as error:\n    print(error)\nend\n")
            out.write(f"echo {MARK}end\\n\n" + "\n".join(after) + "\n")
        environment = dict(os.environ, LD_LIBRARY_PATH=cls.libdir, LC_ALL="C",
                           MCAST_HOST_RUNTIME_DIR=os.path.join(cls.tree, "run"))
        ran = subprocess.run(["gdb", "-nx", "-batch", "-iex", f"set auto-load scripts-directory {cls.scripts}",
                              "-iex", f"add-auto-load-safe-path {cls.tree}", "-x", script, PROGRAM],
                             env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if "Could not trace the inferior process" in ran.stdout or "ptrace: Operation not permitted" in ran.stdout:
            print("skipped: gdb may not trace a process here")
            sys.exit(77)
        parts = re.split(rf"^{MARK}(\w+)\n", ran.stdout, flags=re.MULTILINE)
        if len(parts) != 2 * len(CASES) + 3:
            sys.exit(f"gdb_test: gdb did not come to the end:\n{ran.stdout}")
        return [part.splitlines() for part in parts[2:-2:2]]

    def compare(self, shown):
        for (command, expected), lines in zip(CASES, shown):
            with self.subTest(command):
                fits = len(lines) == len(expected) and all(map(re.fullmatch, expected, lines))
                self.assertTrue(fits, "\n".join(["", command, *lines, "instead of", *expected]))

    def test_of_a_stopped_program(self):
        self.compare(self.live)

    def test_of_a_core_dump(self):
        self.compare(self.dead)


if __name__ == "__main__":
    if shutil.which("gdb") is None:
        print("skipped: there is no gdb")
        sys.exit(77)
    BUILD, PROGRAM = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1])
