#!/usr/bin/env python3
"""Ten thousand connections at once against the demo host, on 127.0.0.1.

Starts varnek-demo with --slots N (its log to a file) and runs three phases:

1. Held: opens C connections that send nothing yet and waits until the demo
   holds them all (its descriptor count); the resident memory they add,
   divided by C, is the cost of one held connection.
2. Burst on the held ones: every connection sends "GET / HTTP/1.0" at the
   same moment and reads its answer to the end.
3. Fresh burst: C new non-blocking connections, each sending its GET as soon
   as it is connected (accepts and requests together).

Per burst: the time from each connect (or send) to the first byte of its
answer (the settle floor is 0.5 s) and to its end (the slot closes 1 s after
it answered), how many came within 3.5 s; after each, the descriptors the
demo holds once the clients have gone.
Reported, never asserted. Raises RLIMIT_NOFILE (the client holds C sockets);
the demo raises its own. Every wait has a time limit.

Usage:
  bench/c10k.py [--demo build/examples/varnek-demo] [--port 18092]
                [--slots 10000] [--clients 10000]
"""

import argparse
import os
import selectors
import socket
import subprocess
import sys
import tempfile
import time

from http_load import raise_fd_limit  # this folder is on the path
from silent_crowd import descriptors, get_status, rss_kib

GET = b"GET / HTTP/1.0\r\n\r\n"


def cpu_seconds(pid):
    """User and system time the process has taken so far."""
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def wait_for(predicate, limit, step=0.05):
    end = time.monotonic() + limit
    while time.monotonic() < end:
        if predicate():
            return True
        time.sleep(step)
    return predicate()


def open_held(port, count, limit=60.0):
    """Connects `count` sockets without sending; the list of those that connected."""
    held = []
    end = time.monotonic() + limit
    for _ in range(count):
        if time.monotonic() > end:
            break
        s = socket.socket()
        s.settimeout(10)
        try:
            s.connect(("127.0.0.1", port))
        except OSError as e:
            s.close()
            print(f"connection {len(held) + 1} failed: {e}")
            break
        s.setblocking(False)
        held.append(s)
    return held


def burst(port, count, held=None, limit=60.0):
    """C GETs at the same moment: on the held sockets, or on `count` fresh
    non-blocking connections that send once connected. Per connection the
    seconds from its connect (or send) to the first byte of the answer and to
    its end (None when it did not come), and the bytes it got."""
    sel = selectors.DefaultSelector()
    socks = held if held is not None else []
    start, first, last, got, sent = {}, {}, {}, {}, set()

    def send(s):
        try:
            s.send(GET)
            sent.add(s)
            sel.modify(s, selectors.EVENT_READ) if s in sel.get_map() else sel.register(s, selectors.EVENT_READ)
        except OSError:
            last[s] = None
            if s in sel.get_map():
                sel.unregister(s)

    if held is None:
        for _ in range(count):
            s = socket.socket()
            s.setblocking(False)
            start[s] = time.monotonic()
            try:
                s.connect_ex(("127.0.0.1", port))
            except OSError:
                pass
            socks.append(s)
            got[s] = 0
            sel.register(s, selectors.EVENT_WRITE)
    else:
        for s in socks:
            start[s] = time.monotonic()
            got[s] = 0
            sel.register(s, selectors.EVENT_READ)
            send(s)
    end = time.monotonic() + limit
    while len(last) < len(socks) and time.monotonic() < end:
        for key, _ in sel.select(timeout=0.5):
            s = key.fileobj
            if s not in sent:
                send(s)
                continue
            try:
                data = s.recv(65536)
            except OSError:
                data = b""
            if data:
                first.setdefault(s, time.monotonic() - start[s])
                got[s] += len(data)
                continue
            last[s] = time.monotonic() - start[s] if got[s] else None
            sel.unregister(s)
    return socks, [first.get(s) for s in socks], [last.get(s) for s in socks], [got[s] for s in socks]


def summary(name, times):
    done = sorted(t for t in times if t is not None)
    if not done:
        return f"{name}: none"
    p50 = done[len(done) // 2]
    p99 = done[min(len(done) - 1, int(len(done) * 0.99))]
    return (f"{name}: {len(done)}, {sum(1 for t in done if t <= 3.5)} within 3.5 s; "
            f"first {done[0]:.2f} s, median {p50:.2f}, p99 {p99:.2f}, last {done[-1]:.2f}")


def report_burst(title, pid, run):
    cpu = cpu_seconds(pid)
    socks, first, last, got = run()
    print(f"{title}: {len(socks)} GETs, {min((g for g in got if g), default=0)}..{max(got, default=0)} "
          f"bytes each; the demo took {cpu_seconds(pid) - cpu:.2f} s of CPU")
    print("  " + summary("first byte of the answer", first))
    print("  " + summary("end of the answer (after the 1 s pause and close)", last))
    for s in socks:
        s.close()


def leave_and_count(pid, base_fds):
    """Waits until the demo holds no more descriptors than at rest (its slots
    close 1 s after they answer) and reports them."""
    t0 = time.monotonic()
    wait_for(lambda: descriptors(pid) <= base_fds, 60, 0.2)
    print(f"  after they left: {descriptors(pid)} descriptors (at rest {base_fds}) within "
          f"{time.monotonic() - t0:.2f} s, {rss_kib(pid)} KiB RSS")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--demo", default="build/examples/varnek-demo")
    ap.add_argument("--port", type=int, default=18092)
    ap.add_argument("--slots", type=int, default=10000)
    ap.add_argument("--clients", type=int, default=10000)
    args = ap.parse_args()

    raise_fd_limit()

    log = tempfile.TemporaryFile()  # a pipe nobody reads would stall the demo
    started = time.monotonic()
    demo = subprocess.Popen([args.demo, "--port", str(args.port), "--slots", str(args.slots)],
                            stdout=subprocess.DEVNULL, stderr=log)
    try:
        if not wait_for(lambda: get_status(args.port, 0.5) != "", 120, 0.05):
            print("demo did not serve", file=sys.stderr)
            return 1
        pid = demo.pid
        print(f"demo --slots {args.slots} serving after {time.monotonic() - started:.2f} s")
        time.sleep(2)  # the probe's slot is free again (1 s pause before its close)
        base_fds, idle = descriptors(pid), rss_kib(pid)
        print(f"at rest: {base_fds} descriptors, {idle} KiB RSS")

        t0 = time.monotonic()
        held = open_held(args.port, args.clients)
        wait_for(lambda: descriptors(pid) >= base_fds + len(held), 60, 0.2)
        time.sleep(1)
        held_fds, held_rss = descriptors(pid), rss_kib(pid)
        print(f"{len(held)} held connections in {time.monotonic() - t0:.2f} s: {held_fds} descriptors, "
              f"{held_rss} KiB RSS, {(held_rss - idle) * 1024 / max(len(held), 1):.0f} bytes each")

        report_burst("burst on the held connections", pid, lambda: burst(args.port, len(held), held))
        leave_and_count(pid, base_fds)
        report_burst("burst of fresh connections, each sending once connected", pid,
                     lambda: burst(args.port, args.clients))
        leave_and_count(pid, base_fds)
        print(f"a GET now gets {get_status(args.port, 5.0)!r}")
        return 0
    finally:
        if demo.poll() is None:
            demo.terminate()
        try:
            demo.wait(timeout=60)
        except subprocess.TimeoutExpired:
            demo.kill()
            demo.wait()


if __name__ == "__main__":
    sys.exit(main())
