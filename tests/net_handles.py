#!/usr/bin/env python3
"""Asks `kro net echo` for more connections than it has handles for: net_handles.py KRO

Those that fit are served, the server rests instead of trying the others without a pause, and these
get their turn when the first have gone.
"""
import os
import resource
import socket
import subprocess
import sys
import time

PATIENCE = 60  # seconds until something that must happen counts as missing
HANDLES = 14
CLIENTS = 16  # more than fit
LOOK = 2  # seconds to look on for
MOST_CPU = 0.2  # seconds of them


def limit_handles():
    resource.setrlimit(resource.RLIMIT_NOFILE, (HANDLES, HANDLES))


def cpu_seconds(process):
    with open(f"/proc/{process.pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def is_answered(client, seconds):
    client.settimeout(seconds)
    try:
        client.sendall(b"?")
        return client.recv(1) == b"?"
    except socket.timeout:
        return False


def check(kro, loop):
    server = subprocess.Popen([kro, "net", "echo", "127.0.0.1:0", "--loop", loop, "--count", str(CLIENTS)],
                              preexec_fn=limit_handles, stderr=subprocess.PIPE, text=True)
    try:
        port = int(server.stderr.readline().rsplit(":", 1)[1])
        clients = [socket.create_connection(("127.0.0.1", port)) for _ in range(CLIENTS)]
        assert is_answered(clients[0], PATIENCE), "the first is not served"

        before = cpu_seconds(server)
        assert not is_answered(clients[-1], LOOK), "there were handles for all"
        spent = cpu_seconds(server) - before
        assert spent < MOST_CPU, f"{spent} s of {LOOK} without anything to do"

        for client in clients[:-1]:
            client.close()
        # Its question has been waiting.
        clients[-1].settimeout(PATIENCE)
        assert clients[-1].recv(1) == b"?", "the last does not get its turn"
        clients[-1].close()
        assert server.wait(PATIENCE) == 0, server.stderr.read()
    finally:
        server.kill()
        server.wait()


for name in ("selector", "poller", "epoller"):
    check(sys.argv[1], name)
    print(f"{name}: ok")
