#!/usr/bin/env python3
"""Runs the example page server and asks it as its users do.

    page_server.py --program FILE --site DIR --scratch DIR [--emulator COMMAND] [--loop NAME] PART

PART is one of
  requests   curl and plain sockets: every status, keep-alive, pipelining, limits, time limits, log, stop
  load       wrk with 200 connections; no error, no growth of memory
  browser    headless Chromium draws a page made of template, INI data and query
A tool that is missing is a failure.
"""
import argparse
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

PATIENCE = 60  # seconds until something that must happen counts as missing

INI = """[server]
port=0
admin_port=0
loop=%(loop)s
[limits]
connections=%(connections)d
head=4096
body=20000
page=12000000
idle_seconds=%(idle)d
request_seconds=%(request)d
answer_seconds=%(answer)d
[log]
messages=messages.xml
language=%(language)s
file=%(log)s
udp=127.0.0.1:%(udp)d
[routes]
/=home.xpp
/guess=guess.xpp GET, HEAD, POST
/static=static.xpp
/changing=changing.xpp
/failing=failing.xpp
/wrong=wrong.xpp
/missing=missing.xpp
/cold=static.xpp
/nothing=nothing.xpp
/echo=echo.xpp POST
/large=large.xpp
/endless=endless.xpp
/many=static.xpp %(methods)s
[site]
title=Tea & more
owner=<Ada>
"""

METHODS = ", ".join("METHOD%d" % i for i in range(400))

PAGES = {
    "changing.xpp": "$[proc page(method, path, query, body)]first$[end]\n",
    "failing.xpp": "$[proc page(method, path, query, body)]\nsecret\n$[@(1 / int(query))]\n$[end]\n",
    "wrong.xpp": "$[proc page(method, path, query, body)]\n$[if 1 ==]\n",
    "nothing.xpp": "no procedure\n",
    "echo.xpp": "$[proc page(method, path, query, body)]$[@method] $[@path] $[@query] $[@body]$[end]\n",
    "large.xpp": "$[proc page(method, path, query, body)]$[for (i = 0; i < 200000; i += 1)]"
                 "0123456789012345678901234567890123456789\n$[end]$[end]\n",
    "endless.xpp": "$[proc page(method, path, query, body)]$[for (;;)]for ever and ever $[end]$[end]\n",
}


def wait_until(what, condition):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, "waited in vain for: " + what
        time.sleep(0.02)


def tool(name):
    path = shutil.which(name)
    assert path, "%s is not installed: run 'sh tools/setup.sh test' first" % name
    return path


class Server:
    """The program with a site of its own in a fresh folder."""

    def __init__(self, args, name, language="english", idle=60, request=60, answer=60, connections=1000):
        self.args = args
        self.began = time.time()
        self.site = pathlib.Path(args.scratch) / ("%s_%s" % (args.loop, name))
        shutil.rmtree(self.site, ignore_errors=True)
        shutil.copytree(args.site, self.site)
        for page, text in PAGES.items():
            (self.site / page).write_text(text)
        self.udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.udp.bind(("127.0.0.1", 0))
        self.udp.settimeout(PATIENCE)
        (self.site / "test.ini").write_text(INI % dict(
            loop=args.loop, log="server.log", udp=self.udp.getsockname()[1], language=language, idle=idle,
            request=request, answer=answer, connections=connections, methods=METHODS))
        self.console = open(self.site / "console.txt", "wb")
        self.process = subprocess.Popen(
            args.emulator.split() + [args.program, "--config", str(self.site / "test.ini")], cwd=self.site,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.console, start_new_session=True)
        ports = [self.read_port(name) for name in ("http", "admin")]
        self.port, self.admin_port = ports
        self.url = "http://127.0.0.1:%d" % self.port

    def read_port(self, name):
        line = self.process.stdout.readline().decode().strip()
        m = re.fullmatch(name + r" 127\.0\.0\.1:(\d+)", line)
        assert m, "no port for %s: %r\n%s" % (name, line, (self.site / "console.txt").read_text("utf-8", "replace"))
        return int(m.group(1))

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        self.process.stdout.close()
        self.console.close()
        self.udp.close()
        if kind:
            print("--- log of %s\n%s---" % (self.site, self.log()))

    def log(self):
        return (self.site / "server.log").read_text("utf-8", "replace").replace("\r\n", "\n")

    def await_log(self, text):
        wait_until("%r in the log" % text, lambda: text in self.log())

    def curl(self, path, *options):
        """Status, header fields (small letters) and body of the last answer."""
        done = subprocess.run([tool("curl"), "-sS", "-i", "--max-time", "120", *options, self.url + path],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        assert done.returncode == 0, "curl %s %s: %d %s" % (path, options, done.returncode, done.stderr)
        return split_answers(done.stdout, "-I" in options)[-1]

    def connect(self):
        s = socket.create_connection(("127.0.0.1", self.port), PATIENCE)
        return s

    def admin(self, *lines):
        with socket.create_connection(("127.0.0.1", self.admin_port), PATIENCE) as s:
            s.sendall("".join(line + "\n" for line in lines).encode())
            s.shutdown(socket.SHUT_WR)
            return read_all(s).decode()

    def stop(self):
        assert self.admin("stop") == "ok\n"
        self.expect_end()

    def expect_end(self):
        assert self.process.wait(PATIENCE) == 0, "exit status %d" % self.process.returncode


def read_all(s):
    blocks = []
    while True:
        blocks.append(s.recv(1 << 18))
        if not blocks[-1]:
            return b"".join(blocks)


def read_some(s, size):
    data = b""
    while len(data) < size and (block := s.recv(size - len(data))):
        data += block
    return data


def split_answers(data, is_head=False):
    answers = []
    while data:
        head, _, rest = data.partition(b"\r\n\r\n")
        lines = head.decode("latin-1").split("\r\n")
        fields = dict((k.lower(), v.strip()) for k, v in (line.split(":", 1) for line in lines[1:]))
        length = 0 if is_head else int(fields.get("content-length", 0))
        assert "transfer-encoding" not in fields
        assert len(rest) >= length, "an answer is cut: %d of %d bytes" % (len(rest), length)
        answers.append((int(lines[0].split()[1]), fields, rest[:length].decode("utf-8", "replace")))
        data = rest[length:]
    return answers


def expect(got, wanted, what):
    assert got == wanted, "%s: got %r instead of %r" % (what, got, wanted)


def expect_error(server, path, status, *options):
    got, fields, body = server.curl(path, *options)
    expect(got, status, "curl %s %s" % (path, options))
    assert "<h1>%d " % status in body, body
    return fields, body


# ---- requests

def pages_are_made(server):
    status, fields, body = server.curl("/?name=%3CBob%3E+%26+Eve")
    expect(status, 200, "status")
    expect(fields["content-type"], "text/html; charset=utf-8", "type")
    assert "date" in fields and "connection" not in fields
    assert "<title>Tea &amp; more</title>" in body and "Welcome, &lt;Bob&gt; &amp; Eve!" in body, body
    assert "<li>3 teas: 750 cents</li>" in body and "Run by &lt;Ada&gt;." in body and body.endswith("</html>\n"), body
    assert "Welcome!" in server.curl("/")[2]
    status, fields, body = server.curl("/", "-I")
    expect((status, body), (200, ""), "HEAD")
    assert int(fields["content-length"]) > 100


def bodies_may_be_asked_for(server):
    with server.connect() as s:
        s.sendall(b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\nexpect: 100-Continue\r\n\r\n")
        expect(read_some(s, 25), b"HTTP/1.1 100 Continue\r\n\r\n", "the interim answer")
        s.sendall(b"abcPOST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\nExpect: 100-continue\r\n\r\ndef")
        s.shutdown(socket.SHUT_WR)
        expect([a[2] for a in split_answers(read_all(s))], ["POST /echo  abc", "POST /echo  def"], "bodies")
    expect_error(server, "/echo", 413, "-H", "Expect: 100-continue", "-H", "Content-Length: 30000", "-d", "x")


def bodies_arrive(server):
    assert "<p>Right!</p>" in server.curl("/guess", "-d", "guess=42")[2]
    assert "4 &amp; 2 is wrong." in server.curl("/guess", "-d", "guess=4+%26+2")[2]
    expect(server.curl("/echo?a=b", "-d", "two words")[2], "POST /echo a=b two words", "echo")
    expect(server.curl("/%65cho", "-d", "")[2], "POST /echo  ", "an escaped path and an empty body")
    full = "x" * 20000
    (server.site / "full").write_text(full)
    expect(server.curl("/echo", "--data-binary", "@" + str(server.site / "full"))[2], "POST /echo  " + full, "full body")


def what_is_wrong_has_a_status(server):
    for options in (["-H", "Host:"], ["-X", "BAD METHOD"],
                    ["--request-target", "/a b"], ["--request-target", "x"], ["--request-target", "/%4"],
                    ["--request-target", "/%00"], ["-H", "A\tB: c"], ["-H", "Content-Length: 12x"]):
        fields, _ = expect_error(server, "/", 400, *options)
        expect(fields["connection"], "close", "connection")
    expect_error(server, "/nowhere", 404)
    expect_error(server, "/NOWHERE?x", 404)
    fields, _ = expect_error(server, "/", 405, "-X", "DELETE")
    expect(fields["allow"], "GET, HEAD", "allowed")
    expect(expect_error(server, "/echo", 405)[0]["allow"], "POST", "allowed")
    expect(expect_error(server, "/many", 405)[0]["allow"], METHODS, "allowed")
    expect(expect_error(server, "/guess", 405, "-X", "POS")[0]["allow"], "GET, HEAD, POST", "allowed")
    expect_error(server, "/echo", 411, "-H", "Transfer-Encoding: chunked", "-d", "x")
    (server.site / "one_more").write_text("x" * 20001)
    expect_error(server, "/echo", 413, "--data-binary", "@" + str(server.site / "one_more"))
    (server.site / "much").write_text("x" * 3000000)
    expect_error(server, "/echo", 413, "-H", "Expect:", "--data-binary", "@" + str(server.site / "much"))
    expect_error(server, "/echo", 413, "-H", "Content-Length: 99999999999999999999", "-d", "x")
    expect_error(server, "/", 431, "-H", "X: " + "y" * 5000)
    expect_error(server, "/" + "y" * 5000, 431)
    server.await_log("answered 431 Request Header Fields Too Large")
    server.await_log("warn: 127.0.0.1:")


def broken_heads_are_refused(server):
    for head in (b"GET / HTTP/1.1\nHost: a\n\n", b"GET / HTTP/2.0\r\n", b"GET  / HTTP/1.1\r\n", b"GET /\r\n",
                 b"\0\r\n", b"GET / HTTP/1.1\r\n folded: x\r\n", b"GET / HTTP/1.1\r\nNo colon\r\n",
                 b"GET / HTTP/1.1\r\nHost : a\r\n",
                 b"GET / HTTP/1.1\r\nHost: a\r\nhost: b\r\n\r\n",
                 b"GET / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n",
                 b"GET / HTTP/1.1\r\nHost: a\x01\r\n", b"\n", b"GET /\0 HTTP/1.1\r\n",
                 b"GET / HTTP/1.1\r\nHost: a\0b\r\n", b"GET / HTTP/1.1\r\n\0: a\r\n", b"GET / HTTP/1.1\r\n: a\r\n",
                 b"GET / HTTP/1.1\nHost: a\r\n", b"GET / HTTP/1.1\r\nHost: a\n", b"GET / HTTP/1.1\r\nHost: a\rb\r\n",
                 b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", b"GET / HTTP/1.0\r\nHost: a\r\n\r\n", b"\x16\x03\x01\n",
                 b"GET http://a/ HTTP/1.1\r\n", b"G(T / HTTP/1.1\r\n", b"GET / HTTP/1.1\r\n\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: -1\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: +1\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length:\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 1, 1\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 0\r\nContent-Length: 5\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 5\r\ncontent-length: 5\r\n",
                 b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 5x\r\n"):
        with server.connect() as s:
            s.sendall(head)
            answers = split_answers(read_all(s))
            expect([a[0] for a in answers], [400], head)


def hostile_heads_get_what_they_deserve(server):
    post = b"POST /echo HTTP/1.1\r\nHost: a\r\n"
    for sent, status in ((post + b"Content-Length: 99999999999999999999\r\n\r\n", 413),
                         (post + b"Content-Length: 4294967296\r\n\r\n", 413),
                         (post + b"Content-Length: 20001\r\n\r\n", 413),
                         (post + b"Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 411),
                         (post + b"transfer-ENCODING:identity\r\n\r\n", 411),
                         (b"x" * 5000, 431), (b"\r\n" * 3000, 431), (post + b"a: b\r\n" * 1000, 431)):
        with server.connect() as s:
            s.sendall(sent)
            expect([a[0] for a in split_answers(read_all(s))], [status], sent[:80])
    # A head without an end, a byte at a time.
    with server.connect() as s:
        s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in (b"GET / HTTP/1.1\r\nX: " + b"y" * 5000)[:4096]:
            s.sendall(bytes([byte]))
        expect([a[0] for a in split_answers(read_all(s))], [431], "a byte at a time")
    # A path leads to a route or nowhere, but never to a file.
    for path in ("/../home.xpp", "/home.xpp", "/./", "//", "/%2e%2e/test.ini", "/static/", "/static%2Fx", "/..%5Ctest.ini"):
        expect_error(server, path, 404, "--path-as-is")
    # An error behind a HEAD has its page.
    with server.connect() as s:
        s.sendall(b"HEAD /static HTTP/1.1\r\nHost: a\r\n\r\nx\r\n")
        head, _, rest = read_all(s).partition(b"\r\n\r\n")
    assert head.startswith(b"HTTP/1.1 200 "), head
    expect([a[0] for a in split_answers(rest)], [400], "the second answer")


def whatever_comes_is_answered_or_refused(server):
    """Requests with random damage, some cut off: no answer is malformed, and the server lives on."""
    damage = random.Random(9)
    good = (b"POST /echo?a=%41&b HTTP/1.1\r\nHost: a\r\nContent-Length: 5\r\nExpect: x\r\n\r\nhello"
            b"GET /static HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n")
    statuses = set()
    for _ in range(400):
        data = bytearray(good)
        for _ in range(damage.randrange(1, 4)):
            at = damage.randrange(len(data))
            data[at:at + damage.randrange(3)] = bytes(damage.choice(b"\r\n :/?%\0\xff0aZ") for _ in range(damage.randrange(3)))
        with server.connect() as s:
            s.sendall(data[:damage.randrange(1, len(data) + 40)])
            s.shutdown(socket.SHUT_WR)
            statuses.update(answer[0] for answer in split_answers(read_all(s)))
    assert {200, 400, 404} <= statuses <= {200, 400, 404, 405, 411, 413}, statuses
    expect(server.curl("/static")[0], 200, "afterwards")


def script_errors_stay_in_the_log(server):
    fields, body = expect_error(server, "/failing?0", 500)
    assert "failing" not in body and "secret" not in body and "3" not in body, body
    server.await_log("failing.xpp:3: ")
    server.await_log("(divide zero)")
    assert "connection" not in fields
    assert "0" in server.curl("/failing?7")[2]
    fields, body = expect_error(server, "/wrong", 500)
    assert "wrong" not in body
    server.await_log("wrong.xpp:2: ")
    expect_error(server, "/missing", 500)
    server.await_log("missing.xpp:")
    server.await_log("(file system error)")
    expect_error(server, "/nothing", 500)
    server.await_log("nothing.xpp:-1: ")
    expect_error(server, "/endless", 500)
    server.await_log("the page is too long (overrun)")
    assert "error: " in server.log()


def changed_scripts_are_compiled_again(server):
    expect(server.curl("/changing")[2], "first", "before")
    expect(server.curl("/changing")[2], "first", "again")
    expect(server.log().count("changing.xpp: compiled"), 1, "compiled once")
    (server.site / "changing.xpp").write_text("$[proc page(method, path, query, body)]and second$[end]\n")
    expect(server.curl("/changing")[2], "and second", "after")
    expect(server.log().count("changing.xpp: compiled"), 2, "compiled twice")
    (server.site / "changing.xpp").write_text("$[proc page(\n")
    expect_error(server, "/changing", 500)
    expect_error(server, "/changing", 500)
    expect(server.log().count("changing.xpp:"), 3, "one line for one change")
    (server.site / "changing.xpp").write_text("$[proc page(method, path, query, body)]mended$[end]\n")
    expect(server.curl("/changing")[2], "mended", "mended")
    (server.site / "missing.xpp").write_text("$[proc page(method, path, query, body)]there$[end]\n")
    expect(server.curl("/missing")[2], "there", "a file that comes later")


def scripts_may_go_and_come(server):
    script = server.site / "changing.xpp"
    sound = script.read_text()
    script.unlink()
    expect_error(server, "/changing", 500)
    expect_error(server, "/changing", 500)
    expect(server.log().count("changing.xpp:0: file system error (file system error)"), 1, "one line for one change")
    script.write_text(sound)
    expect(server.curl("/changing")[2], "mended", "there again")


def scripts_may_be_unreadable_for_a_while(server):
    """The program has no descriptor left when the script is asked for the first time."""
    # Windows has no such limit, and the sanitizers need descriptors themselves.
    if server.args.emulator or b"__asan_init" in pathlib.Path(server.args.program).read_bytes():
        return
    import resource
    with server.connect() as s:
        s.sendall(b"GET /static HTTP/1.1\r\nHost: a\r\n\r\n")
        assert s.recv(1, socket.MSG_PEEK) == b"H"
        used = {int(name) for name in os.listdir("/proc/%d/fd" % server.process.pid)}
        lowest = min(set(range(len(used) + 1)) - used)
        before = resource.prlimit(server.process.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(server.process.pid, resource.RLIMIT_NOFILE, (lowest, before[1]))
        s.sendall(b"GET /cold HTTP/1.1\r\nHost: a\r\n\r\n")
        wait_until("a script that cannot be read", lambda: "static.xpp:0: file system error" in server.log())
        resource.prlimit(server.process.pid, resource.RLIMIT_NOFILE, before)
        s.sendall(b"GET /cold HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n")
        expect([a[0] for a in split_answers(read_all(s))], [200, 500, 200], "before and after")


def connections_are_kept(server):
    count = "%{num_connects} "
    gets = [word for p in ("/", "/nowhere", "/failing?0", "/static") for word in ("-o", os.devnull, server.url + p)]
    done = subprocess.run([tool("curl"), "-sS", "-w", count] + gets + ["--next", "-sS", "-w", count, "-d", "guess=1",
                           "-o", os.devnull, server.url + "/guess"], stdout=subprocess.PIPE, check=True)
    expect(done.stdout.decode().split(), ["1", "0", "0", "0", "0"], "connections made")
    done = subprocess.run([tool("curl"), "-sS", "-H", "Connection: close", "-w", count, "-o", os.devnull, server.url,
                           "-o", os.devnull, server.url], stdout=subprocess.PIPE, check=True)
    expect(done.stdout.decode().split(), ["1", "1"], "connections made")
    expect_error(server, "/", 400, "--http1.0")
    # Among others "close" is one, too; a word that only holds it is not.
    for field, count in ((b"TE, close", 1), (b"Close,TE", 1), (b"keep-alive", 2), (b"x", 2)):
        with server.connect() as s:
            s.sendall(b"GET /static HTTP/1.1\r\nHost: a\r\nConnection: " + field + b"\r\n\r\n"
                      b"GET /static HTTP/1.1\r\nHost: a\r\n\r\n")
            s.shutdown(socket.SHUT_WR)
            expect(len(split_answers(read_all(s))), count, field)


def requests_are_pipelined(server):
    get = b"GET /echo HTTP/1.1\r\nHost: a\r\n\r\n"
    post = b"POST /echo?%d HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc"
    last = b"HEAD / HTTP/1.1\r\nhost: a\r\ncoNNection: Close\r\n\r\n"
    with server.connect() as s:
        s.sendall(b"\r\n" + b"".join(post % i for i in range(500)) + get + last + get)
        data = read_all(s)
    cut = data.rindex(b"HTTP/1.1 ")
    answers = split_answers(data[:cut])
    expect([a[2] for a in answers[:500]], ["POST /echo %d abc" % i for i in range(500)], "pipelined bodies")
    expect([a[0] for a in answers[500:]], [405], "the one behind")
    assert data[cut:].startswith(b"HTTP/1.1 200 ") and data.endswith(b"Connection: close\r\n\r\n"), data[cut:]
    # As many at once as nobody sends, while their answers wait to be read.
    many = 10000
    with server.connect() as s:
        sender = threading.Thread(target=s.sendall, args=((b"GET /nowhere HTTP/1.1\r\nHost: a\r\n\r\n" * many) + last,))
        sender.start()
        data = read_all(s)
        sender.join()
    expect(data.count(b"HTTP/1.1 404 Not Found\r\n"), many, "answers")
    # One byte at a time is as good.
    with server.connect() as s:
        s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in post % 1 + last:
            s.sendall(bytes([byte]))
        data = read_all(s)
    assert b"POST /echo 1 abc" in data, data


def peers_that_do_not_read_get_what_they_asked(server):
    """Many large answers, more than any buffer holds, to one who reads late."""
    n = 6
    with server.connect() as s:
        s.sendall(b"GET /large HTTP/1.1\r\nHost: a\r\n\r\n" * n)
        time.sleep(0.2)
        s.shutdown(socket.SHUT_WR)
        answers = split_answers(read_all(s))
    expect([len(a[2]) for a in answers], [200000 * 41] * n, "large answers")


def what_follows_a_refusal_is_taken(server):
    """A connection closed while its peer still sends is reset, and the peer may lose the answer."""
    with server.connect() as s:
        s.sendall(b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 300000\r\n\r\n")
        answers = s.recv(1 << 16)
        for _ in range(10):
            s.sendall(b"x" * 10000)
            time.sleep(0.005)
        s.shutdown(socket.SHUT_WR)
        expect([a[0] for a in split_answers(answers + read_all(s))], [413], "a body that is too long")


def the_shell_answers(server):
    got = server.admin("status", "", "dance", 'status "', "language german", "status\r")
    lines = got.split("\n")
    assert re.fullmatch(r"connections \d+", lines[0]) and re.fullmatch(r"requests \d+", lines[1]), got
    expect(lines[2:4], ["ok", "ok"], "status and an empty line")
    expect([line.split()[0] for line in lines[4:8]], ["language", "quit", "status", "stop"], "commands")
    expect(lines[8:11], ["undefined symbol", "syntax error", "invalidate parameter"], "errors")
    assert lines[11].startswith("connections"), got
    expect(server.admin("quit", "status"), "ok\n", "quit")
    assert server.admin("x" * 600).count("ok") == 0
    # A page of another site may have a browser send this.
    expect(server.admin("POST / HTTP/1.1", "Host: a", "", "language chinese", "stop"), "", "what a browser sends")
    (server.site / "messages.xml").unlink() # both languages were read at the start
    expect(server.admin("language chinese"), "ok\n", "language")
    expect_error(server, "/failing?0", 500)
    server.await_log("failing.xpp:3：")
    server.await_log("（divide zero）")
    expect(server.admin("language english"), "ok\n", "language")


def open_requests_are_finished(server):
    with server.connect() as half, server.connect() as idle, server.connect() as slow, server.connect() as full:
        half.sendall(b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 4\r\n\r\nab")
        slow.sendall(b"GET /large HTTP/1.1\r\nHost: a\r\n\r\nGET /static HTTP/1.1\r\nHost: a\r\n\r\n")
        full.sendall(b"GET /large HTTP/1.1\r\nHost: a\r\n\r\n")
        wait_until("four connections", lambda: server.admin("status").startswith("connections 5\n"))
        wait_until("the large pages", lambda: {s.recv(1, socket.MSG_PEEK) for s in (slow, full)} == {b"H"})
        # The server reads this when most of its first answer is taken, or, once it stops, not at all.
        full.sendall(b"GET /static HTTP/1.1\r\nHost: a\r\n\r\n")
        before = int(re.search(r"requests (\d+)", server.admin("status")).group(1))
        expect(server.admin("stop"), "ok\n", "stop")
        expect(read_all(idle), b"", "an idle connection at the end")
        try:
            server.connect()
            assert False, "the port is still open"
        except OSError:
            pass
        assert server.process.poll() is None
        half.sendall(b"cd")
        (status, fields, body), = split_answers(read_all(half))
        expect((status, fields.get("connection"), body), (200, "close", "POST /echo  abcd"), "the half request")
        large, last = split_answers(read_all(slow))
        expect((len(large[2]), last[0]), (200000 * 41, 200), "the requests that were answered slowly")
        answers = split_answers(read_all(full))
        expect(len(answers[0][2]), 200000 * 41, "the answer before a request that comes late")
    server.expect_end()
    server.await_log("stopping for 127.0.0.1:")
    assert re.search(r"stopped after %d requests" % (before + 1 + len(answers)), server.log()), "requests at the end"


def lines_go_to_all_sinks(server):
    """After the end: what the file has was sent by UDP and shown, too. Each line has its time."""
    stamp = re.compile(r"(\d{4}-\d\d-\d\d, \d\d:\d\d:\d\d) \[pages\] ")
    logged = [line for line in server.log().splitlines() if not line.startswith("***")]
    console = (server.site / "console.txt").read_text("utf-8", "replace").splitlines()
    expect([line for line in console if stamp.match(line)], logged, "console")
    expect(server.udp.recv(2048).decode("utf-8").rstrip("\n"), logged[0], "first line by UDP")
    wanted = "hint: serving http://127.0.0.1:%d, loop %s" % (server.port, server.args.loop)
    expect(logged[0].split("] ")[1], wanted, "first line")
    times = [time.mktime(time.strptime(stamp.match(line).group(1), "%Y-%m-%d, %H:%M:%S")) for line in logged]
    assert server.began - 2 <= times[0] and times == sorted(times) and times[-1] <= time.time(), times


def time_limits(server):
    idle = server.connect()
    slow = server.connect()
    deaf = socket.socket()
    deaf.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    deaf.connect(("127.0.0.1", server.port))
    with idle, slow, deaf:
        for s in (idle, slow):
            s.settimeout(PATIENCE)
        deaf.sendall(b"GET /large HTTP/1.1\r\nHost: a\r\n\r\n")
        slow.sendall(b"GET / HTTP/1.1\r\nHost:")
        expect(read_all(idle), b"", "an idle connection")
        # What comes meanwhile does not help.
        answer = b""
        slow.settimeout(0.1)
        deadline = time.monotonic() + PATIENCE
        while b"\r\n\r\n" not in answer:
            assert time.monotonic() < deadline
            try:
                slow.sendall(b"x")
                answer += slow.recv(4096)
            except socket.timeout:
                pass
        expect(answer.split()[1], b"408", "a slow request")
        wait_until("both in the log", lambda: server.log().count("dropped (timeout)") == 2)
        wait_until("all gone", lambda: server.admin("status").startswith("connections 1\n"))
    server.stop()


def connections_are_bounded(server):
    first = [server.connect() for _ in range(3)]
    wait_until("all slots taken", lambda: server.admin("status").startswith("connections 4\n"))
    late = server.connect()
    late.sendall(b"GET /static HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n")
    late.settimeout(0.3)
    try:
        assert not late.recv(1), "served beyond the limit"
    except socket.timeout:
        pass
    first.pop().close()
    late.settimeout(PATIENCE)
    expect([a[0] for a in split_answers(read_all(late))], [200], "the one that waited")
    for s in first + [late]:
        s.close()
    server.stop()


def fails(args, site, *options):
    """The status of a program that ends by itself, and what it says."""
    done = subprocess.run(args.emulator.split() + [args.program, *options], cwd=site, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE)
    assert not done.stdout.startswith(b"http"), done.stdout
    return done.returncode, done.stderr.decode("utf-8", "replace")


def wrong_settings_are_told(args):
    site = pathlib.Path(args.scratch) / (args.loop + "_wrong")
    shutil.rmtree(site, ignore_errors=True)
    shutil.copytree(args.site, site)
    for name, conversion in (("unsafe", "%d"), ("writing", "%n"), ("unknown", "%q"), ("cut", "%")):
        text = (site / "messages.xml").read_text("utf-8").replace("%s", conversion, 1)
        (site / (name + ".xml")).write_text(text, "utf-8")
    sound = INI % dict(loop=args.loop, log="server.log", udp=9, language="english", idle=9, request=9, answer=9,
                       connections=9, methods=METHODS)
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        used = str(taken.getsockname()[1])
        for change, wanted in (
                (("port=0", "port=65536"), "[server] port=65536 is not 0 to 65535 (invalidate parameter)"),
                (("admin_port=0", "admin_port=-1"), "[server] admin_port=-1 is not 0 to 65535 ("),
                (("loop=" + args.loop, "loop=x"), "[server] loop=x is not selector, poller or epoller (invalidate"),
                (("head=4096", "head=1"), "[limits] head=1 is not 64 to 1048576 ("),
                (("body=20000", "body=much"), "[limits] body=much is not "),
                (("language=english", "language=german"), "[log] language=german is not english or chinese (invali"),
                (("messages.xml", "nowhere.xml"), "[log] messages=nowhere.xml is not a language file (file "),
                (("messages.xml", "unsafe.xml"), "[log] messages=unsafe.xml is not a language file (syntax "),
                (("messages.xml", "writing.xml"), "[log] messages=writing.xml is not a language file (syntax "),
                (("messages.xml", "unknown.xml"), "[log] messages=unknown.xml is not a language file (syntax "),
                (("messages.xml", "cut.xml"), "[log] messages=cut.xml is not a language file (syntax "),
                (("server.log", "nowhere/x.log"), "[log] file=nowhere/x.log is not a file to append to (file system"),
                (("127.0.0.1:9", "nobody"), "[log] udp=nobody is not ADDRESS:PORT (network error)"),
                (("port=0", "port=" + used), "cannot listen on port %s (" % used),
                (("admin_port=0", "admin_port=" + used), "cannot listen on port %s (" % used)):
            assert change[0] in sound
            (site / "test.ini").write_text(sound.replace(*change, 1))
            status, said = fails(args, site, "--config", str(site / "test.ini"))
            expect(status, 1, change)
            assert re.search(r"^\d{4}-\d\d-\d\d, \d\d:\d\d:\d\d \[stdkro\] error: ", said, re.M), said
            assert wanted in said, (change, said)
    # The command line goes before the file, and is checked as the file is.
    (site / "test.ini").write_text(sound)
    for option, name in (("--port", "port"), ("--admin", "admin_port")):
        for value in ("65536", "70000", "-1", "99999999999", "12x", "x", ""):
            status, said = fails(args, site, "--config", str(site / "test.ini"), option, value)
            expect(status, 1, (option, value))
            assert "[server] %s=%s is not 0 to 65535 (invalidate parameter)" % (name, value) in said, said
    status, said = fails(args, site, "--config", "nowhere.ini")
    expect(status, 1, "no settings")
    assert "nowhere.ini (file system error)" in said, said
    for options in (("--port",), (), ("--config", str(site / "test.ini"), "--nothing")):
        status, said = fails(args, site, *options)
        expect(status, 2, options)
        assert "usage: page_server" in said


def the_program_is_small(args):
    sources = [p for p in pathlib.Path(args.site).parent.iterdir() if p.suffix in (".cpp", ".h")]
    lines = [line for p in sources for line in p.read_text("utf-8").splitlines()]
    assert len(sources) > 5 and len(lines) <= 700, "%d lines in %d files" % (len(lines), len(sources))
    assert max(map(len, lines)) <= 110, max(lines, key=len)


def requests(args):
    the_program_is_small(args)
    with Server(args, "requests") as server:
        for case in (pages_are_made, bodies_may_be_asked_for, bodies_arrive, what_is_wrong_has_a_status, broken_heads_are_refused,
                     hostile_heads_get_what_they_deserve, whatever_comes_is_answered_or_refused,
                     script_errors_stay_in_the_log, changed_scripts_are_compiled_again, scripts_may_go_and_come,
                     scripts_may_be_unreadable_for_a_while, connections_are_kept,
                     requests_are_pipelined, peers_that_do_not_read_get_what_they_asked,
                     what_follows_a_refusal_is_taken, the_shell_answers, open_requests_are_finished,
                     lines_go_to_all_sinks):
            began = time.monotonic()
            case(server)
            print("%-45s %4.1f s" % (case.__name__, time.monotonic() - began), flush=True)
    for case, options in ((time_limits, dict(idle=4, request=3, answer=3)),
                          (connections_are_bounded, dict(connections=3))):
        print(case.__name__, flush=True)
        with Server(args, case.__name__, **options) as server:
            case(server)
    print("wrong_settings_are_told", flush=True)
    wrong_settings_are_told(args)
    if not args.emulator:
        print("ctrl_c_stops", flush=True)
        with Server(args, "ctrl_c", language="chinese") as server:
            with server.connect() as half:
                half.sendall(b"POST /echo HTTP/1.1\r\nHost: a\r\nContent-Length: 4\r\n\r\nab")
                wait_until("the connection", lambda: server.admin("status").startswith("connections 2\n"))
                server.process.send_signal(signal.SIGINT)
                server.await_log("因 Ctrl-C 而停止，还有 1 个连接")
                half.sendall(b"cd")
                expect(split_answers(read_all(half))[0][2], "POST /echo  abcd", "the open request")
            server.expect_end()
            server.await_log("已停止，共处理 1 个请求")
        print("a_second_ctrl_c_does_not_wait", flush=True)
        with Server(args, "ctrl_c_twice") as server, server.connect() as half:
            half.sendall(b"GET /")
            wait_until("the connection", lambda: server.admin("status").startswith("connections 2\n"))
            server.process.send_signal(signal.SIGINT)
            server.await_log("stopping for Ctrl-C")
            server.process.send_signal(signal.SIGINT)
            expect(server.process.wait(PATIENCE), -signal.SIGINT, "status")


# ---- load and browser

def load(args):
    seconds, connections = 10, 200
    with Server(args, "load") as server:
        def status(name):
            return int(re.search(name + r" (\d+)", server.admin("status")).group(1))

        def memory():
            text = pathlib.Path("/proc/%d/smaps_rollup" % server.process.pid).read_text()
            return int(re.search(r"Rss:\s*(\d+) kB", text).group(1))

        began = time.monotonic()
        clients = subprocess.Popen([tool("wrk"), "-t", "1", "-c", str(connections), "-d", str(seconds), "--latency",
                                    "--timeout", "60s", server.url + "/"], stdout=subprocess.PIPE)
        # The first second, or on a busy machine until all buffers were used.
        wait_until("all clients served", lambda: time.monotonic() - began >= 1 and status("connections") > connections
                   and status("requests") > 20 * connections)
        before = memory()
        time.sleep(max(0.0, began + seconds - 0.5 - time.monotonic()))
        after = memory()
        report = clients.communicate(timeout=PATIENCE)[0].decode()
        print(report + "memory: %d kB, %d kB at the end" % (before, after), flush=True)
        expect(clients.returncode, 0, "status of wrk")
        assert "Socket errors" not in report and "Non-2xx" not in report, "errors"
        total = int(re.search(r"(\d+) requests in", report).group(1))
        assert status("requests") >= total > 20 * connections, "requests"
        assert after <= before + 128, "memory grew"
        wait_until("all gone", lambda: status("connections") == 1)
        server.stop()


def browser(args):
    with Server(args, "browser") as server:
        home = server.site / "profile"
        command = [tool("chromium"), "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                   "--disable-background-networking", "--disable-component-update", "--disable-sync",
                   "--disable-dev-shm-usage", "--user-data-dir=%s" % home]
        url = server.url + "/?name=%3CAda%3E+%26+Grace"
        done = subprocess.run(command + ["--dump-dom", url], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, timeout=240)
        expect(done.returncode, 0, "status of chromium")
        page = done.stdout.decode("utf-8")
        for text in ("<title>Tea &amp; more</title>", "<h1>Tea &amp; more</h1>", "Welcome, &lt;Ada&gt; &amp; Grace!",
                     "<li>2 teas: 500 cents</li>", "Run by &lt;Ada&gt;."):
            assert text in page, "%r is not in the page:\n%s" % (text, page)
        picture = server.site / "page.png"
        subprocess.run(command + ["--window-size=400,300", "--hide-scrollbars", "--screenshot=%s" % picture, url],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=240)
        data = picture.read_bytes()
        expect((data[:8], data[16:24]), (b"\x89PNG\r\n\x1a\n", b"\0\0\x01\x90\0\0\x01\x2c"), "the picture's size")
        blank = server.site / "blank.png"
        subprocess.run(command + ["--window-size=400,300", "--hide-scrollbars", "--screenshot=%s" % blank, "about:blank"],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=240)
        assert len(data) > 2 * len(blank.read_bytes()), "the picture is blank"
        server.stop()


def main():
    parser = argparse.ArgumentParser()
    for name in ("program", "site", "scratch"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--loop", default="epoller")
    parser.add_argument("part", choices=["requests", "load", "browser"])
    args = parser.parse_args()
    args.emulator = args.emulator.replace(";", " ")
    pathlib.Path(args.scratch).mkdir(parents=True, exist_ok=True)
    globals()[args.part](args)
    print("passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
