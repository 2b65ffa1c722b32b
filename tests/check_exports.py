#!/usr/bin/env python3
"""Checks that the shared library shows what its headers export and nothing else.

    check_exports.py ROOT LIBRARY NM LIST [--write]

Every symbol must belong to a class or function that a public header marks with
KRO_API, and every marked function must have a symbol (a class may be all inline).
LIST is the committed list of the symbols, demangled, one a line: what programs are
linked against changes on purpose only. --write writes the list anew.
"""
import pathlib
import re
import subprocess
import sys


def marked(root):
    """Names of exported classes, and of exported functions and objects."""
    classes, functions = set(), set()
    for header in (root / "include/stdkro").glob("*.h"):
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", header.read_text(), flags=re.S)
        text = re.sub(r"(?m)^\s*#.*$", "", text)
        for m in re.finditer(r"\b(?:class|struct)\s+KRO_API\s+(\w+)", text):
            classes.add(m.group(1))
        for m in re.finditer(r"(?<!class )(?<!struct )\bKRO_API\s+([^;{(]*?)(operator\W+?(?=\()|\w+)\s*(?:\(|;|\[|=)", text):
            functions.add(m.group(2))
    return classes, functions


def exported(library, nm):
    """Demangled names of what the library defines for others."""
    if library.endswith(".dll"):
        objdump = nm.replace("-nm", "-objdump")
        text = subprocess.run([objdump, "-p", library], check=True, stdout=subprocess.PIPE, text=True).stdout
        text = text.split("[Ordinal/Name Pointer] Table", 1)[1].split("\n\n", 1)[0]
        raw = ["_" + line.split()[-1] for line in text.split("\n")[1:] if line.strip()]
        text = subprocess.run(["c++filt", "-_"], input="\n".join(raw), check=True, stdout=subprocess.PIPE, text=True).stdout
        return text.strip().split("\n")
    text = subprocess.run([nm, "-DC", "--defined-only", library], check=True, stdout=subprocess.PIPE, text=True).stdout
    # "W" is an inline function: whether it is there depends on the optimiser.
    return [line.split(" ", 2)[2] for line in text.strip().split("\n") if line.split(" ", 2)[1] not in "AW"]


def owners(symbol):
    """The class path and the last name of a demangled symbol."""
    symbol = re.sub(r"^(?:typeinfo name for|typeinfo for|vtable for|guard variable for|VTT for|"
                    r"(?:non-virtual|virtual) thunk to) ", "", symbol)
    symbol = re.sub(r"\[abi:\w+\]", "", symbol)
    operator = re.match(r"(.*\boperator)(\(\)| (?:new|delete)(?:\[\])?|\W+?)\(", symbol)
    if operator:
        path = operator.group(1).split("::")
        return path[:-1], path[-1] + operator.group(2)
    name = re.sub(r"\(.*", "", symbol)
    depth, plain = 0, ""
    for c in name:
        depth += c == "<"
        if not depth:
            plain += c
        depth -= c == ">"
    parts = plain.split(" ")[-1].split("::")
    return parts, parts[-1]


def changes(symbols, path):
    """What the committed list says otherwise."""
    listed, present = set(path.read_text().splitlines()), set(symbols)
    for symbol in sorted(listed - present):
        yield "gone, programs linked against it will not start: " + symbol
    for symbol in sorted(present - listed):
        yield "new, not in %s: %s" % (path.name, symbol)


def main():
    classes, functions = marked(pathlib.Path(sys.argv[1]))
    symbols = exported(sys.argv[2], sys.argv[3])
    strangers, seen = [], set()
    for symbol in symbols:
        path, last = owners(symbol)
        if set(path) & classes:
            seen |= set(path)
        elif last in functions:
            seen.add(last)
        else:
            strangers.append(symbol)
    absent = sorted(functions - seen)
    for symbol in strangers:
        print("exported, but no header says so: " + symbol)
    for name in absent:
        print("marked with KRO_API, but not in the library: " + name)
    committed = pathlib.Path(sys.argv[4])
    if "--write" in sys.argv:
        committed.write_text("".join(symbol + "\n" for symbol in sorted(set(symbols))))
    changed = list(changes(symbols, committed))
    if changed:
        print("\n".join(changed))
        print("if all of this is meant: python3 %s --write" % " ".join(sys.argv))
    print("%d symbols, %d strangers, %d absent, %d changed" % (len(symbols), len(strangers), len(absent), len(changed)))
    return 1 if strangers or absent or changed or not symbols else 0


if __name__ == "__main__":
    sys.exit(main())
