"""gdb shows nivur's pointers, buffers, dictionaries and loops by what they hold.

gdb loads this by itself with the library. What stands in the standard library's containers is read
by that library's printers, which gdb loads likewise.
"""

import re

import gdb
import gdb.printing

# Those that a loop lacks are left out.
LOOP_QUEUES = ("_runningItem", "_runningTimers", "_intake", "_highPriorityItems", "_items",
               "_sortedTimers")
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
    """What a container or pointer of the standard library holds."""
    printer = gdb.default_visualizer(value)
    if not hasattr(printer, "children"):
        raise gdb.GdbError("the printers of the standard library are missing")
    return [child for _, child in printer.children()]


def own_type(pointer):
    """The name of the type that an object was made as, and the type itself where gdb has it."""
    static = pointer.type.target()
    name = None
    try:
        table = pointer.cast(gdb.lookup_type("unsigned long").pointer()).dereference()
        symbol = gdb.execute(f"info symbol {int(table)}", to_string=True)
        name = re.match(r"vtable for (.+) \+ \d+ in section", symbol)
        return (name[1], gdb.lookup_type(name[1])) if name else (str(static), static)
    except gdb.error:  # of a class inside a function, for example
        return name[1] if name else str(static), None


def posted(task):
    """The task itself, also where it waits in one that will release its poster."""
    name, own = own_type(task)
    awaited = name == "NIVUR::RunLoop::AwaitedTask"
    return children(task.cast(own.pointer())["_task"])[0] if awaited else task


def linked_tasks(task):
    while int(task) != 0:
        yield task
        task = task["_next"]


def due_time(timer):
    return int(timer["_nextTime"]), int(timer["_sequence"])


def tasks(queue):
    """Pointers to the tasks in a queue, in their order."""
    if field(queue, "_first") is not None:
        yield from linked_tasks(queue["_first"])
    elif field(queue, "_head") is not None:  # the last one added, or a small number that is a mark
        head = number(queue["_head"])
        task = gdb.Value(head if head > 2 else 0).cast(queue.type.template_argument(0).pointer())
        yield from reversed(list(linked_tasks(task)))
    elif field(queue, "_heap") is not None:
        for timer in sorted(children(queue["_heap"]), key=due_time):
            yield from children(timer["_runnable"])
    else:  # the pointer to a queue or to a task, or the timers of a pass
        for child in children(queue):
            if child.type.strip_typedefs().target().name == "NIVUR::Runnable":
                yield child
            elif field(child.dereference(), "_runnable") is not None:
                yield from children(child["_runnable"])
            else:
                yield from tasks(child.dereference())


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


class BufferPrinter:
    def __init__(self, value):
        self._buffer = value
        self._used = int(value["_usedSize"])
        self._data = value["_data"]

    def to_string(self):
        state = int(self._buffer["_state"])
        text = f"Buffer, {BUFFER_STATES.get(state, state)}"
        if int(self._data) == 0:
            return text
        memory = gdb.selected_inferior().read_memory(int(self._data) + self._used, 4)
        guard = bytes(memory).hex()
        intact = guard in ("dbbaad0b", "0badbadb")  # in either order of bytes
        return (f"{text}, {self._used} of {self._buffer['_capacity']} bytes, "
                + ("guard intact" if intact else f"guard overwritten: {guard}"))

    def children(self):
        if self._used != 0:
            yield "data", self._data.dereference().cast(
                self._data.type.target().array(self._used - 1))
        values = self._buffer["_parameter"]["_entries"]
        if children(values):
            yield "parameter", values


class DictionaryPrinter:
    def __init__(self, value):
        self._entries = []  # keys and values in turn
        for maps in children(value["_maps"]):  # none, or the pointer to all
            for each in maps.dereference().type.fields():
                if each.name.endswith("Dictionary"):
                    self._entries += children(maps[each.name].cast(each.type.fields()[0].type))

    def to_string(self):
        return f"Dictionary, keys: {len(self._entries) // 2}"

    def children(self):
        return ((str(i), value) for i, value in enumerate(self._entries))

    def display_hint(self):
        return "map"


class RunLoopPrinter:
    def __init__(self, value):
        self._name = value["_name"]
        self._queues = [(name, list(tasks(value[name]))) for name in LOOP_QUEUES
                        if field(value, name) is not None]

    def to_string(self):
        sizes = (f"{name}: {len(queue)}" for name, queue in self._queues)
        return f"RunLoop {self._name}, {', '.join(sizes)}"

    def children(self):
        for name, queue in self._queues:
            for i, task in enumerate(queue):
                own = posted(task)
                yield f"{name}[{i}]", f"{own_type(own)[0]} at {int(own):#x}"


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("nivur")
    collection.add_printer("SharedPtr", "^NIVUR::SharedPtr<.*>$", SharedPtrPrinter)
    collection.add_printer("Buffer", "^NIVUR::Buffer$", BufferPrinter)
    collection.add_printer("Dictionary", "^NIVUR::Dictionary$", DictionaryPrinter)
    collection.add_printer("RunLoop", "^NIVUR::RunLoop$", RunLoopPrinter)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
