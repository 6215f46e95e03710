# What the deploy checks share; sourced by them with their arguments,
# DEMO_BINARY [REQUESTS], which it reads into demo and requests (300 by
# default), with processes from VARNEK_PROCESSES (3). It makes $work
# (removed at exit, after every process in pids has been stopped) and gives:
#   require_tools TOOL...   exits 77 (skipped) when one is not installed
#   start_demo [FLAG...]    a demo process with --slots 100 and the flags on
#                           a free port up to 32767 (at most 20 tries; a taken
#                           port makes it exit at once); sets demo_port
#   check_answers REQUESTS  every request n must be a 200 in $work/codes.txt
#                           and its answer $work/answers/n.html the echo of
#                           its own URL; adds the failures to bad

set -euo pipefail
demo=$1
requests=${2:-300}
processes=${VARNEK_PROCESSES:-3}

require_tools() {
  local tool
  for tool in "$@"; do
    if ! command -v "$tool" > /dev/null; then
      echo "SKIPPED: $tool is not installed (bash scripts/deps.sh installs it)"
      exit 77
    fi
  done
}

work=$(mktemp -d /tmp/varnek-deploy.XXXXXX)
pids=()
bad=0
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2> /dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2> /dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
# A time limit or Ctrl-C ends the script through the same clean-up.
trap 'exit 1' INT TERM

# True once process $1 accepts connections on loopback port $2; false when it
# ended first or after 20 s (a loaded machine or a sanitizer build is slow to
# come up).
wait_listening() {
  local tries
  for tries in $(seq 1 200); do
    kill -0 "$1" 2> /dev/null || return 1
    if (exec 3<> "/dev/tcp/127.0.0.1/$2") 2> /dev/null; then return 0; fi
    sleep 0.1
  done
  return 1
}

start_demo() {
  local attempt pid
  for attempt in $(seq 1 20); do
    demo_port=$((20000 + RANDOM % 12000))
    "$demo" --port "$demo_port" --slots 100 "$@" > "$work/demo-$demo_port.log" 2>&1 &
    pid=$!
    if wait_listening "$pid" "$demo_port"; then
      pids+=("$pid")
      return 0
    fi
    kill "$pid" 2> /dev/null || true
  done
  cat "$work"/demo-*.log
  echo "FAIL: no free port for a demo process in 20 tries"
  exit 1
}

check_answers() {
  local n
  for n in $(seq 1 "$1"); do
    if ! grep -q "^200 .*request=$n\$" "$work/codes.txt"; then
      echo "request $n: status $(grep "request=$n\$" "$work/codes.txt" || echo none)"
      bad=$((bad + 1))
    elif ! grep -qP "^URL\t/echo\?request=$n/?\$" "$work/answers/$n.html"; then
      echo "request $n: the answer is not its own echo"
      bad=$((bad + 1))
    fi
  done
}
