#!/usr/bin/env python3
"""Checks that the version stands in one place, CMakeLists.txt, and that all else is derived.

    check_version.py ROOT VERSION LIBRARY PROGRAM...

VERSION is the one of the build, LIBRARY the shared library, PROGRAM... how the tool is called.
"""
import pathlib
import re
import struct
import subprocess
import sys

PLACES = ["src", "include", "kro", "cmake", "tools", "examples", "CMakePresets.json"]


def literals(root, version):
    """Places that write the version down again."""
    for place in PLACES:
        top = root / place
        for path in sorted(top.rglob("*")) if top.is_dir() else [top]:
            if path.is_file() and re.search(rb"(?<![\d.])%s(?![\d.])" % re.escape(version.encode()), path.read_bytes()):
                yield "%s: the version is written down again" % path.relative_to(root)


def changelog(root, version):
    newest = re.search(r"(?m)^## (.*)$", (root / "CHANGELOG.md").read_text())
    if not newest or newest.group(1).split()[0] != version:
        yield "CHANGELOG.md: its newest entry is not %s" % version


def soname(library, version):
    text = subprocess.run(["objdump", "-p", library], check=True, stdout=subprocess.PIPE, text=True).stdout
    if not re.search(r"SONAME\s+libkrodll\.so\.%s\b" % version.split(".")[0], text):
        yield "%s: wrong SONAME" % library


def resource(library, version):
    """A Windows file's version: the numbers behind the signature, and the text."""
    data = pathlib.Path(library).read_bytes()
    at = data.find(struct.pack("<I", 0xFEEF04BD))
    numbers = [int(n) for n in version.split(".")]
    expected = (numbers[0] << 16 | numbers[1], numbers[2] << 16)
    if at < 0 or struct.unpack_from("<II", data, at + 8) != expected:
        yield "%s: its version resource has other numbers" % library
    if "FileVersion".encode("utf-16-le") not in data or version.encode("utf-16-le") not in data:
        yield "%s: its version resource has another text" % library


def tool(words, version):
    done = subprocess.run(words + ["version"], stdout=subprocess.PIPE, text=True)
    if done.returncode != 0 or done.stdout.split("\n")[0].rstrip() != "kro " + version:
        yield "kro version prints %r" % done.stdout


def main():
    root, version, library, program = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4:]
    problems = list(literals(root, version)) + list(changelog(root, version)) + list(tool(program, version))
    if library.endswith(".dll"):
        problems += list(resource(library, version)) + list(resource(program[-1], version))
    else:
        problems += list(soname(library, version))
    print("\n".join(problems + ["version %s, %d problems" % (version, len(problems))]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
