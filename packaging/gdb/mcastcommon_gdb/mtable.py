"""Group and source tables, whose trees are the platform's."""

from . import address, host
from .memory import cast, count, listing, summary


def records(tree, kind):
    try:
        for record in host.tree_records(tree):
            yield cast(record, kind)
    except host.OtherPlatform as reason:
        yield f"<{reason}>"


def groups(table):
    return records(table["groups"], "MTABLE_GROUP_S")


def sources(group):
    return records(group["sources"], "MTABLE_SOURCE_S")


def table_text(table):
    return f"table of {count(int(table['group_count']), 'group')}, {count(int(table['source_count']), 'source')}"


def group_text(group):
    try:
        return f"{address.text(group['address'])} with {count(host.tree_count(group['sources']), 'source')}"
    except host.OtherPlatform:
        return address.text(group["address"])


def source_text(source):
    group = f" of {address.text(source['group']['address'])}" if int(source["group"]) else ""
    return address.text(source["address"]) + group


def lines(table):
    yield table_text(table)
    for group in groups(table):
        if isinstance(group, str):
            yield "  " + group
            return
        yield "  " + group_text(group)
        for source in sources(group):
            yield "    " + address.text(source["address"])


PRINTERS = {
    "MTABLE_S": listing(table_text, groups),
    "MTABLE_GROUP_S": summary(group_text),
    "MTABLE_SOURCE_S": summary(source_text),
}
