"""Whether everything that names the version names the same one, and, if so, its tag: release_check.py [--look].

The version is in include/mcast/common.h. With --look nothing is tagged and changes that are not committed do not matter.
"""

import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent


def first(path, pattern):
    """What the pattern's group is where it first matches in the file."""
    match = re.search(pattern, (TOP / path).read_text(), re.MULTILINE)
    return match.group(1) if match else "none"


def version():
    header = (TOP / "include/mcast/common.h").read_text()
    return ".".join(re.findall(r"^#define MCAST_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", header, re.MULTILINE))


def newest_symbol(path):
    """The newest version in which a name is said to have come."""
    found = re.findall(r" (\d+\.\d+\.\d+)$", (TOP / path).read_text(), re.MULTILINE)
    return max(found, key=lambda text: [int(number) for number in text.split(".")])


def disagreements(wanted):
    speakers = {"NEWS.md": first("NEWS.md", r"^## (\S+)$"),
                "packaging/debian/changelog": first("packaging/debian/changelog", r"^mcastcommon \((\S+)\)")}
    for path, said in speakers.items():
        if said != wanted:
            yield f"{path} speaks of {said}, include/mcast/common.h of {wanted}"
    for library in ("libmcastcommon1", "libmcasthost1"):
        path = f"packaging/debian/{library}.symbols"
        newest = newest_symbol(path)
        if [int(number) for number in newest.split(".")] > [int(number) for number in wanted.split(".")]:
            yield f"{path} has names of {newest}, which is newer than {wanted}"


def git(*words):
    done = subprocess.run(("git", "-C", TOP, *words), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout.strip()


def main():
    wanted = version()
    faults = list(disagreements(wanted))
    if "--look" not in sys.argv:
        if git("status", "--porcelain")[1]:
            faults.append("the tree has changes that are not committed")
        tagged = git("rev-parse", "--verify", "--quiet", f"v{wanted}^{{commit}}")[1]
        if tagged and tagged != git("rev-parse", "HEAD")[1]:
            faults.append(f"v{wanted} is the tag of another commit: a release after it needs another version")
        if not faults and not tagged:
            code, text = git("tag", "-a", f"v{wanted}", "-m", f"Version {wanted}")
            faults += [text] if code else []
    for fault in faults:
        print(f"release-check: {fault}")
    if not faults:
        print(f"version {wanted}" + ("" if "--look" in sys.argv else f", tagged v{wanted}"))
    return 1 if faults else 0


sys.exit(main())
