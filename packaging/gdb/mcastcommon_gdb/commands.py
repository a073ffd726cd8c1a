"""The commands: mcast WORD, each a walk over one kind of record, as long as "set print elements" allows."""

import gdb

from . import avl, channel, heap, mtable, radix, route_table, timers, users
from .memory import record_of, type_name


def show(lines):
    most = gdb.parameter("print elements") or None
    try:
        for number, line in enumerate(lines):
            if most is not None and number > most:
                print('... ("set print elements 0" shows all)')
                return
            print(line)
    except gdb.MemoryError as error:
        raise gdb.GdbError(str(error)) from None


def record_from(argument, *wanted):
    """The record of one of the types that the expression gives, or points at."""
    if not argument.strip():
        raise gdb.GdbError("an expression is missing: the record, or a pointer to it")
    try:
        value = gdb.parse_and_eval(argument)
    except gdb.error as error:
        raise gdb.GdbError(str(error)) from None
    record = record_of(value)
    if type_name(record) not in wanted:
        raise gdb.GdbError(f"it takes {' or '.join(wanted)}, this is {value.type}")
    return record


def items_from(argument, module, members):
    """EXPRESSION [as TYPE]: the module's record as text, and its items, of the type when there is one."""
    expression, _, kind = argument.partition(" as ")
    record = record_from(expression, *module.PRINTERS)
    yield module.text(record)
    wanted = gdb.lookup_type(kind.strip()).pointer() if kind else None
    for number, item in enumerate(members(record)):
        shown = item.cast(wanted).dereference().format_string(pretty_structs=False) if wanted else hex(int(item))
        yield f"  [{number}] {shown}"



class Mcast(gdb.Command):
    """Walks the records of libmcastcommon; "help mcast" lists what there is."""

    def __init__(self):
        super().__init__("mcast", gdb.COMMAND_DATA, prefix=True)


class Tree(gdb.Command):
    """mcast tree EXPRESSION: a radix tree as it branches, with its glue nodes."""

    def __init__(self):
        super().__init__("mcast tree", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        show(radix.lines(record_from(argument, "MRT_RDX_TREE_S")))


class Table(gdb.Command):
    """mcast table EXPRESSION: a route table or a group and source table, with the sources of each group."""

    def __init__(self):
        super().__init__("mcast table", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        kinds = {"MRT_TABLE_S": route_table.lines, "MTABLE_S": mtable.lines}
        record = record_from(argument, *kinds)
        show(kinds[type_name(record)](record))


class Avl(gdb.Command):
    """mcast avl EXPRESSION [as TYPE]: the items of an AVL tree in order, printed as TYPE when it is given."""

    def __init__(self):
        super().__init__("mcast avl", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        show(items_from(argument, avl, avl.items))


class Heap(gdb.Command):
    """mcast heap EXPRESSION [as TYPE]: the elements of a heap by position, printed as TYPE when it is given."""

    def __init__(self):
        super().__init__("mcast heap", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        show(items_from(argument, heap, heap.elements))


class Timers(gdb.Command):
    """mcast timers EXPRESSION: the pending timers of a manager, the next first."""

    def __init__(self):
        super().__init__("mcast timers", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        manager = record_from(argument, "MCAST_TMR_S")
        show([timers.manager_text(manager), *("  " + timers.timer_text(timer) for timer in timers.timers(manager))])


class Channel(gdb.Command):
    """mcast channel: the connection to the MRIB, with the records of the messages that have not been sent."""

    def __init__(self):
        super().__init__("mcast channel", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        show(channel.lines())


class View(gdb.Command):
    """mcast view: what the client knows about each VPN instance."""

    def __init__(self):
        super().__init__("mcast view", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        show(channel.view_lines())


class Users(gdb.Command):
    """mcast users [NODE]: the announced users, of one access node or of all.
On a platform other than libmcasthost only users that have an interface are found."""

    def __init__(self):
        super().__init__("mcast users", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        show(users.lines(int(argument, 0) if argument.strip() else None))


def register():
    for command in (Mcast, Tree, Table, Avl, Heap, Timers, Channel, View, Users):
        command()
