"""Shows nivur's pointers, buffers, pools, rings, dictionaries, events, sockets and loops by their contents.

gdb loads this file with the library. The standard library's containers are read by that library's
printers, which gdb loads in the same way. Without these, or without the library's debug information,
an object is shown by its address.
"""

import ipaddress
import re
import struct

import gdb
import gdb.printing

LOOP_QUEUES = ("_current", "_dueTimers", "_readyWatches", "_intake", "_highPriorityItems", "_items",
               "_timers", "_watches")
BUFFER_STATES = {0: "invalid", 1: "free", 2: "in use"}


def field(value, name):
    try:
        return value[name]
    except gdb.error:
        return None


def number(value):
    """The integer that a plain or an atomic field holds."""
    atomic = field(value, "_M_i")
    return int(value if atomic is None else atomic)


def children(value):
    """The elements of a container, or the object of a smart pointer, of the standard library."""
    printer = gdb.default_visualizer(value)
    if not hasattr(printer, "children"):
        raise gdb.GdbError("the printers of the standard library are missing")
    return [child for _, child in printer.children()]


def own_type(pointer):
    """The name of an object's dynamic type, and the type itself if gdb has it."""
    static = pointer.type.target()
    name = None
    try:
        table = pointer.cast(gdb.lookup_type("unsigned long").pointer()).dereference()
        symbol = gdb.execute(f"info symbol {int(table)}", to_string=True)
        name = re.match(r"vtable for (.+) \+ \d+ in section", symbol)
        return (name[1], gdb.lookup_type(name[1])) if name else (str(static), static)
    except gdb.error:  # for example for a class in a function
        return name[1] if name else str(static), None


def posted(task):
    """The task itself, also if an AwaitedTask wraps it."""
    name, own = own_type(task)
    return held(task.cast(own.pointer())) if name == "NIVUR::AwaitedTask" else task


def held(owner):
    """The task that a source or an awaited task owns."""
    owned = children(owner["_task"])
    return owned[0] if owned else gdb.Value(0).cast(gdb.lookup_type("NIVUR::Runnable").pointer())


def linked_tasks(task):
    while int(task) != 0:
        yield task
        task = task["_next"]


def task_at(word):
    return gdb.Value(word).cast(gdb.lookup_type("NIVUR::Runnable").pointer())


def due_time(timer):
    return int(timer["_nextTime"]), int(timer["_sequence"])


def in_queue(queue):
    yield from linked_tasks(queue["_first"])


def in_intake(intake):
    head = number(intake["_head"])  # the address of the newest task, or a mark, which is a small number
    yield from reversed(list(linked_tasks(task_at(head if head > 2 else 0))))


def in_current(current):
    word = number(current["_word"]) & ~1
    if word != 0:
        yield task_at(word)


def in_batch(batch):
    yield from (held(source) for source in children(batch["_sources"])[int(batch["_begin"]):])


def in_timers(timers):
    yield from (held(timer) for timer in sorted(children(timers["_heap"]), key=due_time))


def in_watches(watches):
    for each in children(watches):  # a pointer to the list, perhaps null
        if int(each) != 0:
            yield from (held(watch) for watch in children(each["_byId"])[1::2])


TASKS = {"NIVUR::TaskQueue": in_queue, "NIVUR::Intake": in_intake, "NIVUR::CurrentTask": in_current,
         "NIVUR::TimerQueue": in_timers}


def tasks(queue):
    """Pointers to the tasks in a queue, in their order."""
    name = str(queue.type.strip_typedefs().unqualified())
    return TASKS.get(name, in_batch if "Batch" in name else in_watches)(queue)


class Printer:
    """The base of printers of one value without children."""
    def __init__(self, value):
        self._value = value

    def children(self):
        return ()


class SharedPtrPrinter:
    def __init__(self, value):
        self._object = value["_ptr"]
        self._count = value["_sharedCount"]

    def to_string(self):
        if int(self._object) == 0:
            return "empty SharedPtr"
        references = number(self._count["_refCount"])
        return f"SharedPtr to {own_type(self._object)[0]}, references: {references}"

    def children(self):
        own = own_type(self._object)[1] if int(self._object) != 0 else None
        if own is not None:
            yield "object", self._object.cast(own.pointer()).dereference()


class BufferPrinter(Printer):
    def __init__(self, value):
        super().__init__(value)
        self._used = int(value["_usedSize"])
        self._data = value["_data"]

    def to_string(self):
        state = int(self._value["_state"])
        text = f"Buffer, {BUFFER_STATES.get(state, state)}"
        if int(self._data) == 0:
            return text
        guard = memory(int(self._data) + self._used, 4).hex()
        intact = guard in ("dbbaad0b", "0badbadb")  # in either order of bytes
        return (f"{text}, {self._used} of {self._value['_capacity']} bytes, "
                + ("guard intact" if intact else f"guard overwritten: {guard}"))

    def children(self):
        if self._used != 0:
            yield "data", self._data.dereference().cast(
                self._data.type.target().array(self._used - 1))
        values = self._value["_parameter"]["_entries"]
        if children(values):
            yield "parameter", values


def in_blocks(block):
    """The entries of a dictionary, from its first block on."""
    while int(block) != 0:
        order = (block + 1).cast(gdb.lookup_type("unsigned char").pointer()) + int(block["_capacity"])
        yield from (block["_entries"][int(order[i])] for i in range(int(block["_count"])))
        block = block["_next"]


class DictionaryPrinter:
    def __init__(self, value):
        self._entries = []  # keys and values in turn
        first = children(value["_blocks"])  # a pointer to it, perhaps null
        entries = in_blocks(first[0]) if first else []
        for entry in sorted(entries, key=lambda entry: int(entry["value"]["_M_index"])):
            held = gdb.default_visualizer(entry["value"]).contained_value  # from the printer of variants
            self._entries += [entry["key"], held]

    def to_string(self):
        return f"Dictionary, keys: {len(self._entries) // 2}"

    def children(self):
        return ((str(i), value) for i, value in enumerate(self._entries))

    def display_hint(self):
        return "map"


class RunLoopPrinter:
    def __init__(self, value):
        state = children(value["_state"])[0]
        self._name = state["_name"]
        self._queues = [(name, list(tasks(state[name]))) for name in LOOP_QUEUES]

    def to_string(self):
        sizes = (f"{name}: {len(queue)}" for name, queue in self._queues)
        return f"RunLoop {self._name}, {', '.join(sizes)}"

    def children(self):
        for name, queue in self._queues:
            for i, task in enumerate(queue):
                own = posted(task)
                yield f"{name}[{i}]", f"{own_type(own)[0]} at {int(own):#x}"


def memory(address, size):
    return bytes(gdb.selected_inferior().read_memory(int(address), size))


class BufferPoolPrinter:
    def __init__(self, value):
        self._name = value["_name"]
        self._lists = [each.dereference() for owner in children(value["_lists"]) for each in children(owner)]
        self._fallbacks = number(value["_fallbacks"])

    def to_string(self):
        return f"BufferPool {self._name}, lists: {len(self._lists)}, fallbacks: {self._fallbacks}"

    def children(self):
        for i, each in enumerate(self._lists):
            buffers = [buffer for owner in children(each["_buffers"]) for buffer in children(owner)]
            free = sum(int(buffer["_state"]) == 1 for buffer in buffers)
            yield str(i), f"{len(buffers)} buffers of {each['_bufferSize']} bytes, free: {free}"


class RingBufferPrinter(Printer):
    def to_string(self):
        written, read = (number(self._value[side]["total"]) for side in ("_writer", "_reader"))
        stored = (written - read) % 2**32
        return f"RingBuffer {self._value['_name']}, {stored} of {self._value['_size']} bytes"


class EventPrinter(Printer):
    def to_string(self):
        return f"Event {self._value['_id']}"

    def children(self):
        values = self._value["_parameter"]["_entries"]
        if children(values):
            yield "parameter", values


class EventCenterPrinter:
    def __init__(self, value):
        found = children(value["_handlers"])
        self._handlers = list(zip(found[::2], found[1::2]))

    def to_string(self):
        return f"EventCenter, names: {len(self._handlers)}"

    def children(self):
        for name, handlers in self._handlers:
            for i, each in enumerate(children(handlers["registrations"])):
                handler = each["handler"]
                yield f"{name}[{i}]", f"{own_type(handler)[0]} at {int(handler):#x}"


class SocketAddressPrinter(Printer):
    def to_string(self):
        data = memory(self._value["_bytes"].address, 28)
        family, = struct.unpack_from("=H", data)
        port, = struct.unpack_from(">H", data, 2)
        if family == 2:
            return f"{ipaddress.IPv4Address(data[4:8])}:{port}"
        if family == 10:
            scope, = struct.unpack_from("=I", data, 24)
            return f"[{ipaddress.IPv6Address(data[8:24])}{f'%{scope}' if scope else ''}]:{port}"
        return "no address"


class SocketPrinter(Printer):
    def to_string(self):
        name = str(self._value.type.strip_typedefs().unqualified())[len("NIVUR::"):]
        descriptor = int(self._value["_socket"])
        if descriptor < 0:
            return f"{name}, not created"
        return f"{name}, descriptor {descriptor}, {'IPv6' if self._value['_isIPv6'] else 'IPv4'}"


class Shown:
    """The complete output of a printer, or the address of an object that the printer cannot read."""

    def __init__(self, printer, value):
        try:
            made = printer(value)
            self._text, self._children = made.to_string(), list(made.children())
            if hasattr(made, "display_hint"):
                self.display_hint = made.display_hint
        except (gdb.error, gdb.GdbError):
            where = "" if value.address is None else f" at {int(value.address):#x}"
            self._text, self._children = f"{value.type}{where}", []

    def to_string(self):
        return self._text

    def children(self):
        return iter(self._children)


PRINTERS = {"SharedPtr<.*>": SharedPtrPrinter, "Buffer": BufferPrinter, "BufferPool": BufferPoolPrinter,
            "RingBuffer": RingBufferPrinter, "Dictionary": DictionaryPrinter, "Event": EventPrinter,
            "EventCenter": EventCenterPrinter, "SocketAddress": SocketAddressPrinter,
            "(Client|Server|UDP)?Socket": SocketPrinter, "RunLoop": RunLoopPrinter}


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("nivur")
    for name, printer in PRINTERS.items():
        collection.add_printer(name, f"^NIVUR::{name}$", lambda value, made=printer: Shown(made, value))
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
