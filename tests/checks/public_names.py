"""The names that the public headers declare with MCAST_API, for the checks that need them."""

import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parents[2]


def by_header():
    """For each header of include/mcast that exports anything, its names in the order of declaration."""
    names = {}
    for path in sorted((TOP / "include/mcast").glob("*.h")):
        text = re.sub(r"/\*.*?\*/", "", path.read_text(), flags=re.DOTALL)
        for declaration in re.findall(r"^MCAST_API\s+([^;]*);", text, re.MULTILINE):
            head = re.sub(r"\b(MCAST_[A-Z_]+)\s*\([^()]*\)", "", declaration)  # lock annotations
            names.setdefault(f"mcast/{path.name}", []).append(re.search(r"(\w+)\s*(\(|\[|$)", head).group(1))
    return names


def platform():
    """The names that a platform provides: the functions and objects that platform/ declares."""
    names = set()
    for path in (TOP / "platform").glob("*.h"):
        text = re.sub(r"/\*.*?\*/|#(?:\\\n|[^\n])*", "", path.read_text(), flags=re.DOTALL)
        names |= set(re.findall(r"^(?!typedef|static|_Static)(?:\w+[ *]+)+(\w+)\([^;]*\);", text, re.MULTILINE))
        names |= set(re.findall(r"^extern [^;{]*?(\w+)\s*(?:\[\w*\])?;", text, re.MULTILINE))
    return names
