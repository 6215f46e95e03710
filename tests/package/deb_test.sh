#!/usr/bin/env bash
# Builds the Debian packages with cpack, installs them with dpkg and proves a
# host builds and runs against them: examples/consumer with find_package and
# with pkg-config from the system paths, and varnek-demo from /usr/bin.
# Installing into the system needs root, so this runs only when CI=true and
# as root; otherwise it is skipped (exit 77). The packages are removed again.
#   deb_test.sh BUILD_DIR SOURCE_DIR CXX_COMPILER
set -euo pipefail
build=$1 source=$2 cxx=$3
here=$(cd "$(dirname "$0")" && pwd)
source "$here/host_check.sh"

if [ "${CI:-}" != "true" ] || [ "$(id -u)" -ne 0 ]; then
  echo "SKIPPED: installs Debian packages into the system; runs only as root with CI=true"
  exit 77
fi
for p in varnek-dev varnek-demo; do
  if dpkg-query -W -f='${Status}' "$p" 2> /dev/null | grep -q "install ok installed"; then
    echo "SKIPPED: $p is already installed; this test will not replace or remove it"
    exit 77
  fi
done

work=$(mktemp -d /tmp/varnek-deb.XXXXXX)
installed=0
cleanup() {
  stop_host
  if [ "$installed" -eq 1 ]; then dpkg -r varnek-dev varnek-demo > /dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
# A time limit or Ctrl-C ends the script through the same clean-up.
trap 'exit 1' INT TERM

echo "== cpack -G DEB"
(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/debs" > "$work/cpack.log") \
  || { cat "$work/cpack.log"; exit 1; }
dev_deb=$(ls "$work"/debs/varnek-dev_*.deb)
demo_deb=$(ls "$work"/debs/varnek-demo_*.deb)

expect_file() {  # expect_file DEB PATH-REGEX
  dpkg-deb -c "$1" | awk '{ print $6 }' | grep -qE "$2" \
    || { echo "FAIL: $(basename "$1") has no $2"; exit 1; }
}
expect_file "$dev_deb" '^\./usr/include/varnek/varnek\.h$'
expect_file "$dev_deb" '^\./usr/include/varnek/server/http_server\.h$'
expect_file "$dev_deb" '^\./usr/lib/.*libvarnek_runtime\.a$'
expect_file "$dev_deb" '^\./usr/lib/.*cmake/Varnek/VarnekConfigVersion\.cmake$'
expect_file "$dev_deb" '^\./usr/lib/.*pkgconfig/varnek\.pc$'
expect_file "$demo_deb" '^\./usr/bin/varnek-demo$'
expect_file "$demo_deb" '^\./usr/lib/systemd/system/varnek-demo@\.service$'
expect_file "$demo_deb" '^\./usr/bin/varnek-page$'
expect_file "$demo_deb" '^\./usr/share/man/man1/varnek-page\.1$'
expect_file "$demo_deb" '^\./usr/share/bash-completion/completions/varnek-page$'
if dpkg-deb -c "$dev_deb" | grep -q 'platform/sim/'; then
  echo "FAIL: the simulated platform is in varnek-dev"; exit 1
fi
dev_depends=$(dpkg-deb -f "$dev_deb" Depends)
demo_depends=$(dpkg-deb -f "$demo_deb" Depends)
echo "varnek-dev Depends: $dev_depends"
echo "varnek-demo Depends: $demo_depends"
for dep in libblkid-dev; do
  [[ "$dev_depends" == *"$dep"* ]] || { echo "FAIL: varnek-dev does not depend on $dep"; exit 1; }
done
for dep in libblkid1 libstdc++6; do
  [[ "$demo_depends" == *"$dep"* ]] || { echo "FAIL: varnek-demo does not depend on $dep"; exit 1; }
done

echo "== dpkg -i"
installed=1
dpkg -i "$dev_deb" "$demo_deb" > "$work/dpkg.log" || { cat "$work/dpkg.log"; exit 1; }

check_consumer "$source" "$work" "$cxx"

echo "== varnek-demo from the package"
port=$((20000 + RANDOM % 12000))
/usr/bin/varnek-demo --port "$port" > "$work/demo.log" 2>&1 &
host_pid=$!
code=$(curl -s -o /dev/null -w '%{http_code}' --max-time 10 --retry 10 --retry-connrefused \
  --retry-delay 1 "http://127.0.0.1:$port/") || true
stop_host
[ "$code" = "200" ] || { cat "$work/demo.log"; echo "FAIL: varnek-demo answered $code"; exit 1; }
echo "varnek-demo on port $port answered 200"
echo "deb test passed"
