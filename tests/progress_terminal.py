#!/usr/bin/env python3
"""Looks at the line by which commands of `kro` show that they work for long.

    progress_terminal.py KRO

A command works for as long as nobody takes its output, so nothing here depends on the speed
of the machine: its output goes to a pipe that is full, its errors to a pseudo-terminal, and
only when the line was seen is the pipe read.
"""
import os
import pty
import re
import select
import subprocess
import sys
import tempfile
import time
import tty

PATIENCE = 60
# More than a pipe, or the buffer of a terminal, takes.
MANY = 3000

FILES = {
    "big.xpp": "$[for (i = 0; i < %d; i += 1)]line $[@i] is output of more than sixty characters, so that the pipe is full\n$[end]" % MANY,
    "rules": "1 [a-z]+\n2 [0-9]+\n3 [ ]+\n4 \\n\n",
    "big.txt": "word 12345 another\n" * MANY,
    "big.xml": "<r>" + "<item name=\"value\">text</item>" * MANY + "</r>",
}
# The words, what the line says, and whether the output goes to the FIFO.
SHOWN = [
    (["run", "big.xpp", "-o", "fifo"], r"kro: running big\.xpp, \d+ s", True),
    (["run", "big.xpp"], r"kro: running big\.xpp, \d+ s", False),
    (["scan", "rules", "big.txt"], r"kro: scanning big\.txt, \d+ %, \d+ s", False),
    (["match", "[a-z ]+"] + ["words and words " * 100] * 200, r"kro: matching, \d+ %, \d+ s", False),
    (["xml", "big.xml", "--events"], r"kro: reading big\.xml, \d+ s", False),
]


class Terminal:
    """A pseudo-terminal that gives out what it gets, unchanged."""

    def __init__(self):
        self.master, self.slave = pty.openpty()
        tty.setraw(self.slave)
        self.text = b""

    def take(self, seconds):
        """Reads what is there; False when nothing came in time or all is over."""
        if not select.select([self.master], [], [], seconds)[0]:
            return False
        try:
            piece = os.read(self.master, 65536)
        except OSError:
            return False
        self.text += piece
        return bool(piece)

    def wait_for(self, pattern):
        limit = time.monotonic() + PATIENCE
        while not re.search(pattern.encode(), self.text):
            if time.monotonic() > limit:
                raise TimeoutError("%s was not shown, but %r" % (pattern, self.text))
            self.take(1)

    def take_all(self):
        os.close(self.slave)
        while self.take(PATIENCE):
            pass
        os.close(self.master)


class Run:
    def __init__(self, kro, folder, words, stdout, stderr):
        self.words = " ".join(words)[:40]
        self.child = subprocess.Popen([kro] + words, cwd=folder, stdin=subprocess.DEVNULL, stdout=stdout, stderr=stderr)

    def output(self, fifo=None):
        """Takes the output, which lets the command come to its end."""
        if fifo:
            with open(fifo, "rb") as f:
                text = f.read()
        elif self.child.stdout:
            text = self.child.stdout.read()
        else:
            text = b""
        self.child.wait(PATIENCE)
        return text


def is_taken_away(text):
    """Every column that the line used is a blank again, and the cursor at the left."""
    columns, at = {}, 0
    for c in text.decode():
        if c == "\r":
            at = 0
        else:
            columns[at] = c
            at += 1
    return at == 0 and not "".join(columns.values()).strip()


def check_shown(kro, folder):
    """Each command shows its line, on the terminal only, and takes it away."""
    fifo = os.path.join(folder, "fifo")
    os.mkfifo(fifo)
    # Its errors go to a pipe: it shows nothing, for as long as the others work.
    silent = Run(kro, folder, ["run", "big.xpp"], subprocess.PIPE, subprocess.PIPE)
    # Its output goes to the terminal too, and is progress enough.
    both = Terminal()
    talking = Run(kro, folder, ["run", "big.xpp"], both.slave, both.slave)
    runs = []
    for words, pattern, to_fifo in SHOWN:
        terminal = Terminal()
        runs.append((Run(kro, folder, words, subprocess.DEVNULL if to_fifo else subprocess.PIPE, terminal.slave),
                     terminal, pattern, to_fifo))
    reader = os.open(fifo, os.O_RDONLY | os.O_NONBLOCK)
    for run, terminal, pattern, _ in runs:
        terminal.wait_for(pattern)
    os.set_blocking(reader, True)
    for run, terminal, pattern, to_fifo in runs:
        if to_fifo:
            text = b"".join(iter(lambda: os.read(reader, 65536), b""))
            run.child.wait(PATIENCE)
        else:
            text = run.output()
        terminal.take_all()
        if not text or not is_taken_away(terminal.text):
            yield "%s: %d bytes, the terminal shows %r" % (run.words, len(text), terminal.text)
    os.close(reader)
    errors = silent.child.stderr
    silent.output()
    if errors.read():
        yield "without a terminal something was shown"
    both.take_all()
    talking.child.wait(PATIENCE)
    if b"kro:" in both.text or both.text.count(b"\n") != MANY:
        yield "the output on a terminal was disturbed: %r" % both.text[-300:]


def main():
    kro = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:
        for name, text in FILES.items():
            with open(os.path.join(folder, name), "w") as f:
                f.write(text)
        problems = list(check_shown(kro, folder))
    print("\n".join(problems + ["%d commands, %d problems" % (len(SHOWN) + 2, len(problems))]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
