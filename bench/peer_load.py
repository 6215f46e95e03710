#!/usr/bin/env python3
"""Varnek beside the servers users pick, through the same steps in one run.

Each server answers the same 300-byte page on 127.0.0.1 (bench/peers/) and is
measured in turn, on a fresh process:
  * RSS growth per held connection: 1,000 connections that send nothing;
  * server CPU per GET, one GET after another (up to 200 or 30 s) and 20 at
    a time (200 GETs), read from /proc/<pid>/task/*/schedstat (nanoseconds;
    the servers keep their threads, so none is lost);
  * 100 and then 1,000 GETs at once: whole answers and the largest latency.
Varnek runs as the minimal host (bench/peers/varnek_peer.cpp, no log) and as
the demo host with its log on (read away and dropped), both with 1,000 slots.
A peer whose binary was not built is left out. Prints one Markdown table.

Usage: bench/peer_load.py [--build build] [--port 19080]
"""

import argparse
import glob
import os
import platform
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import http_load as hl  # noqa: E402  (fetch, concurrent, hold, rss_kib, ...)

SLOTS = 1000


def cpu_ns(pid):
    """CPU time of every thread of the process, in nanoseconds."""
    total = 0
    for path in glob.glob(f"/proc/{pid}/task/*/schedstat"):
        try:
            with open(path) as f:
                total += int(f.read().split()[0])
        except (OSError, ValueError):
            pass  # a thread that ended meanwhile
    return total


def sequential_for(port, most, seconds):
    """GETs one after another until `most` or `seconds`; how many ran."""
    deadline = time.monotonic() + seconds
    done = 0
    while done < most and time.monotonic() < deadline:
        hl.fetch(port, timeout=30)
        done += 1
    return done


def measure(argv, port):
    proc = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                            preexec_fn=hl.raise_fd_limit)
    row = {}
    try:
        if not hl.wait_listening(port):
            raise RuntimeError(f"{argv[0]} did not start listening")
        time.sleep(1.5)  # the probe connection's slot closes
        pid = proc.pid

        before = hl.rss_kib(pid)
        held = hl.hold(port, 1000)
        time.sleep(1.0)
        row["rss"] = (hl.rss_kib(pid) - before) / max(len(held), 1)
        row["held"] = len(held)
        for s in held:
            s.close()
        time.sleep(3.0)

        start = cpu_ns(pid)
        n = sequential_for(port, 200, 30.0)
        time.sleep(2.0)  # the last close and its pause
        row["seq"] = (cpu_ns(pid) - start) / n / 1e6

        start = cpu_ns(pid)
        whole = hl.batches(port, 200, 20)
        time.sleep(2.0)
        row["twenty"] = (cpu_ns(pid) - start) / 200 / 1e6
        row["twenty_whole"] = whole

        for clients in (100, 1000):
            answered, _ = hl.concurrent(port, clients)
            row[clients] = (len(answered), max(answered) if answered else float("nan"))
            time.sleep(3.0)
    finally:
        hl.stop(proc)
    return row


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build", default=os.path.join(here, "..", "build"))
    ap.add_argument("--port", type=int, default=19080)
    args = ap.parse_args()
    hl.raise_fd_limit()
    bench = os.path.join(args.build, "bench")
    servers = [
        ("libmicrohttpd (epoll, internal thread)", [os.path.join(bench, "microhttpd_peer")]),
        ("cpp-httplib (thread pool)", [os.path.join(bench, "httplib_peer")]),
        ("civetweb (50 worker threads)", [os.path.join(bench, "civetweb_peer")]),
        ("Varnek, minimal host, no log", [os.path.join(bench, "varnek_peer")]),
        ("Varnek, demo host, log on", [os.path.join(args.build, "examples", "varnek-demo")]),
    ]
    print(f"{time.strftime('%Y-%m-%d %H:%M UTC', time.gmtime())}, {platform.node()}, "
          f"{os.cpu_count()} cores, {platform.processor() or platform.machine()}, "
          f"load average at start {os.getloadavg()[0]:.1f}")
    print()
    print("| server | CPU ms per GET, sequential | 20 at a time | 100 at once | 1,000 at once "
          "| RSS KiB per held connection |")
    print("|---|---|---|---|---|---|")
    port = args.port
    for name, argv in servers:
        if not os.access(argv[0], os.X_OK):
            print(f"| {name} | not built | | | | |")
            continue
        port += 1
        if argv[0].endswith("varnek_peer"):
            argv = argv + [str(port), str(SLOTS)]
        elif argv[0].endswith("varnek-demo"):
            argv = argv + ["--port", str(port), "--slots", str(SLOTS)]
        else:
            argv = argv + [str(port)]
        try:
            r = measure(argv, port)
        except (RuntimeError, OSError) as e:
            print(f"| {name} | failed: {e} | | | | |")
            continue
        burst = [f"{r[c][0]}/{c} in {r[c][1]:.2f} s" for c in (100, 1000)]
        print(f"| {name} | {r['seq']:.3f} | {r['twenty']:.3f} | {burst[0]} | {burst[1]} "
              f"| {r['rss']:.1f} ({r['held']} held) |", flush=True)
    print()
    print(f"load average at end {os.getloadavg()[0]:.1f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
