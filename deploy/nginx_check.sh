#!/usr/bin/env bash
# Runs the production layout on loopback and checks it: a self-signed
# certificate made now, three varnek-demo processes (--slots 100) and nginx
# with deploy/nginx-varnek.conf (TLS, one least_conn upstream over the three),
# then REQUESTS HTTPS requests through nginx with curl. Every answer must be
# a 200 echo of its own URL, and every process must have served some.
#   deploy/nginx_check.sh DEMO_BINARY [REQUESTS]
# Exits 77 (skipped) when nginx, openssl or curl is not installed.
# With VARNEK_KEEP_RUNNING=N it leaves the layout up for N s after the check
# (for measurements) and prints its port.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/check_common.sh" "$@"
require_tools nginx openssl curl

openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj "/CN=localhost" \
  -keyout "$work/key.pem" -out "$work/cert.pem" 2> /dev/null

ports=()
for _ in $(seq 1 "$processes"); do
  start_demo
  ports+=("$demo_port")
done

# The site as shipped, moved to loopback ports and the certificate made here.
servers=""
for p in "${ports[@]}"; do
  servers+="    server 127.0.0.1:$p max_conns=90 max_fails=3 fail_timeout=10s;\n"
done
mkdir -p "$work/temp"
cat > "$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/error.log warn;
events { worker_connections 1024; }
http {
    log_format upstreams '\$status \$upstream_addr "\$request_uri"';
    access_log $work/access.log upstreams;
    client_body_temp_path $work/temp/body;
    proxy_temp_path $work/temp/proxy;
    fastcgi_temp_path $work/temp/fastcgi;
    uwsgi_temp_path $work/temp/uwsgi;
    scgi_temp_path $work/temp/scgi;
    include $work/site.conf;
}
CONF

proxy_port=""
for attempt in $(seq 1 20); do
  port=$((40000 + RANDOM % 20000))
  sed -e '/server 127\.0\.0\.1:808[0-9]/d' \
      -e "s|least_conn;|least_conn;\n$servers|" \
      -e "s|listen 443 ssl;|listen 127.0.0.1:$port ssl;|" \
      -e '/listen \[::\]:443 ssl;/d' \
      -e "s|/etc/varnek-demo/tls/|$work/|" \
      "$here/nginx-varnek.conf" > "$work/site.conf"
  nginx -p "$work" -c "$work/nginx.conf" -g 'daemon off;' 2> "$work/nginx.out" &
  pid=$!
  if wait_listening "$pid" "$port"; then
    pids+=("$pid")
    proxy_port=$port
    break
  fi
  kill "$pid" 2> /dev/null || true
done
if [ -z "$proxy_port" ]; then
  cat "$work/nginx.out" "$work/error.log" 2> /dev/null || true
  echo "FAIL: nginx did not start"
  exit 1
fi
echo "nginx on https://127.0.0.1:$proxy_port/ over demo ports ${ports[*]}"

# Six at a time, each answer kept in its own file.
mkdir -p "$work/answers"
started=$(date +%s.%N)
curl -sk --parallel --parallel-max 6 --max-time 120 \
  -w '%{http_code} %{url_effective}\n' -o "$work/answers/#1.html" \
  "https://127.0.0.1:$proxy_port/echo?request=[1-$requests]" > "$work/codes.txt" 2> "$work/curl.err" &
pids+=($!)
wait "${pids[-1]}" || true  # in the background, so that a signal is taken at once
finished=$(date +%s.%N)

check_answers "$requests"
for p in "${ports[@]}"; do
  served=$(grep -c "^200 127\.0\.0\.1:$p " "$work/access.log" || true)
  echo "demo on port $p served $served"
  if [ "$served" -eq 0 ]; then
    echo "FAIL: the process on port $p got no request"
    bad=$((bad + 1))
  fi
done
echo "$requests requests in $(awk "BEGIN { printf \"%.1f\", $finished - $started }") s, $bad failures"
if [ -n "${VARNEK_KEEP_RUNNING:-}" ]; then
  echo "layout stays up for $VARNEK_KEEP_RUNNING s on port $proxy_port"
  sleep "$VARNEK_KEEP_RUNNING"
fi
[ "$bad" -eq 0 ] || exit 1
echo "deploy check passed"
