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
