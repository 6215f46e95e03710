#!/usr/bin/env bash
# Installs Varnek from a build folder into a temporary prefix and proves a
# host can use it: the public headers match the umbrella and the install,
# examples/consumer (copied out of the tree) builds with find_package and
# again with pkg-config, each host answers a page on a loopback port, and a
# host asking for a newer Varnek or missing a dependency is refused by CMake.
#   consumer_test.sh BUILD_DIR SOURCE_DIR CXX_COMPILER
set -euo pipefail
build=$1 source=$2 cxx=$3
here=$(cd "$(dirname "$0")" && pwd)
source "$here/host_check.sh"

work=$(mktemp -d /tmp/varnek-consumer.XXXXXX)
trap 'stop_host; rm -rf "$work"' EXIT
# A time limit or Ctrl-C ends the script through the same clean-up.
trap 'exit 1' INT TERM
prefix=$work/prefix

echo "== install into $prefix"
cmake --install "$build" --prefix "$prefix" --component dev > /dev/null
cmake -DSOURCE_DIR="$source" -DINSTALL_DIR="$prefix/include/varnek" -P "$here/public_headers.cmake"
echo '#include <varnek/varnek.h>' | "$cxx" -std=c++20 -fsyntax-only -I"$prefix/include" -x c++ -
echo "umbrella header compiles on its own against the install"

check_consumer "$source" "$work" "$cxx" "$prefix"

echo "== a newer version is refused"
if cmake -S "$work/consumer" -B "$work/too-new" -DCMAKE_PREFIX_PATH="$prefix" \
     -DVARNEK_WANTED=99.0 > "$work/too-new.log" 2>&1; then
  echo "FAIL: configuring for Varnek 99.0 succeeded"; exit 1
fi
grep -q 'requested version "99.0"' "$work/too-new.log" \
  || { cat "$work/too-new.log"; echo "FAIL: no version refusal"; exit 1; }
grep -q 'version: 0\.' "$work/too-new.log" || { cat "$work/too-new.log"; echo "FAIL: installed version not named"; exit 1; }
echo "refused, naming the installed version"

echo "== a missing dependency is named"
# The system prefixes are hidden, as on a machine without libblkid-dev.
if cmake -S "$work/consumer" -B "$work/no-blkid" -DCMAKE_PREFIX_PATH="$prefix" \
     -DCMAKE_IGNORE_PREFIX_PATH="/usr;/" > "$work/no-blkid.log" 2>&1; then
  echo "FAIL: configuring without libblkid succeeded"; exit 1
fi
grep -q 'Could NOT find Blkid' "$work/no-blkid.log" \
  || { cat "$work/no-blkid.log"; echo "FAIL: the missing dependency is not named"; exit 1; }
echo "refused, naming Blkid"
echo "consumer test passed"
