#!/usr/bin/env bash
# Fails when a program has lost its hardening: each must be position
# independent, with read-only relocations bound at start, the stack
# protector, and (in optimised builds) the fortified libc calls.
#   hardening_check.sh FORTIFIED(0|1) PROGRAM...
set -euo pipefail
fortified=$1
shift

failed=0
for program in "$@"; do
  headers=$(readelf -W --file-header --program-headers --dynamic "$program")
  symbols=$(readelf -W --dyn-syms "$program")
  missing=()
  grep -q -E '^ *Type: *DYN' <<< "$headers" || missing+=("position independent")
  grep -q -E '^ *GNU_RELRO ' <<< "$headers" || missing+=("read-only relocations")
  grep -q -E '\(FLAGS(_1)?\).*[ _]NOW( |$)' <<< "$headers" || missing+=("immediate binding")
  grep -q -E ' __stack_chk_fail(@|$)' <<< "$symbols" || missing+=("stack protector")
  if [ "$fortified" = 1 ]; then
    grep -q -E ' __[a-z_]+_chk(@|$)' <<< "$symbols" || missing+=("fortified calls")
  fi
  if [ ${#missing[@]} -eq 0 ]; then
    echo "hardened: $program"
  else
    echo "NOT hardened: $program (missing: $(IFS=,; echo "${missing[*]}" | sed 's/,/, /g'))"
    failed=1
  fi
done
exit $failed
