"""Printers and commands for the records of libmcastcommon, a module for each kind of record.

They read memory and never call into the program, so that they work on a core dump as well. What a record counts bounds
every walk: damaged links end it instead of leading it in circles. Types come from the debug information of the program
and, for what is private, of the library.
"""

import gdb.printing

from . import address, avl, channel, commands, heap, mtable, radix, route_table, timers, users

MODULES = (address, avl, channel, heap, mtable, radix, route_table, timers, users)


def register(objfile):
    collection = gdb.printing.RegexpCollectionPrettyPrinter("mcastcommon")
    for module in MODULES:
        for record, printer in module.PRINTERS.items():
            collection.add_printer(record, f"^{record}$", printer)
    gdb.printing.register_pretty_printer(objfile, collection, replace=True)
    commands.register()
