#!/usr/bin/env python3
"""Load figures for the demo host on 127.0.0.1.

Starts varnek-demo, then measures:
  * the latency of a GET, 50 requests one after another (median and p99), both
    to the complete answer (Content-Length satisfied) and to the server's close;
  * the demo's CPU seconds while idle for 30 s (utime + stime, /proc/<pid>/stat);
  * 100 clients at once against --slots 100: how many got a whole answer and
    the largest latency;
  * the deepest nesting of the host loop, from the demo's stderr at exit.

Every network wait has a time limit. Usage:
  bench/http_load.py [--demo build/examples/varnek-demo] [--port 18080]
"""

import argparse
import os
import re
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time

REQUEST = b"GET / HTTP/1.0\r\nHost: 127.0.0.1\r\nUser-Agent: http_load\r\n\r\n"


def fetch(port, timeout=90.0):
    """One GET. Returns (seconds to whole answer or None, seconds to close or None, bytes)."""
    start = time.monotonic()
    deadline = start + timeout
    data = b""
    complete_at = None
    with socket.create_connection(("127.0.0.1", port), timeout=timeout) as s:
        s.sendall(REQUEST)
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                return complete_at, None, data
            s.settimeout(left)
            try:
                chunk = s.recv(65536)
            except socket.timeout:
                return complete_at, None, data
            except ConnectionResetError:
                return complete_at, time.monotonic() - start, data
            if not chunk:
                return complete_at, time.monotonic() - start, data
            data += chunk
            if complete_at is None and answer_complete(data):
                complete_at = time.monotonic() - start


def answer_complete(data):
    head, sep, body = data.partition(b"\r\n\r\n")
    if not sep:
        return False
    m = re.search(rb"(?im)^content-length:\s*(\d+)", head)
    return m is not None and len(body) >= int(m.group(1))


def percentile(values, p):
    ordered = sorted(values)
    k = max(0, min(len(ordered) - 1, int(round(p / 100.0 * len(ordered) + 0.5)) - 1))
    return ordered[k]


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    ticks = os.sysconf("SC_CLK_TCK")
    return (int(fields[11]) + int(fields[12])) / ticks  # utime, stime


def wait_listening(port, seconds=10.0):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=0.5):
                return True
        except OSError:
            time.sleep(0.1)
    return False


def sequential(port, count):
    whole, closed = [], []
    for _ in range(count):
        w, c, _ = fetch(port, timeout=30)
        if w is not None:
            whole.append(w)
        if c is not None:
            closed.append(c)
    return whole, closed


def concurrent(port, clients):
    results = [None] * clients

    def run(i):
        try:
            results[i] = fetch(port, timeout=120)
        except OSError as e:
            results[i] = (None, None, str(e).encode())

    threads = [threading.Thread(target=run, args=(i,)) for i in range(clients)]
    start = time.monotonic()
    for t in threads:
        t.start()
    for t in threads:
        t.join(150)
    wall = time.monotonic() - start
    answered = [r[0] for r in results if r and r[0] is not None]
    return answered, wall


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--demo", default=os.path.join(here, "..", "build", "examples", "varnek-demo"))
    ap.add_argument("--port", type=int, default=18080)
    ap.add_argument("--slots", type=int, default=100)
    ap.add_argument("--requests", type=int, default=50)
    ap.add_argument("--idle", type=float, default=30.0)
    ap.add_argument("--clients", type=int, default=100)
    args = ap.parse_args()

    demo = subprocess.Popen([args.demo, "--port", str(args.port), "--slots", str(args.slots)],
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    stderr_lines = []
    reader = threading.Thread(target=lambda: stderr_lines.extend(demo.stderr), daemon=True)
    reader.start()
    try:
        if not wait_listening(args.port):
            print("the demo did not start listening", file=sys.stderr)
            return 1
        time.sleep(1.5)  # let the probe connection's slot close

        whole, closed = sequential(args.port, args.requests)
        print(f"sequential GET x{args.requests}: {len(whole)} whole answers")
        if whole:
            print(f"  to whole answer: median {statistics.median(whole)*1000:.1f} ms, "
                  f"p99 {percentile(whole, 99)*1000:.1f} ms")
        if closed:
            print(f"  to server close: median {statistics.median(closed)*1000:.1f} ms, "
                  f"p99 {percentile(closed, 99)*1000:.1f} ms")

        time.sleep(2.0)  # last slot closes
        before = cpu_seconds(demo.pid)
        time.sleep(args.idle)
        after = cpu_seconds(demo.pid)
        print(f"idle {args.idle:.0f} s: {after - before:.2f} CPU seconds")

        answered, wall = concurrent(args.port, args.clients)
        print(f"{args.clients} clients at once (--slots {args.slots}): {len(answered)} answered "
              f"in {wall:.1f} s wall")
        if answered:
            print(f"  largest latency {max(answered)*1000:.0f} ms, median {statistics.median(answered)*1000:.0f} ms")
    finally:
        demo.send_signal(signal.SIGTERM)
        try:
            demo.wait(30)
        except subprocess.TimeoutExpired:
            demo.kill()
            demo.wait(5)
        reader.join(5)
    depth = [l.decode(errors="replace").strip() for l in stderr_lines if b"MaxPumpDepth" in l]
    print("deepest host loop nesting: " + (depth[-1].split()[-1] if depth else "not reported"))
    return 0


if __name__ == "__main__":
    sys.exit(main())
