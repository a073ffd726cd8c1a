"""Route tables: groups, and the sources of each."""

from . import address, radix
from .memory import count, listing, pointer_to, summary, text_at

GROUP_LEVEL = 1


def entries(table):
    kind = pointer_to("MRT_GROUP_S" if int(table["level"]) == GROUP_LEVEL else "MRT_SOURCE_S")
    for entry in radix.entries(table["tree"]):
        yield entry.cast(kind).dereference()


def table_text(table):
    name = text_at(table["name"])
    what = "group" if int(table["level"]) == GROUP_LEVEL else "source"
    number = int(table["tree"]["entry_count"])
    return f"table {name!r} of {count(number, what)}" if name else f"table of {count(number, what)}"


def prefix(entry):
    return f"{address.text(entry['address'].dereference())}/{int(entry['mask_length'])}"


def data_text(entry):
    data = int(entry["user_data"])
    return f", user data {hex(data)}" if data else ""


def group_text(group):
    sources = int(group["sources"]["tree"]["entry_count"]) if int(group["sources"]) else 0
    return f"{prefix(group)} with {count(sources, 'source')}{data_text(group)}"


def source_text(source):
    group = f" of {prefix(source['group'])}" if int(source["group"]) else ""
    return f"{prefix(source)}{group}{data_text(source)}"


def lines(table):
    yield table_text(table)
    for entry in entries(table):
        if int(table["level"]) == GROUP_LEVEL:
            yield "  " + group_text(entry)
            for source in entries(entry["sources"]):
                yield f"    {prefix(source)}{data_text(source)}"
        else:
            yield "  " + source_text(entry)


PRINTERS = {
    "MRT_TABLE_S": listing(table_text, entries),
    "MRT_GROUP_S": summary(group_text),
    "MRT_SOURCE_S": summary(source_text),
}
