#!/usr/bin/env python3
"""Load figures for the demo host on 127.0.0.1.

Starts varnek-demo (its reports read away and dropped), then measures:
  * the latency of a GET, 50 requests one after another (median and p99), both
    to the complete answer (Content-Length satisfied) and to the server's close;
  * 100 GETs at once against --slots 100, and 1,000 against --slots 1000: how
    many got a whole answer and the largest latency to it;
  * the server's CPU time per GET (utime + stime, /proc/<pid>/stat) over 1,000
    GETs, 20 at a time, and its CPU seconds while idle for 30 s;
  * the growth of its resident set per open connection while 1,000 are held;
  * 20 GETs at once in one-stack mode, for comparison;
  * the loop's nesting and strand counters, printed by the demo at exit.

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


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def raise_fd_limit():
    import resource
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def stop(proc, seconds=30.0):
    """Ends a server as its service manager would: SIGTERM, then a kill if it
    has not gone within `seconds`."""
    proc.send_signal(signal.SIGTERM)
    try:
        proc.wait(seconds)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait(5)


class Demo:
    """The demo host on a port. Its reports (stderr) are read away and dropped
    as they come, all but the counters line it prints at exit."""

    def __init__(self, binary, port, slots, extra=()):
        self.port = port
        self.proc = subprocess.Popen([binary, "--port", str(port), "--slots", str(slots), *extra],
                                     stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                     preexec_fn=raise_fd_limit)
        self.out = []
        self.reader = threading.Thread(target=self._drain, daemon=True)
        self.reader.start()
        if not wait_listening(port):
            self.stop()
            raise RuntimeError("the demo did not start listening")
        time.sleep(1.5)  # let the probe connection's slot close

    def _drain(self):
        for line in self.proc.stderr:
            if b"MaxPumpDepth" in line:
                self.out.append(line)

    def stop(self):
        stop(self.proc, 60)
        self.reader.join(5)
        counters = [l.decode(errors="replace").strip() for l in self.out if b"MaxPumpDepth" in l]
        return counters[-1] if counters else "counters not reported"


def batches(port, total, at_once):
    """`total` GETs, `at_once` at a time; the number of whole answers."""
    whole = 0
    for _ in range(total // at_once):
        answered, _ = concurrent(port, at_once)
        whole += len(answered)
    return whole


def hold(port, count, seconds=60.0):
    """Opens `count` connections that send nothing; returns the sockets."""
    held = []
    deadline = time.monotonic() + seconds
    for _ in range(count):
        if time.monotonic() > deadline:
            break
        try:
            held.append(socket.create_connection(("127.0.0.1", port), timeout=10))
        except OSError:
            break
    return held


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--demo", default=os.path.join(here, "..", "build", "examples", "varnek-demo"))
    ap.add_argument("--port", type=int, default=18080)
    ap.add_argument("--requests", type=int, default=50)
    ap.add_argument("--idle", type=float, default=30.0)
    args = ap.parse_args()
    raise_fd_limit()  # 1,000 clients need more than 1,024 descriptors here too
    port = args.port

    demo = Demo(args.demo, port, 100)
    try:
        whole, closed = sequential(port, args.requests)
        print(f"sequential GET x{args.requests}: {len(whole)} whole answers")
        if whole:
            print(f"  to whole answer: median {statistics.median(whole)*1000:.1f} ms, "
                  f"p99 {percentile(whole, 99)*1000:.1f} ms")
        if closed:
            print(f"  to server close: median {statistics.median(closed)*1000:.1f} ms, "
                  f"p99 {percentile(closed, 99)*1000:.1f} ms")
        time.sleep(2.0)
        answered, _ = concurrent(port, 100)
        print(f"100 GETs at once, --slots 100: {len(answered)} whole answers, largest latency "
              f"{max(answered) if answered else float('nan'):.2f} s")
        time.sleep(2.0)
        before = cpu_seconds(demo.proc.pid)
        done = batches(port, 1000, 20)
        spent = cpu_seconds(demo.proc.pid) - before
        print(f"server CPU per GET (1,000 GETs, 20 at a time, {done} whole): {spent / 1000 * 1000:.3f} ms")
        time.sleep(2.0)
        before = cpu_seconds(demo.proc.pid)
        time.sleep(args.idle)
        print(f"idle CPU over {args.idle:.0f} s: {cpu_seconds(demo.proc.pid) - before:.2f} s")
    finally:
        print("  demo at exit: " + demo.stop())

    port += 1
    demo = Demo(args.demo, port, 1000)
    try:
        # Held first, on a fresh process, so no earlier burst has grown it.
        before = rss_kib(demo.proc.pid)
        held = hold(port, 1000)
        time.sleep(1.0)
        grown = rss_kib(demo.proc.pid) - before
        print(f"RSS growth per open connection ({len(held)} held): "
              f"{grown / max(len(held), 1):.1f} KiB")
        for s in held:
            s.close()
        time.sleep(3.0)
        answered, _ = concurrent(port, 1000)
        print(f"1,000 GETs at once, --slots 1000: {len(answered)} whole answers, largest latency "
              f"{max(answered) if answered else float('nan'):.2f} s")
    finally:
        print("  demo at exit: " + demo.stop())

    port += 1
    demo = Demo(args.demo, port, 100, ["--one-stack"])
    try:
        answered, _ = concurrent(port, 20)
        print(f"one-stack mode, 20 GETs at once: {len(answered)} whole answers, largest latency "
              f"{max(answered) if answered else float('nan'):.2f} s")
    finally:
        print("  demo at exit: " + demo.stop())
    return 0


if __name__ == "__main__":
    sys.exit(main())
