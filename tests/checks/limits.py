#!/usr/bin/env python3
"""docs/limits.md gives for each limit the value that the code has: the last column of a row names the constant, or the
member of a settings record, and the column default its value."""

import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGE = TOP / "docs/limits.md"
FOLDERS = ("daemons", "host", "src", "include", "platform")
UNITS = {"KiB": 1 << 10, "MiB": 1 << 20, "GiB": 1 << 30}


def definitions():
    """Every "name = expression" and "name{expression}" that gives a number, by name."""
    found = {}
    for folder in FOLDERS:
        for path in sorted((TOP / folder).rglob("*.h")) + sorted((TOP / folder).rglob("*.cpp")):
            text = re.sub(r"//.*", "", path.read_text())
            text = re.sub(r"\b(?:u?int\d+_t|size_t)\{(\w+)\}", r"\1", text)
            for name, value in re.findall(r"\b(\w+)\s*(?:=|\{)\s*([\w\s+*/<>().-]+?)\s*[;,}]", text):
                found.setdefault(name, []).append(value)
    return found


def number(expression, known, depth=0):
    """The value of a constant expression, None when it is not one."""
    words = re.sub(r"(?<=\d)[uUlL]+\b", "", expression)
    for name in set(re.findall(r"\b[A-Za-z_]\w*\b", words)):
        values = {number(one, known, depth + 1) for one in known.get(name, [])} if depth < 4 else set()
        values.discard(None)
        if len(values) != 1:
            return None
        words = re.sub(rf"\b{name}\b", str(values.pop()), words)
    if not re.fullmatch(r"[\d\sx+*/<>().-]+", words):
        return None
    try:
        return int(eval(words.replace("/", "//"), {"__builtins__": {}}))  # digits and operators alone
    except (SyntaxError, ZeroDivisionError):
        return None


def rows():
    """Line, default and name of each limit on the page."""
    for at, line in enumerate(PAGE.read_text().splitlines(), 1):
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        names = re.findall(r"`([\w:]+)`", cells[-1])
        if line.startswith("|") and names:
            yield at, cells[1], names[0].split("::")[-1]


def written(text):
    amount = re.match(r"(\d+)(?: (\w+))?", text)
    return int(amount.group(1)) * UNITS.get(amount.group(2), 1) if amount else None


def main():
    known = definitions()
    wrong, count = [], 0
    for at, default, name in rows():
        count += 1
        values = {number(one, known) for one in known.get(name, [])} - {None}
        if not values:
            wrong.append(f"docs/limits.md:{at}: the code has no number called {name}")
        elif written(default) not in values:
            wrong.append(f"docs/limits.md:{at}: {name} is {sorted(values)} in the code, here {default}")
    print("\n".join([*wrong, f"{count} limits"]))
    return 1 if wrong or not count else 0


if __name__ == "__main__":
    sys.exit(main())
