#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one over its corpus.
#   scripts/fuzz.sh            30 seconds per target
#   scripts/fuzz.sh SECONDS    another length
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"

bash scripts/deps.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVARNEK_FUZZ=ON -DVARNEK_TESTS=OFF -DVARNEK_BENCH=OFF > /dev/null
cmake --build build-fuzz -j "$(nproc)"

shopt -s nullglob
for target in build-fuzz/fuzz/*_fuzz; do
  name=$(basename "$target" _fuzz)
  corpus="fuzz/corpus/$name"
  work=$(mktemp -d)
  [ -d "$corpus" ] && cp -r "$corpus/." "$work/"
  echo "== fuzz $name for ${seconds}s"
  "$target" -max_total_time="$seconds" -rss_limit_mb=2048 -print_final_stats=0 "$work" 2>&1 | tail -n 3
  rm -rf "$work"
done
