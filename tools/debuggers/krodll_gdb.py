"""Shows values of the library in gdb as what they mean.

The Debian package installs it where gdb finds it beside the library. Otherwise:
    (gdb) source tools/debuggers/krodll_gdb.py
"""
import struct

import gdb
import gdb.printing

# ORDER base_var::type, and the flags beside it (base_var.h)
NONE, STRING, INTEGER, REAL, ERROR = 0, 1, 2, 3, 128
TAG_MASK, CONST_FLAG, REF_FLAG = 0xFF, 0x100, 0x400


class ShareStr:
    """share_str: the text, with its length taken from the buffer: NUL may stand inside."""

    def __init__(self, value):
        self.buffer = value["buf_"].dereference()

    def to_string(self):
        first = self.buffer["chars"][0].address
        return first.lazy_string(length=int(self.buffer["length"]))

    def display_hint(self):
        return "string"


class BaseVar:
    """base_var: the value that its tag says; a reference shows what it refers to."""

    def __init__(self, value):
        self.value = value

    def plain(self, flags, bits):
        tag = flags & TAG_MASK
        if tag == STRING:
            return self.value["text_"].format_string()
        if tag == INTEGER:
            return str(struct.unpack("<i", struct.pack("<I", bits & 0xFFFFFFFF))[0])
        if tag == REAL:
            return repr(struct.unpack("<d", struct.pack("<Q", bits))[0])
        if tag == ERROR:
            return "error 0x%08x" % (bits & 0xFFFFFFFF)
        return "none" if tag == NONE else "unknown tag %d" % tag

    def to_string(self):
        flags, bits = int(self.value["flags_"]), int(self.value["bits_"])
        if flags & REF_FLAG:
            target = gdb.Value(bits).cast(self.value.type.unqualified().pointer()).dereference()
            return "reference to " + target.format_string()
        return ("const " if flags & CONST_FLAG else "") + self.plain(flags, bits)


class Cycque:
    """cycque: the items, first to last, wherever the ring begins."""

    def __init__(self, value):
        self.value = value
        self.count = int(value["count_"])

    def to_string(self):
        return "cycque of %d" % self.count

    def children(self):
        first, mask = int(self.value["first_"]), int(self.value["size_"]) - 1
        for i in range(self.count):
            yield "[%d]" % i, self.value["ring_"][(first + i) & mask]

    def display_hint(self):
        return "array"


class Hmap:
    """hmap: keys and values in the order in which the keys were added."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "hmap of %d" % int(self.value["count_"])

    def children(self):
        node, number = self.value["first_"], 0
        while int(node) != 0:
            yield "[%d]key" % number, node["item"]["key"]
            yield "[%d]value" % number, node["item"]["value"]
            node, number = node["next"], number + 1

    def display_hint(self):
        return "map"


def register(objfile=None):
    printers = gdb.printing.RegexpCollectionPrettyPrinter("krodll")
    printers.add_printer("share_str", "^share_str$", ShareStr)
    printers.add_printer("base_var", "^base_var$", BaseVar)
    printers.add_printer("cycque", "^cycque<.*>$", Cycque)
    printers.add_printer("hmap", "^hmap<.*>$", Hmap)
    gdb.printing.register_pretty_printer(objfile, printers, replace=True)


register(gdb.current_objfile())
