"""How gdb shows the types of this library; gdb loads this file by itself with the library.

A package rarely brings debug information of the library's inside, so records, queues' nodes and
slots are read as words of 64 bits where that suffices.
"""

import gdb
import gdb.printing


def word(address, size=8, signed=False):
    memory = gdb.selected_inferior().read_memory(int(address), size)
    return int.from_bytes(bytes(memory), "little", signed=signed)


def member(value, name, size=8):
    """A member that is one word, whether plain, atomic or a smart pointer."""
    return word(value[name].address, size)


def text(address, length=None):
    if length is not None:
        memory = gdb.selected_inferior().read_memory(address, length)
        return bytes(memory).decode("utf-8", "replace")
    return gdb.Value(address).cast(gdb.lookup_type("char").pointer()).string("utf-8", "replace")


def type_name(type_info):
    """The readable name of the std::type_info at an address."""
    mangled = text(word(type_info + 8)).lstrip("*")
    readable = gdb.execute("demangle -- _ZTS" + mangled, to_string=True).strip()
    return readable.removeprefix("typeinfo name for ")


def whole_object(address):
    """The complete object that a polymorphic part of it belongs to, as a cast to copy."""
    table = word(address)
    top = address + word(table - 16, signed=True)
    return f"({type_name(word(table - 8))} *) {top:#x}"


def counts(record):
    return word(record, 4, True), word(record + 4, 4, True)


def pointer(record):
    """What a pointer with this record refers to, in words."""
    if record == 0:
        return "empty"
    strong, weak = counts(record)
    holders = f"{weak} holder" + ("" if weak == 1 else "s")
    address = word(record + 8)
    if strong < 0 or address == 0 or address & 1:
        state = {-333: "being destroyed", -111: "destroyed"}.get(strong, f"strong count {strong}")
        return f"dead ({state}), {holders}"
    return f"{whole_object(address)}, {strong} strong, {holders}"


class Pointer:
    """StrongPtr and WeakPtr."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return pointer(member(self.value, "myReferer"))


class TypeInfo:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return type_name(member(self.value, "type_"))


class CacheQueue:
    """The sums, and the entries from the newest to the oldest."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return f"{member(self.value, 'entries_', 4)} entries, {member(self.value, 'total_')} bytes"

    def children(self):
        node_type = gdb.lookup_type("Tolvane::Cacheable")
        queue = self.value.cast(node_type)
        at = member(queue, "prev_")
        position = 0
        while at not in (0, int(queue.address)):
            node = gdb.Value(at).cast(node_type.pointer()).dereference()
            name = node["name_"].address  # a string begins with its address and its length
            record = member(node["self_"], "myReferer")
            yield f"[{position}]", f'"{text(word(name), word(int(name) + 8))}" {pointer(record)}'
            at = member(node, "prev_")
            position += 1


class CacheMultiQueue:
    """The queues that were made so far."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return f"{word(int(self.value['hades_'].address) + 16)} zombies"

    def children(self):
        queue_type = gdb.lookup_type("Tolvane::CacheQueue").pointer()
        for name in ("primary", "temporaries", "keepers"):
            queue = member(self.value[name + "_"], "queue")
            if queue != 0:
                yield name, gdb.Value(queue).cast(queue_type).dereference()


class Intercube:
    """The slots; their set is a hash table whose nodes form a list: next, type, pointer."""

    def __init__(self, value):
        self.slots = member(value, "slots_")

    def to_string(self):
        return f"{word(self.slots + 24) if self.slots else 0} slots"

    def children(self):
        at = word(self.slots + 16) if self.slots else 0
        while at != 0:
            yield f"[{type_name(word(at + 8))}]", pointer(word(at + 24))
            at = word(at)


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("tolvane")
    for name, printer in (
        ("StrongPtr<.*>", Pointer),
        ("WeakPtr<.*>", Pointer),
        ("TypeInfo", TypeInfo),
        ("CacheQueue", CacheQueue),
        ("CacheMultiQueue", CacheMultiQueue),
        ("Intercube", Intercube),
    ):
        collection.add_printer(name, f"^Tolvane::{name}$", printer)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
