#!/usr/bin/env python3
"""A crowd of silent connections against the demo host, on 127.0.0.1.

Starts varnek-demo with --slots N, opens C connections that send nothing, and
reports: how many the demo closed at once (all beyond the slots), the time
until it had, its descriptors and resident memory before, during and after,
whether it stayed up, and how long after the crowd leaves a GET is answered
again. Reported, never asserted. Every wait has a time limit.

Usage:
  bench/silent_crowd.py [--demo build/examples/varnek-demo] [--port 18090]
                        [--slots 100] [--crowd 5000]
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

GET = b"GET / HTTP/1.0\r\n\r\n"


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return -1


def get_status(port, timeout=3.0):
    """The status line of one GET, or "" when there is no answer in time."""
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=timeout) as s:
            s.sendall(GET)
            data = b""
            deadline = time.monotonic() + timeout
            while b"\r\n" not in data and time.monotonic() < deadline:
                chunk = s.recv(4096)
                if not chunk:
                    break
                data += chunk
            return data.split(b"\r\n", 1)[0].decode("latin-1")
    except OSError:
        return ""


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--demo", default="build/examples/varnek-demo")
    ap.add_argument("--port", type=int, default=18090)
    ap.add_argument("--slots", type=int, default=100)
    ap.add_argument("--crowd", type=int, default=5000)
    args = ap.parse_args()

    raise_fd_limit()

    # The demo's reports go to a file: a pipe nobody reads would stall it.
    log = tempfile.TemporaryFile()
    demo = subprocess.Popen([args.demo, "--port", str(args.port), "--slots", str(args.slots)],
                            stdout=subprocess.DEVNULL, stderr=log)
    try:
        for _ in range(100):
            if get_status(args.port, 0.5):
                break
            time.sleep(0.05)
        time.sleep(2)  # the probe's slot is free again (1 s pause before its close)
        pid = demo.pid
        print(f"demo --slots {args.slots}: {descriptors(pid)} descriptors, {rss_kib(pid)} KiB RSS at rest")

        crowd = []
        start = time.monotonic()
        for _ in range(args.crowd):
            s = socket.socket()
            s.settimeout(10)
            try:
                s.connect(("127.0.0.1", args.port))
            except OSError as e:
                s.close()
                print(f"connection {len(crowd) + 1} failed: {e}")
                break
            s.setblocking(False)
            crowd.append(s)
        print(f"{len(crowd)} silent connections opened in {time.monotonic() - start:.2f} s")

        sel = selectors.DefaultSelector()
        for s in crowd:
            sel.register(s, selectors.EVENT_READ)
        closed = set()
        expected = max(len(crowd) - args.slots, 0)
        deadline = time.monotonic() + 120
        while len(closed) < expected and time.monotonic() < deadline and demo.poll() is None:
            for key, _ in sel.select(timeout=1.0):
                s = key.fileobj
                try:
                    data = s.recv(4096)
                except OSError:
                    data = b""
                if not data:
                    closed.add(s)
                    sel.unregister(s)
        took = time.monotonic() - start
        alive = demo.poll() is None
        print(f"closed by the demo: {len(closed)} of {len(crowd)} (expected {expected}) "
              f"after {took:.2f} s; demo {'up' if alive else 'GONE'}")
        if alive:
            print(f"while the crowd holds the slots: {descriptors(pid)} descriptors, "
                  f"{rss_kib(pid)} KiB RSS; a GET now gets {get_status(args.port, 2.0)!r}")

        for s in crowd:
            s.close()
        left_at = time.monotonic()
        status = ""
        while time.monotonic() - left_at < 30 and demo.poll() is None:
            status = get_status(args.port, 1.0)
            if status.startswith("HTTP/1.0 200"):
                break
            time.sleep(0.05)
        print(f"after the crowd left: {status!r} within {time.monotonic() - left_at:.2f} s; "
              f"{descriptors(pid) if demo.poll() is None else -1} descriptors, "
              f"{rss_kib(pid) if demo.poll() is None else -1} KiB RSS")
    finally:
        if demo.poll() is None:
            demo.terminate()
        try:
            demo.wait(timeout=30)
        except subprocess.TimeoutExpired:
            demo.kill()
            demo.wait()
        log.seek(0)
        tail = [l for l in log.read().decode("utf-8", "replace").splitlines() if "MaxPumpDepth" in l]
        print(f"demo exit {demo.returncode}; {tail[-1] if tail else 'no MaxPumpDepth line'}")


if __name__ == "__main__":
    sys.exit(main())
