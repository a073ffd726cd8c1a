#!/usr/bin/env python3
"""Which exported function runs where: keeps docs/function-use.md true.

    function_use.py BUILD            compares the tables of the page with what the programs of a build folder link to
    function_use.py BUILD --write    writes the tables anew

A function counts as used when a program links to it, or a source of the library that some program reaches does.
The text of a section and the reasons for functions without a caller are written by hand, in the page itself, and
kept; a reason goes when its function gets a caller.
"""

import pathlib
import re
import subprocess
import sys

import public_names

TOP = public_names.TOP
PAGE = TOP / "docs/function-use.md"
USED = "| called by | functions |"
UNUSED = "| not called | because |"
NO_REASON = "?"


def programs():
    return sorted(path.parent.name for path in TOP.glob("daemons/*/main.cpp"))


def symbols(path, *options):
    """The symbols of a file, as pairs of kind and name."""
    listed = subprocess.run(["nm", *options, str(path)], capture_output=True, text=True, check=True).stdout
    return [(line.split()[-2], line.split()[-1].split("@")[0]) for line in listed.splitlines() if line.strip()]


def undefined(path, *options):
    return {name for kind, name in symbols(path, *options) if kind == "U"}


def reached_sources(build, roots):
    """The library's sources that the names in roots lead to, each with the names that it uses."""
    objects = build / "src/CMakeFiles/mcastcommon_objects.dir"
    uses, defined_in = {}, {}
    for path in sorted(objects.rglob("*.o")):
        source = str(path.relative_to(objects))
        uses[source] = undefined(path)
        for kind, name in symbols(path):
            if kind.isupper() and kind != "U":
                defined_in[name] = source
    reached, open_names = {}, set(roots)
    while open_names:
        source = defined_in.get(open_names.pop())
        if source is not None and source not in reached:
            reached[source] = uses[source]
            open_names |= uses[source]
    return reached


def callers(build):
    """For each name that something calls, its programs, then the library's rooms."""
    linked = {program: undefined(build / "bin" / program, "-D") for program in programs()}
    found = {}
    for program, names in linked.items():
        for name in names:
            found.setdefault(name, []).append(f"`{program}`")
    for source, names in reached_sources(build, set().union(*linked.values())).items():
        for name in names:
            found.setdefault(name, []).append(f"src/{source.split('/')[0]}")
    return {name: sorted(set(who), key=lambda one: (one.startswith("src/"), one)) for name, who in found.items()}


def grouped(pairs):
    """Lines of a table: names that share the other column share a row, in the order of their first one."""
    rows = {}
    for name, text in pairs:
        rows.setdefault(text, []).append(f"`{name}`")
    return rows.items()


def tables(names, used, reasons):
    lines = []
    called = [(name, ", ".join(used[name])) for name in names if name in used]
    uncalled = [(name, reasons.get(name, NO_REASON)) for name in names if name not in used]
    if called:
        lines += [USED, "|---|---|", *(f"| {who} | {', '.join(row)} |" for who, row in grouped(called)), ""]
    if uncalled:
        lines += [UNUSED, "|---|---|", *(f"| {', '.join(row)} | {why} |" for why, row in grouped(uncalled)), ""]
    return lines


def reasons_of(page):
    """The reason that the page gives for each function without a caller."""
    reasons = {}
    for table in page.split(UNUSED)[1:]:
        for row in table.split("\n\n")[0].splitlines():
            cells = [cell.strip() for cell in row.split("|")[1:-1]]
            if len(cells) == 2 and cells[1] != NO_REASON:
                reasons.update(dict.fromkeys(re.findall(r"`(\w+)`", cells[0]), cells[1]))
    return reasons


def rewritten(page, names, used):
    """The page with its tables made anew; each section names its header in its heading."""
    reasons = reasons_of(page)
    sections = page.split("\n## ")
    lines = [sections[0].rstrip(), ""]
    for section in sections[1:]:
        prose = re.sub(r"^\|.*\n?", "", section, flags=re.MULTILINE).rstrip()
        header = re.search(r"mcast/\w+\.h", prose.splitlines()[0])
        lines += [f"## {prose}", "", *tables(names.get(header and header.group(), []), used, reasons)]
    return "\n".join(lines).rstrip() + "\n"


def faults(page, names):
    headings = re.findall(r"^## .*?(mcast/\w+\.h)", page, re.MULTILINE)
    for header in sorted(names.keys() ^ set(headings)):
        yield f"{PAGE.name}: no section, or no such header: {header}"
    for row in re.findall(rf"^\| (.*) \| {re.escape(NO_REASON)} \|$", page, re.MULTILINE):
        yield f"{PAGE.name}: give the reason why nothing calls {row}"


def main():
    build, page, names = pathlib.Path(sys.argv[1]), PAGE.read_text(), public_names.by_header()
    used = callers(build)
    text = rewritten(page, names, used)
    if "--write" in sys.argv[2:]:
        PAGE.write_text(text)
        page = text
    wrong = list(faults(text, names))
    if page != text:
        wrong.append(f"{PAGE.name} is not what the programs link to; type:"
                     f" python3 tests/checks/function_use.py {build} --write")
    total = sum(map(len, names.values()))
    print("\n".join([*wrong, f"{sum(name in used for row in names.values() for name in row)} of {total} have a caller"]))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
