#!/usr/bin/env bash
# Installs what is missing, builds Varnek and runs the whole test suite.
#   scripts/test.sh              normal build in build/
#   scripts/test.sh --sanitize   ASan+UBSan build in build-asan/
# With CI=true warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

dir=build
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [ "${1:-}" = "--sanitize" ]; then
  dir=build-asan
  flags=(-DCMAKE_BUILD_TYPE=Debug -DVARNEK_SANITIZE=ON -DVARNEK_BENCH=OFF)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
fi

if [ "${CI:-}" = "true" ]; then
  flags+=(-DVARNEK_WERROR=ON)
fi

cmake -S . -B "$dir" -G Ninja "${flags[@]}" > /dev/null
cmake --build "$dir" -j "$(nproc)"
if ! ctest --test-dir "$dir" --output-on-failure -j "$(nproc)"; then
  # The failures again at the end of the log, alone, so they are easy to find;
  # the run stays failed whatever the second attempt says.
  echo "=== the failed tests once more, one at a time, with their output ==="
  ctest --test-dir "$dir" --rerun-failed --output-on-failure || true
  exit 1
fi
