#!/usr/bin/env python3
"""Checks that the shared library shows what its headers export and nothing else.

    check_exports.py ROOT LIBRARY NM

Every symbol must belong to a class or function that a public header marks with
KRO_API, and every marked function must have a symbol (a class may be all inline).
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
    return [line.split(" ", 2)[2] for line in text.strip().split("\n") if " A " not in line]


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
    print("%d symbols, %d strangers, %d absent" % (len(symbols), len(strangers), len(absent)))
    return 1 if strangers or absent or not symbols else 0


if __name__ == "__main__":
    sys.exit(main())
