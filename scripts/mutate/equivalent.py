"""The breaks that somebody looked at and found to change nothing that a caller can see, from equivalent.txt."""
from pathlib import Path


def reviewed():
    """(path, line before, line after) of each. The file gives each a path, the two lines and the reason."""
    text = (Path(__file__).parent / "equivalent.txt").read_text()
    found = set()
    for entry in text.split("\n\n")[1:]:
        path, before, after, *reason = entry.strip().split("\n")
        if not before.startswith("- ") or not after.startswith("+ ") or not reason:
            raise SystemExit(f"mutate: equivalent.txt: an entry is a path, '- before', '+ after' and a reason: {entry}")
        found.add((path, before[2:], after[2:]))
    return found
