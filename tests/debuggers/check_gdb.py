#!/usr/bin/env python3
"""Looks at the values of a program in gdb and compares with the comments in its source.

    check_gdb.py PRINTERS SOURCE PROGRAM
"""
import re
import subprocess
import sys


def main():
    printers, source, program = sys.argv[1:4]
    cases = re.findall(r"(?m)^\s+[\w<>, ]+?[ &](\w+)\s*(?:;|[=(].*?;)\s*// gdb: (.*)$", open(source).read())
    commands = ["set confirm off", "set debuginfod enabled off", "set width 0", "source " + printers,
                "break stop_here", "run", "up"]
    for name, _ in cases:
        commands += ["echo @@ ", "print " + name]
    commands.append("kill")
    words = ["gdb", "-q", "-nx", "-batch"]
    for command in commands:
        words += ["-ex", command]
    text = subprocess.run(words + [program], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True).stdout
    shown = re.findall(r"@@\s*\$\d+ = (.*)", text)
    failures = 0
    for (name, expected), got in zip(cases, shown):
        if got != expected:
            failures += 1
            print("%s: gdb shows %s\n    expected %s" % (name, got, expected))
    if len(shown) != len(cases) or len(cases) < 16:
        sys.exit("%d values shown of %d\n%s" % (len(shown), len(cases), text))
    print("%d values, %d failures" % (len(cases), failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
