#!/usr/bin/env python3
"""Base64 and URL decoding speed: our routines against Python's own.

Runs text_bench for the 1 MB decode cases, times Python's base64 and
urllib.parse on the same data (built by the same formulas), and prints the
throughputs and their ratios.

    python3 bench/compare_codecs.py build-text/bench/text_bench
"""
import base64
import json
import subprocess
import sys
import time
import timeit
import urllib.parse

SIZE = 1 << 20


def sample_bytes(n):
    return bytes((i * 131 + 7) & 255 for i in range(n))


def sample_url_encoded(n):
    hexd = "0123456789ABCDEF"
    out = []
    length = 0
    i = 0
    while length < n:
        b = 16 + (i * 131 + 7) % 240
        if chr(b).isascii() and chr(b).isalnum():
            piece = chr(b)
        elif b == 32:
            piece = "+"
        else:
            piece = "%" + hexd[b // 16] + hexd[b % 16]
        out.append(piece)
        length += len(piece)
        i += 1
    return "".join(out)


def python_rate(fn, size, number):
    # CPU time, as Google Benchmark's rates use, so a loaded machine skews
    # neither side.
    seconds = min(timeit.repeat(fn, number=number, repeat=5, timer=time.process_time)) / number
    return size / seconds


def ours(bench):
    out = subprocess.run(
        [bench, "--benchmark_filter=BM_(Base64|URL)_Decode/%d$" % SIZE,
         "--benchmark_format=json", "--benchmark_min_time=0.5"],
        check=True, capture_output=True, text=True).stdout
    rates = {}
    for b in json.loads(out)["benchmarks"]:
        rates[b["name"].split("/")[0]] = b["bytes_per_second"]
    return rates


def main():
    bench = sys.argv[1] if len(sys.argv) > 1 else "build-text/bench/text_bench"
    encoded64 = base64.b64encode(sample_bytes(SIZE // 4 * 3))
    form = sample_url_encoded(SIZE)
    py = {
        "BM_Base64_Decode": python_rate(lambda: base64.b64decode(encoded64), len(encoded64), 20),
        "BM_URL_Decode": python_rate(
            lambda: urllib.parse.unquote_to_bytes(form.replace("+", " ")), len(form), 5),
    }
    mine = ours(bench)
    print("%-18s %14s %14s %8s" % ("1 MB input", "ours MB/s", "Python MB/s", "ratio"))
    for name in ("BM_Base64_Decode", "BM_URL_Decode"):
        o, p = mine[name] / 1e6, py[name] / 1e6
        print("%-18s %14.1f %14.1f %8.2f" % (name[3:], o, p, o / p))


if __name__ == "__main__":
    main()
