#!/usr/bin/env bash
# Installs what is missing, builds the demo host and starts it on port 8080.
# Any arguments go to varnek-demo (--port N, --slots N, --user NAME:PASS, ...).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build -j "$(nproc)" --target varnek-demo
exec ./build/examples/varnek-demo "$@"
