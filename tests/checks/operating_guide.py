#!/usr/bin/env python3
"""What docs/mcastctl.md shows of each table has the columns that the table has; docs/control.md lists each."""

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


def untrue_examples(tables):
    guide = (TOP / "docs/mcastctl.md").read_text()
    shown = re.findall(r"^\$ mcastctl show ([\w-]+)(?!.*--json).*\n(.+)", guide, re.MULTILINE)
    for table, columns in tables.items():
        examples = [re.split(r"\s{2,}", line.strip()) for name, line in shown if name == table]
        if not examples:
            yield f"docs/mcastctl.md: no example of: mcastctl show {table}"
        for example in examples:
            if example[-len(columns):] != columns:
                yield f"docs/mcastctl.md: an example of show {table} has not the columns {', '.join(columns)}"


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
