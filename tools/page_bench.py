#!/usr/bin/env python3
"""Measures page servers with wrk in turns: page_bench.py BUILD SITE ROUNDS"""
import os
import pathlib
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import time

LOOPS = ("selector", "poller", "epoller")
PAGE = "<!DOCTYPE html>\n<title>Static</title>\n<p>This page is the same for everybody.</p>\n"
SECONDS, CONNECTIONS = 2, 100

NGINX = """daemon off; worker_processes 1; pid %(home)s/pid; error_log %(home)s/error.log;
events { worker_connections 2048; }
http { access_log off; default_type text/html; keepalive_requests 100000000; %(temporary)s
  server { listen 127.0.0.1:%(port)d; root %(home)s; } }
"""


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def start(command, **options):
    return subprocess.Popen([str(word) for word in command], start_new_session=True, **options)


def start_and_read_port(command):
    process = start(command, stdout=subprocess.PIPE)
    line = process.stdout.readline().decode()
    assert line.startswith("http 127.0.0.1:"), line
    return process, int(line.rsplit(":", 1)[1])


def start_loop(build, site, home, loop):
    folder = home / loop
    shutil.copytree(site, folder)
    text = (folder / "page_server.ini").read_text()
    text = text.replace("loop=epoller", "loop=" + loop).replace("console=yes", "console=no")
    (folder / "page_server.ini").write_text(text)
    return start_and_read_port([build / "bin/page_server", "--config", folder / "page_server.ini",
                                "--port", 0, "--admin", 0])


def start_nginx(home):
    port = free_port()
    kinds = ("client_body", "proxy", "fastcgi", "uwsgi", "scgi")
    temporary = " ".join("%s_temp_path %s/%s;" % (kind, home, kind) for kind in kinds)
    (home / "nginx.conf").write_text(NGINX % dict(home=home, port=port, temporary=temporary))
    return start(["nginx", "-c", home / "nginx.conf"], stderr=subprocess.DEVNULL), port


def await_port(port):
    deadline = time.monotonic() + 30
    while True:
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return
        except OSError:
            assert time.monotonic() < deadline, "nobody on port %d" % port
            time.sleep(0.05)


def measure(port):
    done = subprocess.run(["wrk", "-t", "1", "-c", str(CONNECTIONS), "-d", str(SECONDS), "--timeout", "30s",
                           "http://127.0.0.1:%d/static" % port], stdout=subprocess.PIPE, check=True)
    report = done.stdout.decode()
    assert "Socket errors" not in report and "Non-2xx" not in report, report
    return float(re.search(r"Requests/sec:\s*([\d.]+)", report).group(1))


def main():
    build, site, rounds = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]), int(sys.argv[3])
    home = build / "page_bench"
    shutil.rmtree(home, ignore_errors=True)
    home.mkdir()
    home.chmod(0o755)
    (home / "static").write_text(PAGE)
    servers = {}
    try:
        for loop in LOOPS:
            servers[loop] = start_loop(build, site, home, loop)
        servers["evhttp"] = start_and_read_port([build / "bin/page_evhttp", home / "static"])
        servers["nginx"] = start_nginx(home)
        for _, port in servers.values():
            await_port(port)
        rates = {name: [] for name in servers}
        for _ in range(rounds):
            for name, (_, port) in servers.items():
                rates[name].append(measure(port))
    finally:
        for process, _ in servers.values():
            os.killpg(process.pid, signal.SIGTERM)
            process.wait()
    print("%-9s %13s %9s %10s" % ("", "requests/s", "of nginx", "of evhttp"))
    for name, mine in rates.items():
        ratios = [statistics.median(a / b for a, b in zip(mine, rates[peer])) for peer in ("nginx", "evhttp")]
        print("%-9s %13.0f %9.2f %10.2f" % (name, statistics.median(mine), *ratios))


if __name__ == "__main__":
    main()
