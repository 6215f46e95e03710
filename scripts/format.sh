#!/usr/bin/env bash
# Formats the tracked C++ sources with .clang-format.
#   scripts/format.sh           rewrites the files in place
#   scripts/format.sh --check   changes nothing; lists the files that are not
#                               formatted and exits 1 if there are any
# CLANG_FORMAT names another formatter (default: clang-format).
set -euo pipefail
cd "$(dirname "$0")/.."

format=${CLANG_FORMAT:-clang-format}
if ! command -v "$format" > /dev/null; then
  echo "format.sh: $format not found (Debian: clang-format)" >&2
  exit 2
fi

mode=fix
case "${1:-}" in
  "") ;;
  --check) mode=check ;;
  *) echo "usage: scripts/format.sh [--check]" >&2; exit 2 ;;
esac

mapfile -d '' files < <(git ls-files -z -- '*.cpp' '*.h')
[ ${#files[@]} -ne 0 ] || exit 0

if [ "$mode" = fix ]; then
  printf '%s\0' "${files[@]}" | xargs -0 -n 50 "$format" -i --style=file
  exit 0
fi

unformatted=0
for file in "${files[@]}"; do
  if ! "$format" --style=file "$file" | cmp -s - "$file"; then
    echo "not formatted: $file"
    unformatted=1
  fi
done
exit $unformatted
