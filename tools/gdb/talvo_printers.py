# SPDX-License-Identifier: Apache-2.0
"""Shows references, containers and JSON elements in gdb as what they hold: docs/debugging.md.

Memory is read and nothing called, so core dumps will do. What an object is comes from its run-time
type information, which stripped programs have too.
"""

import itertools
import json
import re
import struct

import gdb
import gdb.printing


class At:
    """Where fields stand. Debug information would say it too, but a program mostly has none of what
    is compiled into the library: its classes, and templates of common types."""

    FRefs, FText, Target = 8, 8, 8                              # objects, exceptions, weak blocks
    Length, HeaderSize = 4, 12                                  # headers of dynamic arrays
    FCountLocks = 24                                            # locks, with four numbers behind
    FArray, FSize = 16, 24                                      # array lists
    FNodes, FFirst, FCount, FMarked = 16, 8, 24, 32             # linked lists
    FDictionary, Pairs, Hashes, Used, Count = 24, 0, 8, 44, 48  # dictionaries and sets
    FKind, FBoolean, FValue, FTape, FNode = 12, 13, 16, 24, 32  # JSON elements
    Nodes, Characters = 16, 40                                  # parsed JSON documents
    NodeLength, NodeValue, NodeSize = 4, 8, 16                  # nodes of those
    MemberValue, MemberSize = 32, 40                            # members of JSON objects


TEXT_CLASS = r"std::(__cxx11::)?basic_string<char16_t\b"
JSON_KINDS = "Other Null Boolean Integer Unsigned Double String Array Object".split()
JSON_NUMBERS = {"Boolean": "?", "Integer": "q", "Unsigned": "Q", "Double": "d"}
JSON_BRACKETS = {"Array": "[]", "Object": "{}"}


def read(address, code="Q"):
    """The number at an address, or the pointer; `code` is its type as in the module struct."""
    memory = gdb.selected_inferior().read_memory(address, struct.calcsize(code))
    return struct.unpack("<" + code, memory)[0]


def type_named(name):
    """A type; nothing needs to be known of what a pointer points to."""
    name, suffix = re.fullmatch(r"(.*?)((?: const|\*)*)", name.strip()).groups()
    try:
        cls = gdb.lookup_type(name)
    except gdb.error:
        cls = gdb.lookup_type("void" if "*" in suffix else name)
    for _ in range(suffix.count("*")):
        cls = cls.pointer()
    return cls


def value_at(address, cls):
    return gdb.Value(address).cast(cls.pointer()).dereference()


def aligned(offset, alignment):
    return -(-offset // alignment) * alignment


def text_at(address, length):
    """UTF-16 in double quotes, escaped as in JSON."""
    shown = min(length, gdb.parameter("print elements") or length)
    units = bytes(gdb.selected_inferior().read_memory(address, 2 * shown)) if shown else b""
    text = json.dumps(units.decode("utf-16-le", "surrogatepass"), ensure_ascii=False)
    text = text.encode(gdb.host_charset(), "backslashreplace").decode(gdb.host_charset())
    return text + "..." * (shown < length)


def string_at(address):  # a std::u16string
    return text_at(read(address), read(address + 8))


def name_of(info):
    """What the std::type_info at `info` calls its type."""
    text = gdb.Value(read(info + 8)).cast(gdb.lookup_type("char").pointer()).string("ascii")
    name = re.fullmatch(r"\*?([\w.$]+)", text)[1]
    text = gdb.execute("demangle -l c++ -- _ZTI" + name, to_string=True)
    return text.strip().removeprefix("typeinfo for ")


def base_names(info):
    """A class and those of its bases that begin where it begins; of other types nothing."""
    while info:
        kind = name_of(read(read(info) - 8))
        if kind.startswith("__cxxabiv1::"):
            yield name_of(info)
        if kind == "__cxxabiv1::__si_class_type_info":
            info = read(info + 16)
        elif kind == "__cxxabiv1::__vmi_class_type_info":
            # Behind each base: its offset times 256, 2 for a public and 1 for a virtual one.
            bases = [info + 24 + 16 * i for i in range(read(info + 20, "I"))]
            info = next((read(base) for base in bases if read(base + 8) in (0, 2)), 0)
        else:
            return


def object_at(address):
    """The address of the whole object that something at `address` is part of, and its classes."""
    vtable = read(address)
    return address + read(vtable - 16, "q"), list(base_names(read(vtable - 8)))


def template_of(name):
    """ "Rtl::TDictionary" for "Talvo::Rtl::TDictionary<int, int>"; empty for what is not ours."""
    match = re.fullmatch(r"Talvo::([\w:]+)(<.*>)?", name)
    return match[1] if match else ""


def arguments(name):
    """Those of the template that a name stands for."""
    parts, depth = [""], 0
    for c in name[name.index("<") + 1:name.rindex(">")]:
        depth += (c in "<({") - (c in ">)}")
        if c == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += c
    return parts


def short(name):
    name = re.sub(TEXT_CLASS + r"(, std::\w+<char16_t> ?)*>", "string", name)
    name = re.sub("Talvo::(Detail::)?", "", name).replace(" >", ">")
    return re.sub(r"\bTSet<(.*), ISet<\1>>", r"TSet<\1>", name)


class JsonText:
    """Writes JSON: elements, and nodes of the tape that a parsed document is packed in."""

    def __init__(self):
        self.budget = iter(range(gdb.parameter("print elements") or 1 << 31))  # inner items, too
        self.depth = gdb.parameter("print max-depth")

    def listed(self, kind, count, texts):
        self.depth -= 1
        shown = 0 if self.depth == -1 else count
        parts = [text for _, _, text in zip(range(shown), self.budget, texts)]
        self.depth += 1
        left = [f"... {count - len(parts)} more"] if len(parts) < count else []
        return ", ".join(parts + left).join(JSON_BRACKETS[kind])

    def plain(self, kind, value):
        code = JSON_NUMBERS.get(kind)
        return json.dumps(read(value, code)) if code else kind.lower()

    def node(self, tape, node):
        """The text of a node and the number of the one behind it."""
        place = read(tape + At.Nodes) + At.NodeSize * node
        kind, length = JSON_KINDS[read(place, "B")], read(place + At.NodeLength, "I")
        value = place + At.NodeValue
        if kind == "String":
            first = read(tape + At.Characters) + 2 * read(value)
            return text_at(first, length), node + 1
        if kind not in JSON_BRACKETS:
            return self.plain(kind, value), node + 1

        def texts():
            at, key = node + 1, ""
            for _ in range(length):
                if kind == "Object":
                    key, at = self.node(tape, at)
                    key += ": "
                text, at = self.node(tape, at)
                yield key + text

        return self.listed(kind, length, texts()), node + read(value)

    def array(self, array):
        first, count = read(array + At.FArray), read(array + At.FSize, "i")
        texts = (self.element(read(first + 8 * i)) for i in range(count))
        return self.listed("Array", count, texts)

    def object(self, dictionary):
        memory = dictionary + At.FDictionary
        texts = (f"{string_at(pair)}: {self.element(read(pair + At.MemberValue))}"
                 for pair in live_pairs(memory, At.MemberSize))
        return self.listed("Object", read(memory + At.Count, "I"), texts)

    def element(self, interface):
        if not interface:
            return "empty"
        element, names = object_at(interface)
        if "Talvo::TJsonElement" not in names:
            return short(names[0])
        kind = JSON_KINDS[read(element + At.FKind, "B")]
        value = element + (At.FBoolean if kind == "Boolean" else At.FValue)
        if kind == "String":
            return string_at(value)
        if kind not in JSON_BRACKETS:
            return self.plain(kind, value)
        if not read(value):
            return self.node(read(element + At.FTape), read(element + At.FNode))[0]
        return (self.array if kind == "Array" else self.object)(object_at(read(value))[0])


class Shown:
    """A line, and children: `items` makes them, keys and values in turn when the hint is "map"."""

    def __init__(self, line, hint=None, items=lambda: ()):
        self.items = items
        self.to_string = lambda: line
        self.display_hint = lambda: hint
        self.children = lambda: ((f"[{i}]", item) for i, item in enumerate(items()))


def show_array(name, first, item, count=None):
    """A dynamic array, or a list that uses `count` items of one."""
    header = first - aligned(At.HeaderSize, max(item.alignof, 16))
    length = read(header + At.Length, "i") if first else 0
    line = f"length {length}" if count is None else f"count {count}, capacity {length}"
    used = range(length if count is None else count)
    return Shown(f"{name}, {line}", "array",
                 lambda: (value_at(first + item.sizeof * i, item) for i in used))


def show_linked_list(name, address, cls):
    nodes, item = address + At.FNodes, type_named(arguments(cls)[0])
    count, marked = read(nodes + At.FCount, "i"), read(nodes + At.FMarked)

    def items():
        node, data = read(nodes + At.FFirst), aligned(8, item.alignof)
        while node:
            if not read(node + data + item.sizeof, "?"):  # the mark of removed ones
                yield value_at(node + data, item)
            node = read(node)

    note = f", {marked} of them removed" if marked else ""
    return Shown(f"{name}, count {count}{note}", "array", items)


def live_pairs(memory, size):
    """The addresses of the pairs of a dictionary, without the gaps."""
    first, hashes = read(memory + At.Pairs), read(memory + At.Hashes)
    used = range(read(memory + At.Used, "I"))
    return (first + size * i for i in used if read(hashes + 4 * i, "I"))


def show_dictionary(name, memory, cls):
    key, value = map(type_named, arguments(cls))
    place = aligned(key.sizeof, value.alignof)
    size = aligned(place + value.sizeof, max(key.alignof, value.alignof))

    def items():
        for pair in live_pairs(memory, size):
            yield value_at(pair, key)
            yield value_at(pair + place, value)

    return Shown(f"{name}, count {read(memory + At.Count, 'I')}", "map", items)


def show_set(name, address, cls):
    pairs = show_dictionary(name, address + At.FDictionary, f"<{arguments(cls)[0]}, int>")
    return Shown(pairs.to_string(), "array", lambda: itertools.islice(pairs.items(), 0, None, 2))


def show_lock(name, address, _):
    levels, others, owners, stops, owner = struct.unpack(
        "<4iI", gdb.selected_inferior().read_memory(address + At.FCountLocks, 20))
    threads = {thread.ptid[1]: thread.num for thread in gdb.selected_inferior().threads()}
    line = [f"{name}, free"]
    if owner:
        thread = threads.get(owner, f"{owner} that has ended")
        line = [f"{name}, levels {levels} of thread {thread}"]
    line += [f"stops {stops}"] * (stops != 0)
    line += [f"sections without a hold {others + owners}"] * (others + owners != 0)
    return Shown(", ".join(line))


def show_value(_, value):
    operations = value["FOperations"]
    if not int(operations):
        return Shown("empty")
    symbol = gdb.execute(f"info symbol {int(operations):#x}", to_string=True)
    held = re.match(r"Talvo::Detail::TValueOperationsOf<(.*)>::Table", symbol)[1].strip()
    place = value["FInline"].address if operations["IsInline"] else value["FHeap"]
    return Shown(f"{short(held)}: {value_at(int(place), type_named(held)).format_string()}")


# A class is looked for with its bases, the next ones first.
OBJECTS = {
    "TJsonElement": lambda name, at, _: Shown(f"{name} {JsonText().element(at)}"),
    "TJsonArray": lambda name, at, _: Shown(f"{name} {JsonText().array(at)}"),
    "TJsonObject": lambda name, at, _: Shown(f"{name} {JsonText().object(at)}"),
    "TLock": show_lock,
    "Exception": lambda name, at, _: Shown(f"{name} {string_at(read(at + At.FText))}"),
    "TBasicArrayListIntf": lambda name, at, cls: show_array(
        name, read(at + At.FArray), type_named(arguments(cls)[0]), read(at + At.FSize, "i")),
    "TBasicLinkedListIntf": show_linked_list,
    "TSet": show_set,
    "Detail::TDictionaryHolder": lambda name, at, cls: show_dictionary(
        name, at + At.FDictionary, arguments(cls)[0]),
}
VALUES = {
    "TRef": lambda _, reference: show_object(int(reference["FPtr"])),
    "TOwn": lambda _, reference: show_object(int(reference["FPtr"])),
    "TWeakRef": lambda _, weak: show_object(int(weak["FPtr"]), int(weak["FBlock"])),
    "TFunction": lambda _, function: show_object(int(function["FFunction"]["FPtr"])),
    "TArray": lambda name, array: show_array(
        name, int(array["FItems"]), array.type.strip_typedefs().template_argument(0)),
    "TCountCell": lambda _, cell: Shown(str(int(cell["FStored"]))),
    "TValue": show_value,
    "Rtl::TDictionary": lambda name, value: show_dictionary(
        name, int(value.address), value.type.strip_typedefs().name),
}
UNREADABLE = gdb.error, ArithmeticError, LookupError, RecursionError, TypeError, ValueError


def show_object(address, block=0):
    """What a reference leads to; weak ones have a block."""
    if not address:
        return Shown("empty")
    try:
        if block and not read(block + At.Target):
            return Shown("expired")
        address, names = object_at(address)
        line = f"{short(names[0])} at {address:#x}"
        if "Talvo::TInterfacedObject" in names:
            line += f", references: {read(address + At.FRefs, 'I') & 0x1FFF_FFFF}"
        return show_known(address, names) or Shown(line)
    except UNREADABLE:
        return Shown(f"unreadable at {address:#x}")


def show_known(address, names):
    cls = next((cls for cls in names if template_of(cls) in OBJECTS), None)
    try:
        return OBJECTS[template_of(cls)](short(names[0]), address, cls) if cls else None
    except UNREADABLE:
        return None


def show_text(text):
    """For when the standard library's printers are not there."""
    places = [gdb.pretty_printers] + [objfile.pretty_printers for objfile in gdb.objfiles()]
    if any(getattr(p, "name", "").startswith("libstdc++") for place in places for p in place):
        return None
    length = int(text["_M_string_length"])
    return Shown(text["_M_dataplus"]["_M_p"].lazy_string(length=length), "string")


class Printers(gdb.printing.PrettyPrinter):
    def __call__(self, value):
        """What to show for a value; None leaves it to others."""
        try:
            if value.type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
                value = value.referenced_value()
            name = value.type.strip_typedefs().unqualified().name or ""
            if re.match(TEXT_CLASS, name):
                return show_text(value)
            template = template_of(name)
            if template in VALUES:
                return VALUES[template](short(name), value)
            address, names = object_at(int(value.address)) if template else (0, [])
            return show_known(address, names)
        except UNREADABLE:
            return None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers("libtalvo"), replace=True)
