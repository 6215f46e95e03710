#!/usr/bin/env bash
# Rewrites the library's own includes to the varnek/ prefix in every tracked
# C/C++ file: #include "runtime/x.h" becomes #include "varnek/runtime/x.h",
# likewise for platform/, adds/ and server/. Includes of tests/, examples/,
# bench/ and fuzz/ stay as they are. Running it again changes nothing.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files -- '*.h' '*.hpp' '*.hh' '*.c' '*.cc' '*.cpp' '*.cxx')
changed=0
for f in "${files[@]}"; do
  [ -f "$f" ] || continue
  if grep -qE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"(runtime|platform|adds|server)/' "$f"; then
    sed -i -E 's@^([[:space:]]*#[[:space:]]*include[[:space:]]*)"(runtime|platform|adds|server)/@\1"varnek/\2/@' "$f"
    changed=$((changed + 1))
  fi
done
echo "prefix_includes: ${changed} of ${#files[@]} files rewritten"
