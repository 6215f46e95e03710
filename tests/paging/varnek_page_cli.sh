#!/usr/bin/env bash
# varnek-page as a Unix tool: --help on standard output with status 0, usage
# errors with 64, a port that cannot be opened with 69 and its cause, the
# message from standard input, and SIGTERM mid-page: logout and 143.
#   varnek_page_cli.sh PATH-TO-VARNEK-PAGE
set -uo pipefail
tool=$1
work=$(mktemp -d /tmp/varnek-page-cli.XXXXXX)
trap 'rm -rf "$work"' EXIT
failed=0
fail() { echo "FAIL: $*"; failed=1; }

# expect STATUS STDOUT-REGEX STDERR-REGEX -- ARGS...   ("" checks nothing)
expect() {
  local status=$1 out=$2 err=$3
  shift 4
  "$tool" "$@" > "$work/out" 2> "$work/err" < /dev/null
  local got=$?
  [ "$got" -eq "$status" ] || fail "$* exited $got, not $status"
  [ -z "$out" ] || grep -qE -- "$out" "$work/out" || fail "$*: stdout lacks /$out/: $(cat "$work/out")"
  [ -z "$err" ] || grep -qE -- "$err" "$work/err" || fail "$*: stderr lacks /$err/: $(cat "$work/err")"
}

expect 0 'Exit status' '' -- --help
grep -q '20 to 10000' "$work/out" || fail "--help does not give the block size range"
grep -q 'DB/yyyy-mm/dd/<pager>.dbs' "$work/out" || fail "--help does not say where --history writes"
grep -q '143' "$work/out" || fail "--help does not list the signal statuses"
[ ! -s "$work/err" ] || fail "--help wrote to stderr"
expect 64 '' 'unknown flag --bogus' -- --bogus
expect 64 '' 'message \(or --message-file\) is required' -- --simulate --pager 1
expect 64 '' 'bad block size 19 \(20 to 10000\)' -- --simulate --pager 1 --message x --block-size 19
expect 66 '' 'cannot read the message file' -- --simulate --pager 1 --message-file "$work/none"
expect 69 '' 'No such device: /nonexistent/tty' -- --device /nonexistent/tty --pager 1 --message x
expect 69 '' 'A directory, not a serial device: /tmp' -- --device /tmp --pager 1 --message x
# A device this user may not open (root is checked as nobody, where nobody
# may run the tool at all).
touch "$work/tty" && chmod 000 "$work/tty" && chmod 755 "$work"
if [ "$(id -u)" -ne 0 ]; then
  expect 69 '' "Permission denied: $work/tty" -- --device "$work/tty" --pager 1 --message x
elif command -v setpriv > /dev/null \
    && setpriv --reuid=nobody --regid=nogroup --clear-groups "$tool" --help > /dev/null 2>&1; then
  setpriv --reuid=nobody --regid=nogroup --clear-groups "$tool" --device "$work/tty" --pager 1 --message x \
    2> "$work/err" < /dev/null
  status=$?
  [ "$status" -eq 69 ] && grep -q "Permission denied: $work/tty" "$work/err" \
    || fail "as nobody: status $status, $(cat "$work/err")"
fi

# The message piped in, a final line end dropped.
echo "disk full on db1" | "$tool" --simulate --pager 1234 --message - --trace > "$work/out" 2>&1
status=$?
[ "$status" -eq 0 ] || fail "piped message exited $status: $(cat "$work/out")"
grep -q 'disk full on db1«CR»«ETX»' "$work/out" || fail "piped message not sent as given: $(cat "$work/out")"

# SIGTERM once the Zetron session is up (its page then takes many seconds).
"$tool" --simulate --protocol zetron --pager A12345B --message "stop me" > "$work/out" 2>&1 &
pid=$!
for _ in $(seq 1 300); do
  grep -q 'session: logged in' "$work/out" && break
  kill -0 "$pid" 2> /dev/null || break
  sleep 0.1
done
kill -TERM "$pid"
wait "$pid"
status=$?
[ "$status" -eq 143 ] || fail "SIGTERM gave $status, not 143: $(cat "$work/out")"
grep -q 'not sent: cancelled' "$work/out" || fail "no cancelled block: $(cat "$work/out")"
grep -q 'session: cancelled, logged out' "$work/out" || fail "no logout after SIGTERM: $(cat "$work/out")"

[ "$failed" -eq 0 ] && echo "varnek-page behaves as a Unix tool"
exit "$failed"
