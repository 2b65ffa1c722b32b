#!/usr/bin/env python3
"""Types at `kro shell`, at `kro debug` and at a shell in a program with threads through a
pseudo-terminal, and compares what the terminal shows, how the program ends and the mode
that the terminal is left in.

    shell_terminal.py KRO THREADED_SHELL
"""
import fcntl
import os
import pty
import select
import signal
import struct
import sys
import tempfile
import termios
import time

PATIENCE = 30
SHELL_PROMPT = b"kro> "
DEBUG_PROMPT = b"(debug) "
THREADED_PROMPT = b"threads> "
END_OF_INPUT = b"error: \xb6\xc1\xc8\xa1\xb1\xea\xd7\xbc\xca\xe4\xc8\xeb\xca\xa7\xb0\xdc\xa3\xac" \
               b"\xb3\xcc\xd0\xf2\xcd\xcb\xb3\xf6\r\n"


class Terminal:
    """A program at a terminal of its own."""

    def __init__(self, program, folder, command, prompt):
        self.prompt = prompt
        self.shown = b""
        self.seen = 0  # what was shown before the last keys were sent
        self.master, self.slave = pty.openpty()
        self.before = self.mode()
        self.child = os.fork()
        if self.child == 0:
            os.chdir(folder)
            os.setsid()
            fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)
            for fd in (0, 1, 2):
                os.dup2(self.slave, fd)
            self.become(program, [program] + command)
        self.wait_for_prompt()

    def become(self, program, words):
        os.execv(program, words)

    def mode(self):
        return termios.tcgetattr(self.slave)

    def wait_for_mode(self, echoes):
        """The editor takes keys in a mode without echo; whoever reads lines has it."""
        limit = time.monotonic() + PATIENCE
        while bool(self.mode()[3] & termios.ECHO) != echoes:
            if time.monotonic() > limit:
                raise TimeoutError("echo is %s" % ("off" if echoes else "on"))
            time.sleep(0.001)

    def wait_until(self, is_enough):
        while not is_enough(self.shown):
            if not select.select([self.master], [], [], PATIENCE)[0]:
                raise TimeoutError(self.shown)
            try:
                piece = os.read(self.master, 4096)
            except OSError:
                break
            if not piece:
                break
            self.shown += piece

    def wait_for_prompt(self):
        self.wait_until(lambda text: len(text) > self.seen and text.endswith(self.prompt))

    def wait_for_answer(self):
        self.wait_until(lambda text: len(text) > self.seen)

    def send(self, keys):
        self.seen = len(self.shown)
        os.write(self.master, keys)

    def kill(self, number):
        os.kill(self.child, number)

    def hang_up(self):
        os.close(self.master)
        self.master = None

    def end(self):
        """Returns what was shown, the exit status, and whether the mode is what it was."""
        status = os.waitstatus_to_exitcode(os.waitpid(self.child, 0)[1])
        is_restored = self.master is None or self.mode() == self.before
        os.close(self.slave)
        if self.master is not None:
            # Nobody holds the terminal now, so reading it ends.
            self.wait_until(lambda _: False)
            os.close(self.master)
        return self.shown, status, is_restored


class JobTerminal(Terminal):
    """The same below a shell with job control, which lets a stopped program go on when it is told to."""

    def __init__(self, *arguments):
        self.stopped, self.tell_stopped = os.pipe()
        self.wait_to_go, self.go = os.pipe()
        super().__init__(*arguments)

    def become(self, program, words):
        job = os.fork()
        if job == 0:
            os.setpgid(0, 0)
            signal.signal(signal.SIGTTOU, signal.SIG_IGN)
            os.tcsetpgrp(0, os.getpgrp())
            signal.signal(signal.SIGTTOU, signal.SIG_DFL)
            os.execv(program, words)
        while True:
            status = os.waitpid(job, os.WUNTRACED)[1]
            if not os.WIFSTOPPED(status):
                os._exit(os.waitstatus_to_exitcode(status) & 255)
            os.write(self.tell_stopped, b"s")
            os.read(self.wait_to_go, 1)
            os.kill(job, signal.SIGCONT)

    def wait_for_stop(self):
        if not select.select([self.stopped], [], [], PATIENCE)[0]:
            raise TimeoutError("not stopped")
        os.read(self.stopped, 1)

    def go_on(self):
        os.write(self.go, b"g")

    def end(self):
        result = super().end()
        for fd in (self.stopped, self.tell_stopped, self.wait_to_go, self.go):
            os.close(fd)
        return result


def type_keys(terminal, keys):
    """One key at a time, each when the one before was answered."""
    terminal.wait_for_mode(echoes=False)
    for i, key in enumerate(keys):
        terminal.send(bytes([key]))
        if i + 1 == len(keys):
            break
        # The answer to a line ends with the next prompt.
        if key == 13:
            terminal.wait_for_prompt()
            terminal.wait_for_mode(echoes=False)
        else:
            terminal.wait_for_answer()


def paste(terminal, keys):
    """All keys at once: each is shown by the editor and by nobody else."""
    terminal.wait_for_mode(echoes=False)
    terminal.send(keys)


def stay_in_mode(terminal, _):
    """More than the terminal holds: the program waits for room, and is in the editor's mode then too."""
    terminal.wait_for_mode(echoes=False)
    terminal.send(b"\t" * MANY + b"quit\r")
    for _ in range(200):
        assert not terminal.mode()[3] & termios.ECHO, "the mode of the terminal changes between keys"
        time.sleep(0.001)
    terminal.wait_until(lambda text: text.endswith(b"quit\r\n"))


def read_in_command(terminal, _):
    """A command that reads the terminal has it as it was before the editor, up to its end."""
    for script in (b"six: $[@6]\n\x04", b"seven: $[@7]\n\x04"):
        type_keys(terminal, b"run -")
        terminal.send(b"\r")
        terminal.wait_for_mode(echoes=True)
        assert terminal.mode() == terminal.before
        terminal.send(script)
        terminal.wait_for_prompt()
    type_keys(terminal, b"quit\r")


def escape_alone(terminal, _):
    """Escape without anything that follows soon is a key of its own, which does nothing."""
    type_keys(terminal, b"ev")
    terminal.wait_for_answer()
    terminal.send(b"\x1b")
    limit = time.monotonic() + PATIENCE
    while struct.unpack("i", fcntl.ioctl(terminal.slave, termios.FIONREAD, bytes(4)))[0] > 0:
        if time.monotonic() > limit:
            raise TimeoutError("Escape is not read")
        time.sleep(0.001)
    time.sleep(1)  # much longer than the rest of a key's sequence takes
    paste(terminal, b"\t1\rquit\r")


def suspend(terminal, _):
    """Ctrl-Z stops the program with the mode of the terminal put back; going on, it takes keys again."""
    for begin, rest in ((b"ev", b"al 1\r"), (b"q", b"uit\r")):
        type_keys(terminal, begin)
        terminal.wait_for_answer()
        terminal.send(b"\x1a")
        terminal.wait_for_stop()
        assert terminal.mode() == terminal.before, "stopped in a mode of its own"
        terminal.go_on()
        type_keys(terminal, rest)
        if begin == b"ev":
            terminal.wait_for_prompt()


def terminate(terminal, _):
    type_keys(terminal, b"ev")
    terminal.wait_until(lambda text: text.endswith(b"ev"))
    terminal.kill(signal.SIGTERM)


def terminate_now(terminal, number):
    terminal.wait_for_mode(echoes=False)
    terminal.kill(number)


def interrupt_command(terminal, _):
    type_keys(terminal, b"run -")
    terminal.send(b"\r")
    terminal.wait_for_mode(echoes=True)
    terminal.send(b"\x03")


def hang_up(terminal, _):
    terminal.wait_for_mode(echoes=False)
    terminal.hang_up()


def type_lines(terminal, lines):
    """The debugger reads whole lines: the terminal shows what is typed."""
    *answered, last = lines.splitlines(keepends=True)
    for line in answered:
        terminal.send(line)
        terminal.wait_for_prompt()
    terminal.send(last)


def interrupt_lines(terminal, _):
    type_lines(terminal, b"next\n\x03")


MANY = 3000
ALL_NAMES = b"\r\neval vars set run match ini xml err time help quit \r\nkro> "

# What is done, with what, what is shown behind the prompt, and how the program ends.
SHELL_CASES = [
    ("typing and Tab", type_keys, b"ev\t1 + 2\rquit\r", b"eval 1 + 2\r\n3\r\nkro> quit\r\n", 0),
    ("Tab with several names", type_keys, b"e\t\x08vars\rquit\r",
     b"e\r\neval err \r\nkro> e\x08 \x08vars\r\nkro> quit\r\n", 0),
    ("backspace, both codes", type_keys, b"eval 12\x083\x7f4\rquit\r",
     b"eval 12\x08 \x083\x08 \x084\r\n14\r\nkro> quit\r\n", 0),
    ("two-byte characters", type_keys, b"set n=\xc4\xe3\reval n\rquit\r",
     b"set n=\xc4\xe3\r\nkro> eval n\r\n\xc4\xe3\r\nkro> quit\r\n", 0),
    ("pasted lines", paste, b"set x=1\neval x + 1\nquit\n",
     b"set x=1\r\nkro> eval x + 1\r\n2\r\nkro> quit\r\n", 0),
    ("pasted keys", paste, b"ev\t1\x08\x1b[A2\x1bOH\rq\t\r", b"eval 1\x08 \x082\r\n2\r\nkro> quit \r\n", 0),
    ("a key with Alt", paste, b"ev\x1bx\t1\rq\t\r", b"eval 1\r\n1\r\nkro> quit \r\n", 0),
    ("Escape alone", escape_alone, None, b"eval 1\r\n1\r\nkro> quit\r\n", 0),
    ("keys faster than answers", stay_in_mode, None, ALL_NAMES * MANY + b"quit\r\n", 0),
    ("a command that reads", read_in_command, None,
     b"run -\r\nsix: $[@6]\r\nsix: 6\r\nkro> run -\r\nseven: $[@7]\r\nseven: 7\r\nkro> quit\r\n", 0),
    ("end of input", type_keys, b"\x04", END_OF_INPUT, 0),
    ("end of input behind keys", type_keys, b"ev\x04", b"ev" + END_OF_INPUT, 0),
    ("Ctrl-C", type_keys, b"ev\x03", b"ev", -signal.SIGINT),
    ("Ctrl-C behind a command", type_keys, b"eval 1\rev\x03", b"eval 1\r\n1\r\nkro> ev", -signal.SIGINT),
    ("Ctrl-C in a command", interrupt_command, None, b"run -\r\n^C", -signal.SIGINT),
    ("Ctrl-\\", type_keys, b"\x1c", b"", -signal.SIGQUIT),
    ("a signal that ends the program", terminate, None, b"ev", -signal.SIGTERM),
    ("a lost terminal", hang_up, None, b"", -signal.SIGHUP),
]

JOB_CASES = [("Ctrl-Z", suspend, None, b"eval 1\r\n1\r\nkro> quit\r\n", 0)]

SCRIPT = b"one\n$[x = 1]\ntwo $[@x]\n"
STOP = b"s.xpp:1 in __main__\r\n    one\r\n(debug) "
DEBUG_CASES = [
    ("debugging", type_lines, b"next\nprint x + 1\ncontinue\nquit\n",
     b"next\r\n| one\r\ns.xpp:2 in __main__\r\n    $[x = 1]\r\n(debug) print x + 1\r\nerror: undefined identifier: x\r\n"
     b"(debug) continue\r\n| \r\n| two 1\r\nthe script has ended\r\n(debug) quit\r\n", 0),
    ("end of input", type_lines, b"n\x7fstep\n\x04", b"n\x08 \x08step\r\n| one\r\ns.xpp:2 in __main__\r\n    $[x = 1]\r\n(debug) ", 0),
    ("Ctrl-C", interrupt_lines, None, b"next\r\n| one\r\ns.xpp:2 in __main__\r\n    $[x = 1]\r\n(debug) ^C", -signal.SIGINT),
]

# A signal to the program as a whole reaches a thread that does not wait for keys.
THREADED_CASES = [
    ("signal %d" % number, terminate_now, number, b"", -number)
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT)
] + [
    ("Ctrl-C", type_keys, b"q\x03", b"q", -signal.SIGINT),
    ("quit", type_keys, b"q\t\r", b"quit \r\n", 0),
]


def run(program, command, prompt, begin, cases, kind=Terminal):
    failures = 0
    for name, act, keys, expected, expected_status in cases:
        with tempfile.TemporaryDirectory() as folder:
            with open(os.path.join(folder, "s.xpp"), "wb") as script:
                script.write(SCRIPT)
            terminal = kind(program, folder, command, prompt)
            act(terminal, keys)
            shown, status, is_restored = terminal.end()
        if (shown, status, is_restored) != (begin + expected, expected_status, True):
            failures += 1
            print("%s, %s: shown %r, status %d, mode %s\n    expected %r, status %d" % (
                " ".join([os.path.basename(program)] + command), name, shown[-1000:], status, "restored" if is_restored else "changed",
                (begin + expected)[-1000:], expected_status))
    return failures


def main():
    kro, threaded = map(os.path.abspath, sys.argv[1:])
    failures = run(kro, ["shell"], SHELL_PROMPT, SHELL_PROMPT, SHELL_CASES)
    failures += run(kro, ["shell"], SHELL_PROMPT, SHELL_PROMPT, JOB_CASES, JobTerminal)
    failures += run(kro, ["debug", "s.xpp"], DEBUG_PROMPT, STOP, DEBUG_CASES)
    failures += run(threaded, [], THREADED_PROMPT, THREADED_PROMPT, THREADED_CASES)
    print("%d sessions, %d failures" % (len(SHELL_CASES) + len(JOB_CASES) + len(DEBUG_CASES) + len(THREADED_CASES), failures))
    return 1 if failures else 0


sys.exit(main())
