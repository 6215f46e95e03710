# Shared by the package tests: starts a host built from examples/consumer on a
# free loopback port (the server takes ports up to 32767) and fetches its page.
host_pid=""

stop_host() {
  if [ -n "$host_pid" ]; then
    kill "$host_pid" 2> /dev/null || true
    wait "$host_pid" 2> /dev/null || true
    host_pid=""
  fi
}

# check_host BINARY: at most 20 ports are tried; a host whose port is taken
# exits at once with 1, before the half second this waits.
check_host() {
  local binary=$1 port body attempt
  for attempt in $(seq 1 20); do
    port=$((20000 + RANDOM % 12000))
    "$binary" "$port" &
    host_pid=$!
    sleep 0.5
    if kill -0 "$host_pid" 2> /dev/null; then
      body=$(curl -sS --max-time 10 --retry 10 --retry-connrefused --retry-delay 1 \
        "http://127.0.0.1:$port/" 2>&1) || true
      stop_host
      if [ "$body" = "<p>Hello, 127.0.0.1</p>" ]; then
        echo "$(basename "$binary") on port $port answered: $body"
        return 0
      fi
      echo "FAIL: $(basename "$binary") on port $port answered: $body"
      return 1
    fi
    wait "$host_pid" 2> /dev/null || true
    host_pid=""
  done
  echo "FAIL: $(basename "$binary") found no free port in 20 tries"
  return 1
}

# check_consumer SOURCE_DIR WORK_DIR CXX [PREFIX]: copies examples/consumer out
# of the tree, builds it with find_package and again with pkg-config (from
# PREFIX, or from the system paths without it) and checks both hosts.
check_consumer() {
  local source=$1 work=$2 cxx=$3 prefix=${4:-}
  local cmake_args=(-DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Release)
  cp -r "$source/examples/consumer" "$work/consumer"

  echo "== find_package"
  if [ -n "$prefix" ]; then cmake_args+=(-DCMAKE_PREFIX_PATH="$prefix"); fi
  cmake -S "$work/consumer" -B "$work/with-cmake" "${cmake_args[@]}" > "$work/configure.log" \
    || { cat "$work/configure.log"; return 1; }
  cmake --build "$work/with-cmake" > "$work/build.log" || { cat "$work/build.log"; return 1; }
  check_host "$work/with-cmake/varnek-host" || return 1

  echo "== pkg-config"
  local flags
  flags=$(PKG_CONFIG_PATH=${prefix:+$prefix/lib/pkgconfig} pkg-config --cflags --libs varnek)
  # shellcheck disable=SC2086
  "$cxx" -std=c++20 -O1 -o "$work/host-pc" "$work/consumer/main.cpp" $flags
  check_host "$work/host-pc"
}
