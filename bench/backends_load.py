#!/usr/bin/env python3
"""Varnek on each loop backend, side by side, on 127.0.0.1.

Runs the same page on:
  * Varnek's own loop:      varnek-poll-host --own-loop
  * a host's poll loop:     varnek-poll-host (the external-loop backend)
  * a GTK window (GLib):    varnek-gtk-host, under Xvfb, with its list of
                            reports and its count shown, and --quiet
and measures for each the server's CPU time per GET (utime + stime over
1,000 GETs, 20 at a time) and the largest latency to the whole answer of
100 simultaneous GETs; then the GTK host's CPU over 30 s idle, beside a
bare GTK window's (the same program without --port: no server at all).

Usage: bench/backends_load.py [--build build] [--port 18180] [--rounds 3]
"""

import argparse
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from http_load import concurrent, cpu_seconds, wait_listening, batches  # noqa: E402


def start(cmd, port):
    proc = subprocess.Popen(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if port and not wait_listening(port, 30):
        proc.kill()
        raise RuntimeError("not listening: " + " ".join(cmd))
    time.sleep(1.6)  # let the probe connection's slot close
    return proc


def stop(proc):
    proc.terminate()
    try:
        proc.wait(30)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait(5)


def measure(cmd, port):
    proc = start(cmd, port)
    try:
        before = cpu_seconds(proc.pid)
        whole = batches(port, 1000, 20)
        per_get_ms = (cpu_seconds(proc.pid) - before) / 1000 * 1000
        answered, _ = concurrent(port, 100)
        return whole, per_get_ms, len(answered), max(answered) if answered else float("nan")
    finally:
        stop(proc)


def idle_cpu(cmd, seconds):
    proc = start(cmd, None)
    try:
        time.sleep(2)
        before = cpu_seconds(proc.pid)
        time.sleep(seconds)
        return cpu_seconds(proc.pid) - before
    finally:
        stop(proc)


def start_xvfb():
    """An X server of the bench's own; DISPLAY is set for the hosts."""
    if not shutil.which("Xvfb"):
        return None
    r, w = os.pipe()
    proc = subprocess.Popen(["Xvfb", "-displayfd", str(w), "-screen", "0", "800x600x24", "-nolisten", "tcp"],
                            pass_fds=(w,), stderr=subprocess.DEVNULL)
    os.close(w)
    with os.fdopen(r) as f:
        display = f.readline().strip()
    if not display:
        proc.kill()
        return None
    os.environ["DISPLAY"] = ":" + display
    return proc


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build", default=os.path.join(here, "..", "build"))
    ap.add_argument("--port", type=int, default=18180)
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--idle", type=float, default=30.0)
    ap.add_argument("--only", help="run only the backends whose name holds this text")
    args = ap.parse_args()
    poll_host = os.path.join(args.build, "examples", "varnek-poll-host")
    gtk_host = os.path.join(args.build, "examples", "varnek-gtk-host")
    xvfb = start_xvfb()
    os.environ["NO_AT_BRIDGE"] = "1"
    port = args.port
    setups = [("Varnek's own loop (epoll)", [poll_host, "--own-loop"]),
              ("host poll loop (external)", [poll_host])]
    if xvfb:
        setups.append(("GTK window (GLib), list and count shown", [gtk_host]))
        setups.append(("GTK window (GLib), --quiet", [gtk_host, "--quiet"]))
    print("| Backend | whole answers of 1,000 | CPU per GET (ms), each round | 100 at once: answered / largest latency (s), each round |")
    print("|---|---|---|---|")
    for name, cmd in setups:
        if args.only and args.only not in name:
            continue
        cpu, lat, whole_all, ans = [], [], [], []
        for _ in range(args.rounds):
            port += 1
            whole, per_get, answered, largest = measure(cmd + ["--port", str(port)], port)
            whole_all.append(whole)
            cpu.append(per_get)
            ans.append(answered)
            lat.append(largest)
        print(f"| {name} | {', '.join(map(str, whole_all))} | {', '.join(f'{c:.3f}' for c in cpu)} | "
              f"{', '.join(f'{a} / {l:.2f}' for a, l in zip(ans, lat))} |")
    if xvfb:
        served = idle_cpu([gtk_host, "--port", str(port + 1)], args.idle)
        bare = idle_cpu([gtk_host], args.idle)
        print(f"\nGTK host idle {args.idle:.0f} s: {served:.2f} s CPU serving, {bare:.2f} s as a bare window")
        xvfb.terminate()
        xvfb.wait(10)


if __name__ == "__main__":
    main()
