#!/usr/bin/env bash
# Runs the layout of varnek-demo-tls@.service on loopback and checks it: a
# certificate made now (ECDSA P-256, for localhost), PROCESSES varnek-demo
# processes (--slots 100 --tls tls, each on a port of its own, no proxy), then
# REQUESTS HTTPS requests spread over them with curl --cacert. Every answer
# must be a 200 echo of its own URL and every process must have served; TLS
# 1.1 and plain HTTP must be refused.
#   deploy/tls_check.sh DEMO_BINARY [REQUESTS]
# Exits 77 (skipped) when openssl or curl is not installed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/check_common.sh" "$@"
require_tools openssl curl

# As systemd hands them over: tls.pem and tls.key, the key for its owner only.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj "/CN=localhost" \
  -addext "subjectAltName=DNS:localhost" -keyout "$work/tls.key" -out "$work/tls.pem" 2> /dev/null
chmod 600 "$work/tls.key"

export VARNEK_CERT_DIR=$work
ports=()
for _ in $(seq 1 "$processes"); do
  start_demo --tls tls
  ports+=("$demo_port")
done
echo "demo processes on https://localhost: ${ports[*]}"

# Request n goes to process n mod PROCESSES, six at a time.
mkdir -p "$work/answers"
for n in $(seq 1 "$requests"); do
  printf 'url = "https://localhost:%s/echo?request=%s"\noutput = "%s/answers/%s.html"\n' \
    "${ports[$((n % processes))]}" "$n" "$work" "$n"
done > "$work/curl.conf"
started=$(date +%s.%N)
curl -s --cacert "$work/tls.pem" --parallel --parallel-max 6 --max-time 120 \
  -w '%{http_code} %{url_effective}\n' -K "$work/curl.conf" > "$work/codes.txt" 2> "$work/curl.err" &
pids+=($!)
wait "${pids[-1]}" || true
finished=$(date +%s.%N)

check_answers "$requests"
for p in "${ports[@]}"; do
  served=$(grep -c "^200 https://localhost:$p/" "$work/codes.txt" || true)
  echo "demo on port $p served $served"
  [ "$served" -gt 0 ] || { echo "FAIL: the process on port $p got no request"; bad=$((bad + 1)); }
done

port=${ports[0]}
if openssl s_client -connect "127.0.0.1:$port" -tls1_1 -cipher 'DEFAULT@SECLEVEL=0' < /dev/null 2>&1 |
    grep -q "BEGIN CERTIFICATE"; then
  echo "FAIL: TLS 1.1 was accepted"
  bad=$((bad + 1))
fi
plain=$(curl -s -m 5 -o /dev/null -w '%{http_code}' "http://127.0.0.1:$port/echo" || true)
if [ "$plain" != "000" ]; then
  echo "FAIL: plain HTTP got an answer ($plain)"
  bad=$((bad + 1))
fi
echo "$requests requests in $(awk "BEGIN { printf \"%.1f\", $finished - $started }") s, $bad failures"
[ "$bad" -eq 0 ] || exit 1
echo "TLS deploy check passed"
