#!/usr/bin/env python3
"""Runs the examples of a Markdown page and compares what they print.

What is an example:
  ```cpp      followed by ```output    a program: compiled, linked with krodll, run
  ```xpp      followed by ```output    a script for `kro run`
  ```console                           lines "$ COMMAND", each followed by its output
                                       (standard output and error); "? N" on the
                                       last line of an output is a non-zero status
  ```LANG file=NAME                    a file for the examples below it
All examples of a page share one scratch folder. A cpp or xpp block that is
neither a file nor followed by ```output is an error: nothing stands unproved.
Commands find the tool as `kro`, and the path of its program in $KRO; the programs
`example_...` and `page_server` beside it go by their names too, and the folder of the examples is $EXAMPLES.
In expected output, a line "..." stands for any lines.
"""
import argparse
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

TIME_LIMIT = 200  # seconds for one command: less than its test may take, so that the page tells which one hangs

FENCE = re.compile(r"^(`{3,})\s*(\S*)\s*(.*)$")


def blocks(text):
    """Yields (line, language, options, body) for each fenced block."""
    lines = text.split("\n")
    i = 0
    while i < len(lines):
        m = FENCE.match(lines[i])
        if not m:
            i += 1
            continue
        start, fence = i + 1, m.group(1)
        end = start
        while end < len(lines) and lines[end].rstrip() != fence:
            end += 1
        yield start, m.group(2), m.group(3), "\n".join(lines[start:end]) + "\n"
        i = end + 1


def matches(expected, got):
    pattern = "".join(".*" if line == "..." else re.escape(line) + "\n"
                      for line in expected.rstrip("\n").split("\n"))
    return re.fullmatch(pattern, got.rstrip("\n") + "\n", re.S) is not None


class Page:
    def __init__(self, args, scratch):
        self.args = args
        self.scratch = scratch
        self.failures = 0
        self.examples = 0
        self.env = dict(os.environ, LC_ALL="C.UTF-8")
        tool_dir = scratch / ".bin"
        tool_dir.mkdir()
        folder = pathlib.Path(args.kro).parent
        beside = [p for kind in ("example_*", "page_server*") for p in folder.glob(kind)]
        for program in [pathlib.Path(args.kro)] + [p for p in beside if p.suffix in ("", ".exe")]:
            wrapper = tool_dir / program.stem
            wrapper.write_text("#!/bin/sh\nexec %s %s \"$@\"\n" % (args.emulator.replace(";", " "), program))
            wrapper.chmod(0o755)
        self.env["KRO"] = args.kro
        self.env["EXAMPLES"] = str(pathlib.Path(__file__).resolve().parent.parent / "examples")
        self.env["PATH"] = "%s:%s" % (tool_dir, os.environ["PATH"])

    def run(self, command, **kwargs):
        started = subprocess.Popen(command, cwd=self.scratch, env=self.env, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True, **kwargs)
        try:
            output = started.communicate(timeout=TIME_LIMIT)[0]
        except BaseException as failure:
            # What it runs in the background would go on, and keep its output open for ever.
            os.killpg(started.pid, signal.SIGKILL)
            if not isinstance(failure, subprocess.TimeoutExpired):
                raise
            output = started.communicate()[0] + b"\ntimed out\n"
        return started.returncode, output.decode("utf-8", "backslashreplace").replace("\r\n", "\n")

    def check(self, line, what, expected, got):
        self.examples += 1
        if matches(expected, got):
            return
        self.failures += 1
        print("%s:%d: %s\n--- expected\n%s--- got\n%s---" % (self.args.page, line, what, expected, got))

    def program(self, line, body, expected):
        source = self.scratch / ("example_%d.cpp" % line)
        binary = source.with_suffix("")
        source.write_text(body)
        root = pathlib.Path(__file__).resolve().parent.parent
        command = [self.args.compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", "-I%s/include" % root,
                   str(source), "-o", str(binary), "-L%s/lib" % self.args.build, "-lkrodll", "-pthread",
                   "-Wl,-rpath,%s/lib" % self.args.build]
        if self.args.flags:
            command.append("-fsanitize=" + self.args.flags)
        status, got = self.run(command)
        if status == 0:
            status, got = self.run([str(binary)])
            if status:
                got += "? %d\n" % status
        self.check(line, "program", expected, got)

    def script(self, line, body, expected):
        name = "example_%d.xpp" % line
        (self.scratch / name).write_text(body)
        status, got = self.run(["kro", "run", name])
        if status:
            got += "? %d\n" % status
        self.check(line, "script", expected, got)

    def console(self, line, body):
        command, at, expected = None, line, ""
        for offset, text in enumerate(body.split("\n")[:-1] + ["$ "]):
            if not text.startswith("$ "):
                expected += text + "\n"
                continue
            if command is not None:
                status, got = self.run(["sh", "-c", command])
                if got and not got.endswith("\n"):
                    got += "\n"
                if status:
                    got += "? %d\n" % status
                self.check(at, "$ " + command, expected or "\n", got or "\n")
            command, at, expected = text[2:], line + offset + 1, ""

    def walk(self, text):
        found = list(blocks(text))
        for i, (line, language, options, body) in enumerate(found):
            follower = found[i + 1] if i + 1 < len(found) else None
            file = re.search(r"\bfile=(\S+)", options)
            expected = follower[3] if follower and follower[1] == "output" else None
            if file:
                (self.scratch / file.group(1)).write_text(body)
            if language == "console":
                self.console(line, body)
            elif language in ("cpp", "xpp"):
                if expected is not None:
                    (self.program if language == "cpp" else self.script)(line, body, expected)
                elif not file:
                    self.failures += 1
                    print("%s:%d: example without output" % (self.args.page, line))


def main():
    parser = argparse.ArgumentParser()
    for name in ("build", "kro", "emulator", "compiler", "flags"):
        parser.add_argument("--" + name, default="")
    parser.add_argument("page")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=args.build) as scratch:
        page = Page(args, pathlib.Path(scratch))
        page.walk(pathlib.Path(args.page).read_text())
    print("%s: %d examples, %d failures" % (args.page, page.examples, page.failures))
    return 1 if page.failures else 0


if __name__ == "__main__":
    sys.exit(main())
