#!/usr/bin/env python3
"""Checks that the members which the natvis file names are those of the classes.

    check_natvis.py ROOT

No debugger that reads it runs here, so a program is compiled that uses each member named,
with the class's own protection lifted.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as tree

# What stands for the natvis type in the program, and the type whose members list items have.
TYPES = {
    "share_str": ("share_str", None),
    "base_var": ("base_var", None),
    "cycque<*>": ("cycque<int>", None),
    "hmap<*>": ("hmap<int, int>", "hmap<int, int>::node"),
    "hmap<*>::entry": ("hmap<int, int>::entry", None),
}
FORMAT = re.compile(r",(?:\[([^\]]*)\])?\w*$")


def expressions(text):
    """The expressions of a display string, without their formats."""
    for inner in re.findall(r"\{([^}]*)\}", text):
        yield from plain(inner)


def plain(text):
    size = FORMAT.search(text)
    yield FORMAT.sub("", text)
    if size and size.group(1):
        yield size.group(1)


def uses(kind):
    """(expression, whether it is about a node of the list) for all that one type names."""
    for element in kind.iter():
        tag = element.tag.split("}")[1]
        if element.get("Condition"):
            yield element.get("Condition"), False
        text = (element.text or "").strip()
        if not text:
            continue
        in_node = tag in ("NextPointer", "ValueNode") and TYPES[kind.get("Name")][1] is not None
        for expression in expressions(text) if tag == "DisplayString" else plain(text):
            yield expression, in_node


def qualified(expression):
    """Members become members of `it`: names that nothing stands before but an operator."""
    expression = expression.replace("$i", "0")
    return re.sub(r"(?<![\w.>$])(?!(?:base_var|int|unsigned|double)\b)([A-Za-z_]\w*)", r"it.\1", expression)


def main():
    root = pathlib.Path(sys.argv[1])
    lines = ["#include <cstddef>", "#include <cstdint>", "#include <cstdlib>", "#include <cstring>", "#include <iosfwd>",
             "#include <new>", "#include <string>", "#include <type_traits>", "#include <utility>",
             "#define private public", "#define protected public"]
    lines += ["#include <stdkro/%s.h>" % name for name in ("share_str", "base_var", "cycque", "hmap")]
    seen, count = set(), 0
    for kind in tree.parse(root / "tools/debuggers/krodll.natvis").getroot():
        name = kind.get("Name")
        seen.add(name)
        for expression, in_node in uses(kind):
            count += 1
            lines.append("auto use_%d(%s& it) { return sizeof(%s); }" % (
                count, TYPES[name][1] if in_node else TYPES[name][0], qualified(expression)))
    if seen != set(TYPES):
        sys.exit("the natvis file shows %s" % sorted(seen))
    # ORDER base_var::type: the numbers that the conditions compare with.
    lines.append("static_assert(base_var::none == 0 && base_var::string == 1 && base_var::integer == 2"
                 " && base_var::real == 3 && base_var::error == 128 && base_var::tag_mask == 0xFF"
                 " && base_var::const_flag == 0x100 && base_var::ref_flag == 0x400, \"flags of base_var\");")
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "members.cpp"
        source.write_text("\n".join(lines) + "\n")
        done = subprocess.run(["g++", "-std=c++17", "-fsyntax-only", "-I%s" % (root / "include"), str(source)],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        sys.exit(done.stdout)
    print("%d expressions of %d types name what there is" % (count, len(seen)))
    return 0 if count >= 20 else 1


if __name__ == "__main__":
    sys.exit(main())
