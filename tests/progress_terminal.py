#!/usr/bin/env python3
"""Looks at the line by which every command of `kro` shows that it works for long.

    progress_terminal.py KRO

A command is held up: nobody takes its output, or gives it input, or asks the server that it is.
So nothing here depends on the speed of the machine: all are held until every line was seen, and
then let go. Each runs at a pseudo-terminal, where the line must come, not before two seconds, and
go; and without one, where it must say nothing else.
"""
import fcntl
import os
import pty
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import time
import tty

PATIENCE = 60
DELAY = 2
# More than a pipe, or the buffer of a terminal, takes.
MANY = 3000
ROUNDS = 500

FILES = {
    "big.xpp": "$[for (i = 0; i < %d; i += 1)]line $[@i] is output of more than sixty characters, so that the pipe is full\n$[end]" % MANY,
    "rules": "1 [a-z]+\n2 [0-9]+\n3 [ ]+\n4 \\n\n",
    "big.txt": "word 12345 another\n" * MANY,
    "big.xml": "<r>" + "<item name=\"value\">text</item>" * MANY + "</r>",
    "big.ini": "[s]\n" + "name=value\n" * MANY,
    "lang.xml": "<lang langid=\"english\">" + "<log type=\"hint\" fmt=\"a message\"/>" * MANY + "<end/></lang>",
    "quick.xpp": "one\n",
    "quick.ini": "a=1\n",
    "once": "test -e released || read line < gate\n",
}
LISTENING = r"listening on 127\.0\.0\.1:\d+\n"


class Terminal:
    """A pseudo-terminal that gives out what it gets, unchanged, and when each line was seen first."""

    def __init__(self, columns=0):
        self.master, self.slave = pty.openpty()
        tty.setraw(self.slave)
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", 0, columns, 0, 0))
        self.text = b""
        self.first_line = None

    def take(self):
        """Reads what is there; False when all is over."""
        try:
            piece = os.read(self.master, 65536)
        except OSError:
            return False
        self.text += piece
        if self.first_line is None and b"kro: " in self.text:
            self.first_line = time.monotonic()
        return bool(piece)

    def shows(self, pattern):
        return re.search(pattern.encode(), self.text)

    def wait_for(self, pattern):
        take_until({self: pattern})

    def take_all(self):
        os.close(self.slave)
        while select.select([self.master], [], [], PATIENCE)[0] and self.take():
            pass
        os.close(self.master)


def take_until(patterns):
    """Reads what comes to the terminals until each shows its pattern."""
    limit = time.monotonic() + PATIENCE
    while missing := [(pattern, t.text[-200:]) for t, pattern in patterns.items() if not t.shows(pattern)]:
        if time.monotonic() > limit:
            raise TimeoutError("not shown, but: %r" % missing)
        for fd in select.select([t.master for t in patterns], [], [], 1)[0]:
            next(t for t in patterns if t.master == fd).take()


def screen(text):
    r"""The rows as they stand in the end: \r goes to the left, \n begins the next row, \b one back."""
    rows, at = [[]], 0
    for c in text:
        if c == "\n":
            rows.append([])
            at = 0
        elif c == "\r":
            at = 0
        elif c == "\b":
            at -= 1
        else:
            rows[-1] += [" "] * (at + 1 - len(rows[-1]))
            rows[-1][at] = c
            at += 1
    return ["".join(row).rstrip() for row in rows], at


def is_taken_away(text):
    """Every column that the line used is a blank again, and the cursor at the left."""
    rows, at = screen(text.decode())
    return at == 0 and not any("kro:" in row for row in rows)


# ---- what holds a command up, and lets it go

class Hold:
    """A command that gets what it needs, and is not held up."""
    stdin = subprocess.DEVNULL
    repeats_itself = False

    def __init__(self, folder):
        self.folder = folder
        self.read_end, self.stdout = os.pipe()

    def words(self):
        return []

    def started(self):
        os.close(self.stdout)

    def release(self, said):
        """Lets the command go, which has said this on standard error."""

    def output(self):
        with open(self.read_end, "rb") as f:
            return f.read()


class FullPipe(Hold):
    """Nobody takes its output, after the first bytes for which there is room."""
    repeats_itself = True

    def __init__(self, folder, room=0):
        super().__init__(folder)
        self.filling = 0
        os.set_blocking(self.stdout, False)
        for size in (4096, 1):
            while True:
                try:
                    self.filling += os.write(self.stdout, b"." * size)
                except BlockingIOError:
                    break
        os.set_blocking(self.stdout, True)
        self.filling -= len(os.read(self.read_end, room))

    def output(self):
        return super().output()[self.filling:]


class FullPipeAndInput(FullPipe):
    """The same for a command that reads this."""

    def __init__(self, folder, text):
        super().__init__(folder, room=8192)
        self.stdin, writing = os.pipe()
        os.write(writing, text)
        os.close(writing)

    def started(self):
        super().started()
        os.close(self.stdin)


class EmptyInput(Hold):
    """Nobody gives it input yet."""
    repeats_itself = True

    def __init__(self, folder, text=b""):
        super().__init__(folder)
        self.text = text
        self.stdin, self.writing = os.pipe()
        os.set_inheritable(self.writing, False)

    def started(self):
        super().started()
        os.close(self.stdin)

    def release(self, said):
        os.write(self.writing, self.text)
        os.close(self.writing)


class Fifo(Hold):
    """Its last word is a FIFO, which nobody has opened at the other end."""
    count = 0

    def __init__(self, folder, flags, text=b""):
        super().__init__(folder)
        Fifo.count += 1
        self.flags, self.text = flags, text
        self.path = os.path.join(folder, "fifo%d" % Fifo.count)
        os.mkfifo(self.path)

    def words(self):
        return [os.path.basename(self.path)]

    def release(self, said):
        self.end = os.open(self.path, self.flags)
        if self.flags == os.O_WRONLY:
            os.write(self.end, self.text)
            os.close(self.end)

    def output(self):
        if self.flags == os.O_WRONLY:
            return super().output()
        os.close(self.read_end)
        with open(self.end, "rb") as f:
            return f.read()


class Gate(Hold):
    """The program that it runs or measures waits."""

    def release(self, said):
        gate = os.path.join(self.folder, "gate")
        open(os.path.join(self.folder, "released"), "w").close()
        # Opened for both, it lets every reader in.
        self.gate = os.open(gate, os.O_RDWR)
        os.write(self.gate, b"\n" * 4)  # the others may be faster

    def output(self):
        text = super().output()
        os.close(self.gate)
        return text


class Served(Hold):
    """A server that nobody asks anything yet."""

    def __init__(self, folder, kind, text):
        super().__init__(folder)
        self.kind, self.text = kind, text

    def release(self, said):
        port = int(re.search(rb"listening on 127\.0\.0\.1:(\d+)", said).group(1))
        with socket.socket(socket.AF_INET, self.kind) as client:
            client.connect(("127.0.0.1", port))
            client.sendall(self.text)


class Receiver(EmptyInput):
    """Sends to this what nobody has given yet."""

    def __init__(self, folder):
        super().__init__(folder, b"some text\n")
        self.peer = socket.create_server(("127.0.0.1", 0))

    def words(self):
        return ["127.0.0.1:%d" % self.peer.getsockname()[1]]

    def release(self, said):
        super().release(said)
        accepted = self.peer.accept()[0]
        while text := accepted.recv(4096):
            accepted.sendall(text)
        accepted.close()
        self.peer.close()


class SilentPeer(Hold):
    """Pings this, which does not answer before it is told to."""

    def __init__(self, folder):
        super().__init__(folder)
        self.peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.peer.bind(("127.0.0.1", 0))
        self.peer.settimeout(PATIENCE)

    def words(self):
        return ["127.0.0.1:%d" % self.peer.getsockname()[1]]

    def release(self, said):
        number = 0
        while number + 1 < ROUNDS:
            message, sender = self.peer.recvfrom(4096)
            self.peer.sendto(message, sender)
            number = struct.unpack_from("I", message)[0]
        self.peer.close()


# The words, how the command is held up, what the line says, and what else standard error says.
SHOWN = [
    (["help"], FullPipe, r"kro: help, \d+ s", ""),
    (["eval", "--help"], FullPipe, r"kro: eval, \d+ s", ""),
    (["version"], FullPipe, r"kro: version, \d+ s", ""),
    (["err", "0x80020001", "-1"], FullPipe, r"kro: err, \d+ s", ""),
    (["eval", "1 + 2"], FullPipe, r"kro: eval, \d+ s", ""),
    (["mml", "IF.get:a=1;"], FullPipe, r"kro: mml, \d+ s", ""),
    (["mml", "--make", "a", "b", "c=1"], FullPipe, r"kro: mml, \d+ s", ""),
    (["automaton", "a+b"], FullPipe, r"kro: automaton, \d+ s", ""),
    (["list", "big.xpp"], FullPipe, r"kro: list, \d+ s", ""),
    (["match", "[a-z]+", "abc"], FullPipe, r"kro: match, \d+ s", ""),
    (["match", "[a-z ]+"] + ["words and words " * 100] * 20, FullPipe, r"kro: matching, \d+ %, \d+ s", ""),
    (["scan", "rules", "big.txt"], FullPipe, r"kro: scanning big\.txt, \d+ %, \d+ s", ""),
    (["run", "big.xpp"], FullPipe, r"kro: running big\.xpp, [\d.]+ kB, \d+ s", ""),
    (["run", "big.xpp", "-o"], lambda folder: Fifo(folder, os.O_RDONLY), r"kro: run, \d+ s", ""),
    (["run", "-"], lambda folder: EmptyInput(folder, b"a script"), r"kro: reading -, \d+ s", ""),
    (["ini"], lambda folder: Fifo(folder, os.O_WRONLY, b"[s]\na=1\n"), r"kro: reading fifo\d+, \d+ s", ""),
    (["ini", "big.ini"], FullPipe, r"kro: printing, \d+ %, \d+ s", ""),
    (["xml", "big.xml", "--events"], FullPipe, r"kro: reading big\.xml, \d+ %, \d+ s", ""),
    (["xml", "big.xml"], FullPipe, r"kro: printing, \d+ %, \d+ s", ""),
    (["messages", "lang.xml"], FullPipe, r"kro: checking lang\.xml, \d+ %, \d+ s", ""),
    (["debug", "big.xpp"], lambda folder: FullPipeAndInput(folder, b"continue\n"), r"kro: running big\.xpp, \d+ s", ""),
    (["shell"], lambda folder: EmptyInput(folder, b"run --none\neval 1 + 2\n"), r"kro: shell, \d+ s",
     r"kro run: no option '--none'\nusage: kro run [^\n]+\n"),
    (["shell"], lambda folder: FullPipeAndInput(folder, b"xml big.xml\n"), r"kro: printing, \d+ %, \d+ s", ""),
    (["log", "text", "-f"], lambda folder: Fifo(folder, os.O_RDONLY), r"kro: log, \d+ s", ""),
    (["logd", "-p", "0", "-n", "1"], lambda folder: Served(folder, socket.SOCK_DGRAM, b"a line"),
     r"kro: receiving, 0 datagrams, \d+ s", LISTENING),
    (["net", "echo", "127.0.0.1:0", "-u", "-n", "1"], lambda folder: Served(folder, socket.SOCK_DGRAM, b"text"),
     r"kro: serving, 0 datagrams, \d+ s", LISTENING),
    (["net", "sink", "127.0.0.1:0", "-n", "1"], lambda folder: Served(folder, socket.SOCK_STREAM, b"text"),
     r"kro: serving, 0 connections, \d+ s", LISTENING),
    (["net", "addr", "127.0.0.1:80"], FullPipe, r"kro: net, \d+ s", ""),
    (["net", "send"], Receiver, r"kro: sending, \d+ s", ""),
    (["net", "ping", "-u", "-n", str(ROUNDS)], SilentPeer, r"kro: measuring, \d+ %, 0 round trips, \d+ s", ""),
    (["proc", "run", "/bin/sh", "once"], Gate, r"kro: running /bin/sh, \d+ s", ""),
    (["proc", "run", "--in", "big.txt", "/bin/cat"], FullPipe, r"kro: running /bin/cat, 57\.0 kB, \d+ s", ""),
    (["proc", "time", "/bin/sh", "once"], Gate, r"kro: measuring, 0 %, 0 runs, \d+ s", ""),
]

class Run:
    def __init__(self, kro, folder, row, stderr):
        self.row = row
        words, hold, self.pattern, self.said = row
        self.hold = hold(folder)
        self.words = words + self.hold.words()
        self.began = time.monotonic()
        self.child = subprocess.Popen([kro] + self.words, cwd=folder, stdin=self.hold.stdin, stdout=self.hold.stdout, stderr=stderr)
        self.hold.started()

    def finish(self, said):
        self.hold.release(said)
        text = self.hold.output()
        self.child.wait(PATIENCE)
        return text

    def name(self):
        return " ".join(self.words)[:50]


# ---- the checks

def check_every_command(kro, folder):
    """The line comes on a terminal, not too early, and goes; without one nothing is said."""
    os.mkfifo(os.path.join(folder, "gate"))
    silent = [Run(kro, folder, row, subprocess.PIPE) for row in SHOWN]
    terminals = [Terminal() for _ in SHOWN]
    shown = [Run(kro, folder, row, terminal.slave) for row, terminal in zip(SHOWN, terminals)]
    take_until({terminal: row[2] for row, terminal in zip(SHOWN, terminals)})
    outputs = []
    for run, terminal in zip(shown, terminals):
        outputs.append(run.finish(terminal.text))
        terminal.take_all()
        if terminal.first_line - run.began < DELAY:
            yield "%s: the line was there after %f s" % (run.name(), terminal.first_line - run.began)
        if not is_taken_away(terminal.text) or not re.fullmatch(run.said, "\n".join(screen(terminal.text.decode())[0])):
            yield "%s: the terminal shows %r" % (run.name(), terminal.text)
    for run, output in zip(silent, outputs):
        said = run.child.stderr
        first = said.readline() if run.said == LISTENING else b""
        text = run.finish(first)
        if run.hold.repeats_itself and text != output:
            yield "%s: the output is another one without a terminal" % run.name()
        text = (first + said.read()).decode()
        if not re.fullmatch(run.said, text):
            yield "%s: without a terminal %r was said" % (run.name(), text)


def check_quick_commands(kro, folder):
    """What does not take two seconds says nothing."""
    for row in (["help"], ["eval", "1"], ["run", "quick.xpp"], ["ini", "quick.ini"], ["automaton", "a"]):
        terminal = Terminal()
        began = time.monotonic()
        subprocess.run([kro] + row, cwd=folder, stdout=subprocess.DEVNULL, stderr=terminal.slave, check=True)
        is_quick = time.monotonic() - began < DELAY
        terminal.take_all()
        if terminal.text and is_quick:
            yield "%s: a quick command says %r" % (row[0], terminal.text)


def check_shared_terminal(kro, folder):
    """Where the output goes to the terminal too it is progress enough, or the line makes room for it."""
    output = Terminal()
    child = subprocess.Popen([kro, "run", "big.xpp"], cwd=folder, stdout=output.slave, stderr=output.slave)
    server = Terminal()
    served = subprocess.Popen([kro, "net", "sink", "127.0.0.1:0", "-n", "2"], cwd=folder, stdout=server.slave, stderr=server.slave)
    server.wait_for(r"0 connections")
    for number in (1, 2):
        port = int(re.search(rb"127\.0\.0\.1:(\d+)", server.text).group(1))
        with socket.create_connection(("127.0.0.1", port)) as client:
            client.sendall(b"text")
        if number == 1:
            server.wait_for(r"kro: serving, 1 connection, 4 bytes, ")
    server.take_all()
    served.wait(PATIENCE)
    rows = screen(server.text.decode())[0]
    if len(rows) != 4 or any(not re.fullmatch(r"127\.0\.0\.1:\d+: 4 bytes", row) for row in rows[1:3]) or rows[3]:
        yield "a server and its line share a terminal: %r" % rows
    output.take_all()
    child.wait(PATIENCE)
    if b"kro:" in output.text or output.text.count(b"\n") != MANY:
        yield "the output on a terminal was disturbed: %r" % output.text[-300:]


def check_width(kro, folder):
    """The line never fills the row, and what could steer the terminal is not written."""
    name = "\u4e2d\u6587\x1b\n" + "long name " * 8
    os.mkfifo(os.path.join(folder, name))
    wide, narrow = Terminal(), Terminal(21)
    children = [subprocess.Popen([kro, "ini", name], cwd=folder, stdout=subprocess.DEVNULL, stderr=t.slave) for t in (wide, narrow)]
    take_until({wide: "kro: ", narrow: "kro: "})
    os.close(os.open(os.path.join(folder, name), os.O_WRONLY))
    for child in children:
        child.wait(PATIENCE)
    for terminal, expected in (wide, r"kro: reading \u4e2d\u6587\?\?long name .*\.\.\., \d+ s"), (narrow, r"kro: readin?g?\.\.\., \d+ s"):
        terminal.take_all()
        lines = terminal.text.decode().split("\r")
        if not re.fullmatch(expected, lines[1].rstrip()) or not is_taken_away(terminal.text):
            yield "the line is %r" % lines


def as_leader(slave):
    os.setsid()
    fcntl.ioctl(slave, termios.TIOCSCTTY, 0)


def check_background(kro, folder):
    """A command in the background leaves the terminal to those in front."""
    terminal, other = Terminal(), Terminal()
    command = [kro, "logd", "-p", "0"]
    shell = subprocess.Popen(["bash", "-mc", '"$@" & echo "job $!"; wait', "bash"] + command, cwd=folder, stdin=terminal.slave,
                             stdout=terminal.slave, stderr=terminal.slave, preexec_fn=lambda: as_leader(terminal.slave))
    terminal.wait_for(LISTENING)
    terminal.wait_for(r"job \d+\n")
    child = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=other.slave)
    other.wait_for("kro: receiving, ")
    child.kill()
    child.wait()
    os.kill(int(terminal.shows(r"job (\d+)").group(1)), signal.SIGTERM)
    shell.wait()
    other.take_all()
    terminal.take_all()
    if b"kro: " in terminal.text:
        yield "in the background %r is shown" % terminal.text


def check_typing(kro, folder):
    """No line while a person types or a program runs; one while a command works, and the keys typed meanwhile stay whole."""
    os.mkfifo(os.path.join(folder, "slow.ini"))
    sessions = []
    for words, prompt in (["shell"], "kro> "), (["debug", "quick.xpp"], r"\(debug\) "), (["run", "-"], None), (["proc", "run", "/bin/cat"], None):
        master, slave = pty.openpty()
        terminal = Terminal()
        os.close(terminal.master), os.close(terminal.slave)
        terminal.master, terminal.slave = master, slave
        child = subprocess.Popen([kro] + words, cwd=folder, stdin=slave, stdout=slave, stderr=slave,
                                 preexec_fn=lambda: as_leader(slave))
        sessions.append((terminal, child))
        if prompt:
            terminal.wait_for(prompt)
    timer = Terminal()
    shell, debug, *readers = (terminal for terminal, _ in sessions)
    # What is shown after two seconds tells that they have passed for those that show nothing.
    witness = subprocess.Popen([kro, "logd", "-p", "0"], cwd=folder, stdout=subprocess.DEVNULL, stderr=timer.slave)
    timer.wait_for("kro: receiving, ")
    for terminal in [shell, debug] + readers:
        while select.select([terminal.master], [], [], 0)[0]:
            terminal.take()
        if b"kro: " in terminal.text:
            yield "a line while a person types: %r" % terminal.text
    os.write(shell.master, b"ini slow.ini\r")
    shell.wait_for("kro: reading slow.ini, ")
    os.write(shell.master, b"eval 1 + ")
    shell.wait_for("eval 1 \\+ ")
    with open(os.path.join(folder, "slow.ini"), "wb", buffering=0) as f:
        f.write(b"slow=1\n")
    shell.wait_for("kro> eval 1 \\+ $")
    os.write(shell.master, b"2\rquit\r")
    os.write(debug.master, b"quit\n")
    for terminal in readers:
        os.write(terminal.master, b"\x04")
    for terminal, child in sessions:
        terminal.take_all()
        child.wait(PATIENCE)
    witness.kill()
    witness.wait()
    timer.take_all()
    rows = screen(shell.text.decode())[0]
    if rows != ["kro> ini slow.ini", "slow=1", "kro> eval 1 + 2", "3", "kro> quit", ""]:
        yield "keys and line share a terminal: %r, written as %r" % (rows, shell.text)


def main():
    kro = os.path.abspath(sys.argv[1])
    checks = [check_every_command, check_quick_commands, check_shared_terminal, check_width, check_background, check_typing]
    problems = []
    for check in checks:
        with tempfile.TemporaryDirectory() as folder:
            for name, text in FILES.items():
                with open(os.path.join(folder, name), "w") as f:
                    f.write(text)
            problems += check(kro, folder)
    print("\n".join(problems + ["%d commands, %d checks, %d problems" % (len(SHOWN), len(checks), len(problems))]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
