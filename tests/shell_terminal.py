#!/usr/bin/env python3
"""Types at `kro shell` through a pseudo-terminal and compares what the terminal shows.

    shell_terminal.py KRO
"""
import fcntl
import os
import pty
import select
import signal
import sys
import tempfile
import termios
import time

PROMPT = b"kro> "
END_OF_INPUT = b"kro> error: \xb6\xc1\xc8\xa1\xb1\xea\xd7\xbc\xca\xe4\xc8\xeb\xca\xa7\xb0\xdc\xa3\xac" \
               b"\xb3\xcc\xd0\xf2\xcd\xcb\xb3\xf6\r\n"

# What is typed, what is shown, and how the program ends.
CASES = [
    ("typing and Tab", b"ev\t1 + 2\rquit\r", b"kro> eval 1 + 2\r\n3\r\nkro> quit\r\n", 0),
    ("Tab with several names", b"e\t\x08vars\rquit\r",
     b"kro> e\r\neval err \r\nkro> e\x08 \x08vars\r\nkro> quit\r\n", 0),
    ("backspace, both codes", b"eval 12\x083\x7f4\rquit\r",
     b"kro> eval 12\x08 \x083\x08 \x084\r\n14\r\nkro> quit\r\n", 0),
    ("two-byte characters", b"set n=\xc4\xe3\reval n\rquit\r",
     b"kro> set n=\xc4\xe3\r\nkro> eval n\r\n\xc4\xe3\r\nkro> quit\r\n", 0),
    ("end of input", b"\x04", END_OF_INPUT, 0),
    ("Ctrl-C", b"ev\x03", b"kro> ev", -signal.SIGINT),
]


def read_until(master, shown, is_enough):
    """Appends what the program shows until there is enough of it, or it ends."""
    while not is_enough(shown):
        if not select.select([master], [], [], 20)[0]:
            raise TimeoutError(shown)
        try:
            piece = os.read(master, 4096)
        except OSError:
            break
        if not piece:
            break
        shown += piece
    return shown


def wait_for_key_mode(slave):
    """Returns when the program waits for a key: the terminal does not echo then."""
    limit = time.monotonic() + 20
    while termios.tcgetattr(slave)[3] & termios.ECHO:
        if time.monotonic() > limit:
            raise TimeoutError("the terminal still echoes")
        time.sleep(0.001)


def run(kro, folder, keys, is_pasted=False):
    master, slave = pty.openpty()
    before = termios.tcgetattr(slave)
    child = os.fork()
    if child == 0:
        os.chdir(folder)
        os.setsid()
        fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
        for fd in (0, 1, 2):
            os.dup2(slave, fd)
        os.execv(kro, [kro, "shell"])
    shown = read_until(master, b"", lambda text: text.endswith(PROMPT))
    wait_for_key_mode(slave)
    if is_pasted:
        os.write(master, keys)
    for i, key in enumerate(b"" if is_pasted else keys):
        seen = len(shown)
        os.write(master, bytes([key]))
        if i + 1 == len(keys):
            break
        # The program answers each key; a line's answer ends with the next prompt.
        shown = read_until(master, shown, lambda text: text.endswith(PROMPT) if key == 13 else len(text) > seen)
        wait_for_key_mode(slave)
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    after = termios.tcgetattr(slave)
    os.set_blocking(master, False)
    try:
        shown += os.read(master, 4096)
    except BlockingIOError:
        pass
    os.close(master)
    os.close(slave)
    return shown, status, before == after


def main():
    kro = os.path.abspath(sys.argv[1])
    failures = 0
    for name, keys, expected, expected_status in CASES:
        with tempfile.TemporaryDirectory() as folder:
            shown, status, is_restored = run(kro, folder, keys)
        if (shown, status, is_restored) != (expected, expected_status, True):
            failures += 1
            print("%s: shown %r, status %d, mode %s\n    expected %r, status %d" % (
                name, shown, status, "restored" if is_restored else "changed", expected, expected_status))
    # Where the program does not wait for a key, the terminal may echo pasted text too.
    with tempfile.TemporaryDirectory() as folder:
        shown, status, is_restored = run(kro, folder, b"set x=1\neval x + 1\nquit\n", is_pasted=True)
    if b"\n2\r\nkro> " not in shown or status != 0 or not is_restored:
        failures += 1
        print("pasted lines: shown %r, status %d" % (shown, status))
    print("%d sessions, %d failures" % (len(CASES) + 1, failures))
    return 1 if failures else 0


sys.exit(main())
