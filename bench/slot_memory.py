#!/usr/bin/env python3
"""Memory the demo host gives back after large requests, on 127.0.0.1.

Starts varnek-demo with --slots N, warms it up with small GETs, reads its
resident memory (VmRSS), sends C concurrent POSTs of SIZE bytes to /echo and
reads every answer, lets it idle, and reads VmRSS again. Reported, never
asserted. Every wait has a time limit.

What "kept" means here: the idle server's VmRSS after the load minus before,
with malloc_trim out of the picture, that is: nothing calls it (not this
script, not the library, not the demo), so the figure is what the allocator
gives back by itself when blocks are freed. The demo runs as shipped, with
the one allocator setting it makes as a host (M_MMAP_THRESHOLD at 128 KiB,
see the README). A request the server read in two parts (its client paused
0.5 s mid-send on a loaded machine) leaves the second part in its slot's
ProcesoExtra, which a host may still read by slot number until the slot
takes its next connection: that is kept on purpose, so the figure counts
only when every answer is longer than its request (printed below).

Beside VmRSS it prints the demo's heap as the allocator counts it (gdb reads
mallinfo2, when gdb is there): the bytes in use, which is what the server
and the host still hold, and the free bytes the heap keeps. A free block
below one in use stays resident until something in use above it goes, and
glibc's per-size caches keep a few freed blocks of every size in use for
itself, so part of "kept" is the allocator's and not the server's.

Usage:
  bench/slot_memory.py [--demo build/examples/varnek-demo] [--port 18091]
                       [--slots 220] [--clients 200] [--size 1048576]
"""

import argparse
import re
import socket
import subprocess
import sys
import threading
import time

from silent_crowd import rss_kib  # this folder is on the path


def exchange(port, request, timeout=120.0):
    """Sends the request, reads to the end; the byte count of the answer."""
    got = 0
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=timeout) as s:
            s.sendall(request)
            while True:
                chunk = s.recv(1 << 16)
                if not chunk:
                    break
                got += len(chunk)
    except OSError:
        pass
    return got


def heap_figures(pid):
    """(in use, free) bytes of the process's heap by mallinfo2, or None."""
    try:
        out = subprocess.run(["gdb", "-p", str(pid), "-batch", "-ex", "p mallinfo2()"],
                             capture_output=True, text=True, timeout=60).stdout
    except (OSError, subprocess.TimeoutExpired):
        return None
    used = re.search(r"uordblks = (\d+)", out)
    free = re.search(r"fordblks = (\d+)", out)
    return (int(used.group(1)), int(free.group(1))) if used and free else None


def wait_until_serving(port, limit=30.0):
    end = time.time() + limit
    while time.time() < end:
        if exchange(port, b"GET / HTTP/1.0\r\n\r\n", timeout=5.0) > 0:
            return True
        time.sleep(0.2)
    return False


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--demo", default="build/examples/varnek-demo")
    ap.add_argument("--port", type=int, default=18091)
    ap.add_argument("--slots", type=int, default=220)
    ap.add_argument("--clients", type=int, default=200)
    ap.add_argument("--size", type=int, default=1 << 20)
    ap.add_argument("demo_args", nargs="*", help="further flags for the demo (after --)")
    args = ap.parse_args()

    demo = subprocess.Popen([args.demo, "--port", str(args.port), "--slots", str(args.slots)]
                            + args.demo_args,
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        if not wait_until_serving(args.port):
            print("demo did not serve", file=sys.stderr)
            return 1
        for _ in range(5):
            exchange(args.port, b"GET /echo HTTP/1.0\r\n\r\n")
        time.sleep(3)
        idle = rss_kib(demo.pid)
        heap_before = heap_figures(demo.pid)

        body = b"a=" + b"x" * (args.size - 2)
        request = (b"POST /echo HTTP/1.0\r\nContent-Length: %d\r\n\r\n" % len(body)) + body
        answers = [0] * args.clients
        peak = [idle]

        def client(k):
            answers[k] = exchange(args.port, request)

        threads = [threading.Thread(target=client, args=(k,)) for k in range(args.clients)]
        for t in threads:
            t.start()
        end = time.time() + 600
        while any(t.is_alive() for t in threads) and time.time() < end:
            peak[0] = max(peak[0], rss_kib(demo.pid))
            time.sleep(0.2)
        for t in threads:
            t.join(timeout=1)
        time.sleep(15)  # every slot's 1 s pause and close is over
        after = rss_kib(demo.pid)
        answered = sum(1 for a in answers if a > args.size)
        print(f"clients {args.clients} x {args.size} bytes, answers longer than their request (a request that paused 0.5 s is read in two): {answered}")
        print(f"VmRSS idle before: {idle} KiB, peak: {peak[0]} KiB, idle after: {after} KiB, "
              f"kept: {after - idle} KiB")
        heap_after = heap_figures(demo.pid)
        if heap_before and heap_after:
            print(f"heap in use: {heap_before[0] // 1024} KiB before, {heap_after[0] // 1024} KiB after; "
                  f"free in the heap: {heap_before[1] // 1024} KiB before, {heap_after[1] // 1024} KiB after")
        if answered < args.clients:
            print(f"note: {args.clients - answered} requests were read in two; their rest stays in "
                  "ProcesoExtra until their slot's next connection, so 'kept' includes it")
        return 0
    finally:
        demo.terminate()
        try:
            demo.wait(timeout=20)
        except subprocess.TimeoutExpired:
            demo.kill()


if __name__ == "__main__":
    sys.exit(main())
