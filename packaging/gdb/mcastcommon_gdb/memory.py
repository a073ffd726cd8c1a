"""Reading the program's memory, and what the printers have in common."""

import re

import gdb


class Summary:
    """A printer whose whole text is what its function makes of the record."""

    def __init__(self, text, value):
        self.text, self.value = text, value

    def to_string(self):
        try:
            return self.text(self.value)
        except gdb.MemoryError as error:
            return f"<{error}>"


class Listing(Summary):
    """A printer that shows, behind its text, the records found in the one that is printed."""

    def __init__(self, text, members, value):
        super().__init__(text, value)
        self.members = members

    def children(self):
        try:
            for number, member in enumerate(self.members(self.value)):
                yield f"[{number}]", member
        except gdb.MemoryError as error:
            yield "[...]", f"<{error}>"

    def display_hint(self):
        return "array"


def summary(text):
    return lambda value: Summary(text, value)


def listing(text, members):
    return lambda value: Listing(text, members, value)


def record_of(value):
    """The record itself, when value may also be a pointer to it."""
    plain = value.type.strip_typedefs()
    if plain.code in (gdb.TYPE_CODE_PTR, gdb.TYPE_CODE_REF):
        return value.referenced_value()
    return value


def type_name(value):
    plain = value.type.strip_typedefs()
    return plain.tag or plain.name or ""


def pointer_to(name):
    return gdb.lookup_type(name).pointer()


def cast(address, name):
    """The record of a type that lies at an address."""
    return gdb.Value(int(address)).cast(pointer_to(name)).dereference()


def number_at(address, name="unsigned long"):
    return int(cast(address, name))


def bytes_at(address, size):
    return bytes(gdb.selected_inferior().read_memory(int(address), size)) if size else b""


def text_at(value):
    """A terminated text, or nothing for NULL."""
    return value.string(errors="replace") if int(value) else ""


def function_name(value):
    if not int(value):
        return "nothing"
    found = re.search(r"<(.+)>", value.format_string(symbols=True))
    return found.group(1) if found else hex(int(value))


def count(number, singular, plural=None):
    return f"{number} {singular if number == 1 else plural or singular + 's'}"


def object_named(name):
    """A global object of the library."""
    symbol = gdb.lookup_global_symbol(name)
    if symbol is None:
        raise gdb.GdbError(f"there is no {name}: is the library loaded, and its debug information there?")
    return symbol.value()
