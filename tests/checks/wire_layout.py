#!/usr/bin/env python3
"""The layout tables of the protocol pages, compared with the headers that define the bytes.

    wire_layout.py            compares
    wire_layout.py --write    writes the tables anew; what the last column says of a field is kept

A section of a page whose heading names a record of the header, in backticks, has its table: offset, bytes, field,
meaning. A field that is new gets its comment in the header as meaning.
"""

import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGES = {"docs/channel-records.md": "include/mcast/mrib_wire.h", "docs/usrauth.md": "include/mcast/usrauth_wire.h"}
HEAD = "| offset | bytes | field | |\n|---|---|---|---|\n"
SIZES = {"uint8_t": 1, "uint16_t": 2, "uint32_t": 4, "uint64_t": 8}


def records(header):
    """For each record its fields: offset, size, name, comment. A record's own size is under its name in SIZES."""
    found = {}
    for body, name in re.findall(r"typedef struct \w+_PACKED \w+ \{(.*?)\} (\w+);", header, re.DOTALL):
        offset, found[name] = 0, []
        fields = r"^\s+(\w+) (\w+)(?:\[(\d+)\])?;[ \t]*(?:/\* (.*?) \*/)?"
        for kind, field, count, comment in re.findall(fields, body, re.MULTILINE):
            size = SIZES[kind] * int(count or 1)
            found[name].append((offset, size, field, comment))
            offset += size
        SIZES[name] = offset
    return found


def table(fields, meanings):
    rows = (f"| {at} | {size} | `{field}` | {meanings.get(field, note)} |" for at, size, field, note in fields)
    return HEAD + "".join(f"{row}\n".replace("|  |", "| |") for row in rows)


def rewritten(text, known):
    """The page with its tables made anew, and the records that it shows."""
    shown = []
    sections = re.split(r"^(?=##+ )", text, flags=re.MULTILINE)
    for i, section in enumerate(sections):
        named = [name for name in re.findall(r"`(\w+_S)`", section.splitlines()[0]) if name in known]
        if not named:
            continue
        shown.append(named[0])
        size = sum(size for _, size, _, _ in known[named[0]])
        section = re.sub(r"(?<=`, )\d+(?= bytes)", str(size), section, count=1)
        old = re.search(r"^\| offset .*\n\|.*\n(\|.*\n)*", section, re.MULTILINE)
        meanings = dict(re.findall(r"^\| \d+ \| \d+ \| `(\w+)` \| ?(.*?) ?\|$", old.group() if old else "", re.MULTILINE))
        fresh = table(known[named[0]], meanings)
        sections[i] = section.replace(old.group(), fresh) if old else f"{section.rstrip()}\n\n{fresh}\n"
    return "".join(sections), shown


def type_faults(page, text, header):
    """Message and record types: each table that lists types has the numbers of the header's enumeration of its place."""
    enums = re.findall(r"^enum \w+ \{(.*?)\};", header, re.MULTILINE | re.DOTALL)
    tables = re.findall(r"^\| type \|.*\n\|.*\n((?:\|.*\n)*)", text, re.MULTILINE)
    for i, values in enumerate(enums):
        listed = re.findall(r"^\| (\d+) \|", tables[i] if i < len(tables) else "", re.MULTILINE)
        if listed != re.findall(r"= (\d+)", values):
            yield f"{page}: table {i + 1} of types is not the enumeration in the header"


def main():
    wrong = []
    for page, header in PAGES.items():
        definitions = (TOP / header).read_text()
        known = records(definitions)
        text = (TOP / page).read_text()
        fresh, shown = rewritten(text, known)
        if "--write" in sys.argv[1:]:
            (TOP / page).write_text(fresh)
        elif fresh != text:
            wrong.append(f"{page} is not what {header} says; type: python3 tests/checks/wire_layout.py --write")
        wrong += type_faults(page, text, definitions)
        wrong += [f"{page}: no section about {name}" for name in known if name not in shown]
    print("\n".join(wrong))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
