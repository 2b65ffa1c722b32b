#!/usr/bin/env python3
"""Ends `kro ini` and `kro xml` in the middle of a change, and lets the system fail
them there: the old file stays as it was, nothing else in the folder changes, and nobody
can read what was for some only.

    replace_crash.py KRO

The kernel does it: a seccomp filter kills the process at a system call or makes the
call fail, and a limit on the size of files kills it in the middle of a write or lets
the write fail there, as a full disk does.
"""
import ctypes
import errno
import os
import resource
import signal
import stat
import struct
import subprocess
import sys
import tempfile

KRO = os.path.abspath(sys.argv[1])

X86_64 = 0xC000003E
WRITE, WRITEV, FSYNC, RENAME, OPENAT, RENAMEAT, RENAMEAT2 = 1, 20, 74, 82, 257, 264, 316
O_CREAT = 0x40
KILL, ALLOW = 0x80000000, 0x7FFF0000


def fail(number):
    return 0x00050000 | number


def step(code, k, jump_true=0, jump_false=0):
    return struct.pack("HBBI", code, jump_true, jump_false, k)


LOAD, EQUAL, GREATER, HAS_BITS, RETURN = 0x20, 0x15, 0x25, 0x45, 0x06
ARCHITECTURE, NUMBER, FIRST_ARGUMENT, THIRD_ARGUMENT = 4, 0, 16, 32


def on_call(number, action):
    return [step(LOAD, NUMBER), step(EQUAL, number, 0, 1), step(RETURN, action)]


# Writes to files, not to the standard streams.
def on_file_write(number, action):
    return [step(LOAD, NUMBER), step(EQUAL, number, 0, 3), step(LOAD, FIRST_ARGUMENT), step(GREATER, 2, 0, 1),
            step(RETURN, action)]


def on_new_file(action):
    return [step(LOAD, NUMBER), step(EQUAL, OPENAT, 0, 3), step(LOAD, THIRD_ARGUMENT), step(HAS_BITS, O_CREAT, 0, 1),
            step(RETURN, action)]


def on_rename(action):
    return [s for number in (RENAME, RENAMEAT, RENAMEAT2) for s in on_call(number, action)]


def install(steps):
    program = b"".join([step(LOAD, ARCHITECTURE), step(EQUAL, X86_64, 1, 0), step(RETURN, ALLOW)] + steps
                       + [step(RETURN, ALLOW)])
    room = ctypes.create_string_buffer(program, len(program))
    head = struct.pack("HxxxxxxQ", len(program) // 8, ctypes.addressof(room))
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(38, 1, 0, 0, 0) != 0 or libc.prctl(22, 2, head, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "no seccomp filter")


def limit_files_to(size, what_then=signal.SIG_DFL):
    signal.signal(signal.SIGXFSZ, what_then)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


# What happens, and whether the program lives to tell it.
TROUBLES = [
    ("killed at the rename", lambda: install(on_rename(KILL)), False),
    ("killed at a write", lambda: install(on_file_write(WRITE, KILL) + on_file_write(WRITEV, KILL)), False),
    ("killed in the middle of a write", lambda: limit_files_to(1000), False),
    ("killed before the disk has it", lambda: install(on_call(FSYNC, KILL)), False),
    ("no room for all of it", lambda: limit_files_to(1000, signal.SIG_IGN), True),
    ("a disk that fails", lambda: install(on_call(FSYNC, fail(errno.EIO))), True),
    ("a rename that fails", lambda: install(on_rename(fail(errno.EIO))), True),
    ("a folder that takes no file", lambda: install(on_new_file(fail(errno.EACCES))), True),
]

INI = "[server]\nport=80\n" + "".join("key%d=value %d\n" % (i, i) for i in range(2000))
XML = "<config><server port=\"80\"/>" + "".join("<key%d>value %d</key%d>" % (i, i, i) for i in range(2000)) + "</config>"
CHANGES = [
    ("service.ini", INI, 0o600, ["ini", "service.ini", "set", "server", "port", "90"], "port=90"),
    ("service.ini", INI, 0o664, ["ini", "service.ini", "unset", "server", "key7"], "port=80"),
    ("service.xml", XML, 0o640, ["xml", "service.xml", "set", "/config/server/@port", "90"], "port=\"90\""),
    ("service.xml", XML, 0o600, ["xml", "service.xml", "rm", "/config/key7"], "port=\"80\""),
]


def content(path):
    with open(path) as file:
        return file.read()


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


def run(folder, words, trouble=None):
    return subprocess.run([KRO] + words, cwd=folder, preexec_fn=trouble, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)


def check(what, truth):
    if not truth:
        sys.exit("replace_crash.py: %s" % what)


def try_change(name, before, permissions, words, after, what, trouble, tells):
    case = "%s: %s" % (" ".join(words), what)
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, name)
        # What somebody else has under the names that a new file would have.
        own, link = path + ".new", path + ".new2"
        for each, text in ((path, before), (own, "mine")):
            with open(each, "w") as file:
                file.write(text)
            os.chmod(each, permissions)
        os.symlink("elsewhere", link)
        others = sorted(os.path.basename(each) for each in (own, link))

        def check_others(when):
            check("%s: %s another file changed" % (case, when), content(own) == "mine")
            check("%s: %s a link was followed" % (case, when), not os.path.exists(link) and not os.path.islink(path))

        ended = run(folder, words, trouble)
        check("%s: the file changed" % case, content(path) == before)
        check_others("at once")
        if tells:
            check("%s: status %d" % (case, ended.returncode), ended.returncode == 1)
            check("%s: %s" % (case, ended.stderr), ended.stderr == name + ": error 0x80020002: file system error\n")
            check("%s: something stayed behind" % case, sorted(os.listdir(folder)) == [name] + others)
        else:
            check("%s: status %d" % (case, ended.returncode), ended.returncode < 0)
        for each in set(os.listdir(folder)) - set(others):
            check("%s: %s has mode %o" % (case, each, mode(os.path.join(folder, each))),
                  mode(os.path.join(folder, each)) & ~permissions == 0)
        # What stayed behind is in nobody's way.
        again = run(folder, words)
        check("%s: afterwards: %s" % (case, again.stderr), again.returncode == 0)
        check("%s: afterwards" % case, after in content(path) and content(path) != before)
        check("%s: afterwards the mode is %o" % (case, mode(path)), mode(path) == permissions)
        check_others("afterwards")


for trouble in TROUBLES:
    for change in CHANGES:
        try_change(*(change + trouble))
print("%d cases" % (len(TROUBLES) * len(CHANGES)))
