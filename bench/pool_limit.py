#!/usr/bin/env python3
"""The pool's limit: a crowd of clients in a loop against a full pool.

Every request holds its slot 1.5 s (the 0.5 s settle before it is read, the
1 s pause before the close), so a pool of N slots serves at most N / 1.5
answers a second. This starts the minimal host (bench/peers/varnek_peer.cpp,
no log) with --slots N and runs C clients (asyncio, spread over P
processes) for D seconds; each client connects, sends one GET, reads the whole answer, waits
for the server's close (its slot is free only then), and starts again.
Reported, never asserted:
  * answers a second, beside the pool's limit N / 1.5;
  * latency to the whole answer (from the connect): median, p99, largest;
  * connections that ended without a whole answer (no free slot, errors);
  * the server's CPU: ms per answer and its share of one core, which tells
    where the CPU ceiling lies; and the client's own share of a core.
Every wait has a time limit; both processes raise their open-file limit.
On a machine shared with other work, --nice -10 (root) runs both at a higher
priority, so the figures are the server's rather than the machine's queue.

Usage: bench/pool_limit.py [--build build] [--port 19200] [--slots 1000]
                           [--clients 1000] [--seconds 60] [--nice 0]
                           [--processes 2]
"""

import argparse
import asyncio
import multiprocessing
import os
import platform
import resource
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import http_load as hl  # noqa: E402  (raise_fd_limit, wait_listening, percentile)
from peer_load import cpu_ns  # noqa: E402

REQUEST = b"GET / HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n"
CYCLE_TIMEOUT = 10.0  # a request's whole life, answer and close: 1.5 s when all goes well


async def one_request(port):
    """Latency to the whole answer, or None when the connection ended without one."""
    start = time.monotonic()
    reader, writer = await asyncio.open_connection("127.0.0.1", port)
    try:
        writer.write(REQUEST)
        data = b""
        answered = None
        while True:
            chunk = await reader.read(65536)
            if not chunk:
                return answered  # the server's close: the slot is free again
            data += chunk
            if answered is None and hl.answer_complete(data):
                answered = time.monotonic() - start
    finally:
        writer.close()


async def client(port, stop_at, latencies, failures, delay):
    await asyncio.sleep(delay)  # the first connects spread over one slot's 1.5 s
    while time.monotonic() < stop_at:
        try:
            latency = await asyncio.wait_for(one_request(port), CYCLE_TIMEOUT)
        except (OSError, asyncio.TimeoutError):
            latency = None
        if latency is None:
            failures[0] += 1
            await asyncio.sleep(0.05)  # refused or cut: try again shortly, not in a spin
        elif time.monotonic() < stop_at:
            latencies.append(latency)


async def crowd(port, clients, seconds):
    latencies, failures = [], [0]
    stop_at = time.monotonic() + seconds
    tasks = [asyncio.create_task(client(port, stop_at, latencies, failures, 1.5 * k / clients))
             for k in range(clients)]
    await asyncio.wait(tasks, timeout=seconds + 2 * CYCLE_TIMEOUT)
    for t in tasks:
        t.cancel()
    return latencies, failures[0]


def crowd_process(job):
    """One client process: its share of the clients; its latencies, failures and CPU seconds."""
    port, clients, seconds = job
    before = resource.getrusage(resource.RUSAGE_SELF)
    latencies, failures = asyncio.run(crowd(port, clients, seconds))
    after = resource.getrusage(resource.RUSAGE_SELF)
    return latencies, failures, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build", default=os.path.join(here, "..", "build"))
    ap.add_argument("--port", type=int, default=19200)
    ap.add_argument("--slots", type=int, default=1000)
    ap.add_argument("--clients", type=int, default=None, help="default: as many as slots")
    ap.add_argument("--seconds", type=float, default=60.0)
    ap.add_argument("--processes", type=int, default=2, help="client processes")
    ap.add_argument("--nice", type=int, default=0, help="priority of server and client (negative: root)")
    args = ap.parse_args()
    clients = args.clients or args.slots
    hl.raise_fd_limit()
    if args.nice:
        os.setpriority(os.PRIO_PROCESS, 0, args.nice)  # the server started below inherits it
    binary = os.path.join(args.build, "bench", "varnek_peer")
    server = subprocess.Popen([binary, str(args.port), str(args.slots)], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, preexec_fn=hl.raise_fd_limit)
    try:
        if not hl.wait_listening(args.port):
            print("the server did not start listening")
            return 1
        time.sleep(1.5)  # the probe connection's slot closes
        cpu_before = cpu_ns(server.pid)
        wall = time.monotonic()
        shares = [clients // args.processes + (k < clients % args.processes) for k in range(args.processes)]
        with multiprocessing.get_context("fork").Pool(args.processes) as pool:
            results = pool.map(crowd_process, [(args.port, n, args.seconds) for n in shares])
        wall = time.monotonic() - wall
        server_cpu = (cpu_ns(server.pid) - cpu_before) / 1e9
    finally:
        hl.stop(server)
    latencies = [x for r in results for x in r[0]]
    failures = sum(r[1] for r in results)
    own_cpu = sum(r[2] for r in results)
    answers = len(latencies)
    print(f"{time.strftime('%Y-%m-%d %H:%M UTC', time.gmtime())}, {platform.node()}, "
          f"{os.cpu_count()} cores, load average {os.getloadavg()[0]:.1f}")
    print(f"--slots {args.slots}, {clients} clients for {args.seconds:.0f} s, nice {args.nice} "
          f"(pool's limit {args.slots / 1.5:.0f} answers/s)")
    print(f"answers/s: {answers / args.seconds:.1f} ({answers} answers, {failures} without one)")
    if latencies:
        print(f"latency to the whole answer: median {hl.percentile(latencies, 50) * 1000:.1f} ms, "
              f"p99 {hl.percentile(latencies, 99) * 1000:.1f} ms, largest {max(latencies) * 1000:.1f} ms")
        print(f"server CPU: {server_cpu * 1000 / answers:.3f} ms per answer, "
              f"{100 * server_cpu / wall:.0f} % of one core; the clients {100 * own_cpu / wall:.0f} %")
    return 0


if __name__ == "__main__":
    sys.exit(main())
