#!/usr/bin/env python3
"""Lets `kro ini` and `kro xml` run out of memory: what they do is done whole, or they fail and change
nothing.

    little_memory.py KRO FAILING_MALLOC

FAILING_MALLOC is preloaded: each allocation that a command makes, behind those for its words, fails once.
"""
import os
import re
import resource
import subprocess
import sys
import tempfile

KRO, FAILING_MALLOC = map(os.path.abspath, sys.argv[1:3])

FILES = {
    "a.ini": "[server]\nport=80\n",
    "a.xml": "<config><server port=\"80\"/>" + "<key>a value</key>" * 30 + "</config>",
}
COMMANDS = [
    ["ini", "a.ini"],
    ["ini", "a.ini", "set", "server", "port", "90"],
    ["ini", "a.ini", "set", "server", "a name of its own", "a value that needs memory of its own"],
    ["ini", "a.ini", "set", "a section of its own", "name", "value"],
    ["ini", "a.ini", "unset", "server", "port"],
    ["xml", "a.xml"],
    ["xml", "a.xml", "--compact"],
    ["xml", "a.xml", "set", "/config/server/@port", "90"],
    ["xml", "a.xml", "set", "/config/client", "a value that needs memory of its own"],
    ["xml", "a.xml", "rm", "/config/server"],
]


def check(what, truth):
    if not truth:
        sys.exit("little_memory.py: %s" % what)


def run(words, fail_at):
    """Status, standard error, and what is there afterwards: the output and all files."""
    with tempfile.TemporaryDirectory() as folder:
        for name, text in FILES.items():
            with open(os.path.join(folder, name), "w") as file:
                file.write(text)
        ended = subprocess.run([KRO] + words, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, universal_newlines=True,
                               env=dict(os.environ, LD_PRELOAD=FAILING_MALLOC, FAIL_AT=str(fail_at)))
        files = {}
        for name in os.listdir(folder):
            with open(os.path.join(folder, name)) as file:
                files[name] = file.read()
    return ended.returncode, ended.stderr, (ended.stdout, files)


def count(said):
    return int(re.search(r"(\d+) allocations\n$", said).group(1))


def try_command(words):
    status, said, done = run(words, 0)
    check("%s: %s" % (words, said), status == 0)
    to_tell = 10  # no more than this are for telling that a file is missing
    first, last = count(run([words[0], "none"] + words[2:], 0)[1]) - to_tell, count(said)
    for fail_at in range(first, last + 1):
        case = "%s without allocation %d of %d" % (" ".join(words), fail_at, last)
        status, said, found = run(words, fail_at)
        if status == 0:
            check("%s: it was not done whole" % case, found == done)
        else:
            check("%s: status %d" % (case, status), status == 1)
            check("%s: it was done in part" % case, found[1] == FILES)
            check("%s: nothing was said" % case, re.search("error 0x|nothing was written", said))
    return last + 1 - first


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (100000 << 10, 100000 << 10))


def try_large_output():
    """More text than there is memory: each level is indented by three blanks more."""
    depth = 6000
    size = sum(len("<a>\n") + len("</a>\n") + 2 * 3 * level for level in range(depth - 1)) + 3 * (depth - 1) + len("<a/>\n")
    with tempfile.TemporaryDirectory() as folder:
        with open(os.path.join(folder, "deep.xml"), "w") as file:
            file.write("<a>" * depth + "</a>" * depth)
        ended = subprocess.run([KRO, "xml", "deep.xml"], cwd=folder, preexec_fn=limit_memory, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    check("deep.xml: status %d, %d bytes, %s" % (ended.returncode, len(ended.stdout), ended.stderr),
          ended.returncode == 0 and len(ended.stdout) == size and ended.stdout.endswith(b"\n</a>\n"))


try_large_output()
print("%d allocations" % sum(map(try_command, COMMANDS)))
