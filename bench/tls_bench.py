#!/usr/bin/env python3
"""TLS figures for the demo host beside nginx on 127.0.0.1, same certificate.

For an ECDSA P-256 and an RSA 2048 certificate made now, starts varnek-demo
--tls (one process, one thread) and nginx (one worker, `return 200`) and
measures for each:
  * full TLS handshakes per second: WORKERS clients connect, finish the
    handshake and close, for SECONDS;
  * the server's CPU per handshake and per HTTPS GET (a full handshake, the
    GET, the whole answer): utime + stime of its processes from /proc.
The clients run on the same 2 cores, so the rates are a floor; the CPU per
operation is the server's own. A varnek GET waits the server's 0.5 s settle,
so its rate says little; its CPU does. Every wait has a time limit. Usage:
  bench/tls_bench.py [--demo build/examples/varnek-demo] [--seconds 10] [--workers 8]
"""

import argparse
import os
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time

TICKS = os.sysconf("SC_CLK_TCK")


def cpu_seconds(pids):
    total = 0
    for pid in pids:
        with open(f"/proc/{pid}/stat") as f:
            fields = f.read().rsplit(")", 1)[1].split()
        total += int(fields[11]) + int(fields[12])
    return total / TICKS


def children(pid):
    try:
        with open(f"/proc/{pid}/task/{pid}/children") as f:
            return [int(p) for p in f.read().split()]
    except OSError:
        return []


def wait_for_port(port, seconds=10):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return True
        except OSError:
            time.sleep(0.1)
    return False


def whole_answer(s):
    """Sends a GET and reads its answer to the end its Content-Length gives."""
    s.sendall(b"GET /echo HTTP/1.0\r\nHost: localhost\r\n\r\n")
    data = b""
    while chunk := s.recv(65536):
        data += chunk
        head, sep, body = data.partition(b"\r\n\r\n")
        if sep:
            for line in head.split(b"\r\n"):
                name, _, value = line.partition(b":")
                if name.strip().lower() == b"content-length" and len(body) >= int(value):
                    return data.startswith(b"HTTP/1.")
    return False


def run_clients(port, ca, seconds, workers, get):
    """Handshakes (and GETs) from `workers` threads for `seconds`; count done, failures."""
    context = ssl.create_default_context(cafile=ca)
    context.options |= ssl.OP_NO_TICKET  # every connection a full handshake
    done, failed = [0], {}
    lock = threading.Lock()
    end = time.monotonic() + seconds

    def worker():
        while time.monotonic() < end:
            try:
                with context.wrap_socket(socket.create_connection(("127.0.0.1", port), timeout=10),
                                         server_hostname="localhost") as s:
                    if get and not whole_answer(s):
                        raise OSError("no whole answer")
                with lock:
                    done[0] += 1
            except OSError as e:
                with lock:
                    failed[type(e).__name__] = failed.get(type(e).__name__, 0) + 1

    threads = [threading.Thread(target=worker) for _ in range(workers)]
    for t in threads:
        t.start()
    for t in threads:
        t.join(seconds + 30)
    return done[0], failed


def measure(name, pids, port, ca, seconds, workers):
    for get in (False, True):
        before = cpu_seconds(pids)
        started = time.monotonic()
        done, failed = run_clients(port, ca, seconds, workers, get)
        elapsed = time.monotonic() - started
        cpu = cpu_seconds(pids) - before
        what = "GET" if get else "handshake"
        per = f"{1000 * cpu / done:.2f} ms CPU per {what}" if done else "none done"
        print(f"  {name:6} {what:9}: {done / elapsed:7.1f}/s, {per}, {sum(failed.values())} failed {failed or ''}", flush=True)


def nginx_conf(work, port, key_type):
    return f"""worker_processes 1;
pid {work}/nginx-{key_type}.pid;
error_log {work}/nginx-error.log warn;
events {{ worker_connections 4096; }}
http {{
    access_log off;
    client_body_temp_path {work}/body; proxy_temp_path {work}/proxy;
    fastcgi_temp_path {work}/fastcgi; uwsgi_temp_path {work}/uwsgi; scgi_temp_path {work}/scgi;
    server {{
        listen 127.0.0.1:{port} ssl;
        ssl_certificate {work}/{key_type}/tls.pem;
        ssl_certificate_key {work}/{key_type}/tls.key;
        ssl_protocols TLSv1.2 TLSv1.3;
        location / {{ return 200 "URL /echo"; }}
    }}
}}
"""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--demo", default="build/examples/varnek-demo")
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--workers", type=int, default=8)
    parser.add_argument("--port", type=int, default=24443)
    args = parser.parse_args()
    work = tempfile.mkdtemp(prefix="varnek-tls-bench.")
    keys = {"ecdsa": ["ec", "-pkeyopt", "ec_paramgen_curve:P-256"], "rsa": ["rsa:2048"]}
    for key_type, newkey in keys.items():
        folder = f"{work}/{key_type}"
        os.makedirs(folder)
        subprocess.run(["openssl", "req", "-x509", "-newkey", *newkey, "-nodes", "-days", "1",
                        "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                        "-keyout", f"{folder}/tls.key", "-out", f"{folder}/tls.pem"],
                       check=True, capture_output=True, timeout=60)
        os.chmod(f"{folder}/tls.key", 0o600)
        print(f"{key_type}:", flush=True)
        env = dict(os.environ, VARNEK_CERT_DIR=folder)
        demo = subprocess.Popen([args.demo, "--port", str(args.port), "--slots", "2000", "--tls", "tls"],
                                env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            if not wait_for_port(args.port):
                sys.exit("varnek-demo did not start")
            measure("varnek", [demo.pid], args.port, f"{folder}/tls.pem", args.seconds, args.workers)
        finally:
            demo.terminate()
            demo.wait(20)
        conf = f"{work}/nginx-{key_type}.conf"
        with open(conf, "w") as f:
            f.write(nginx_conf(work, args.port + 1, key_type))
        nginx = subprocess.Popen(["nginx", "-p", work, "-c", conf, "-g", "daemon off;"],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            if not wait_for_port(args.port + 1):
                sys.exit("nginx did not start")
            measure("nginx", [nginx.pid] + children(nginx.pid), args.port + 1, f"{folder}/tls.pem",
                    args.seconds, args.workers)
        finally:
            nginx.terminate()
            nginx.wait(20)
    subprocess.run(["rm", "-rf", work], check=False)


if __name__ == "__main__":
    main()
