#!/usr/bin/env python3
"""What the documentation shows of a table has the columns that the table has; docs/mcastctl.md shows and
docs/control.md lists each."""

import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]


def heading(column):
    """A column's heading, as mcastctl prints it."""
    words = re.sub(r"_(m?s)$", r" (\1)", column).replace("_", " ")
    return words[0].upper() + words[1:]


def control_tables():
    """For each table of the daemons the headings of its columns."""
    text = (TOP / "daemons/common/control_tables.h").read_text()
    columns = {name: [heading(column) for column in re.findall(r'\{"(\w+)", FieldType', body)]
               for name, body in re.findall(r"ControlColumn (\w+)\[\] = \{\n(.*?)\n\};", text, re.DOTALL)}
    schemas = re.findall(r'ControlSchema \w+\{\d+, "([\w-]+)", \d+,\s+(\w+)\}', text)
    return {table: columns[name] for table, name in schemas}


def examples(page):
    """The tables that a page shows, each with its headings."""
    for name, line in re.findall(r"^\$ mcastctl show ([\w-]+)(?!.*--json).*\n(.+)", page.read_text(), re.MULTILINE):
        yield name, re.split(r"\s{2,}", line.strip())


def untrue_examples(tables):
    for page in sorted((TOP / "docs").glob("*.md")):
        for name, shown in examples(page):
            columns = tables.get(name, [])
            if not columns or shown[-len(columns):] != columns:
                yield f"{page.name}: an example of show {name} has not the columns {', '.join(columns)}"
    for name in tables.keys() - {name for name, _ in examples(TOP / "docs/mcastctl.md")}:
        yield f"docs/mcastctl.md: no example of: mcastctl show {name}"


def unlisted(tables):
    rows = [row for row in (TOP / "docs/control.md").read_text().splitlines() if row.startswith("|")]
    for table in tables:
        if not any(f"`{table}`" in row for row in rows):
            yield f"docs/control.md: {table} is not in the list of tables"


def main():
    tables = control_tables()
    wrong = [*untrue_examples(tables), *unlisted(tables)]
    print("\n".join([*wrong, f"{len(tables)} tables"]))
    return 1 if wrong or not tables else 0


if __name__ == "__main__":
    sys.exit(main())
