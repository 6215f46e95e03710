#!/usr/bin/env bash
# Installs what building and testing Varnek needs on Debian, if it is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang clang-format
  libcairo2-dev libasound2-dev zbar-tools
  libcurl4-openssl-dev libssl-dev libblkid-dev libc-ares-dev libboost-context-dev
  curl python3 procps iproute2 gdb  # gdb: the heap figures of bench/slot_memory.py
  dpkg-dev nginx openssl wrk
  libmicrohttpd-dev libcivetweb-dev libcpp-httplib-dev  # the peers of bench/peer_load.py
  chromium locales
  libglib2.0-dev libgtk-3-dev xvfb xauth
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
if [ ${#missing[@]} -ne 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# libFuzzer and the sanitizer runtimes of the clang that is installed.
clang_major=$(clang --version | sed -n 's/.*clang version \([0-9]*\).*/\1/p' | head -n 1)
if [ -n "$clang_major" ]; then
  rt="libclang-rt-${clang_major}-dev"
  if ! dpkg-query -W -f='${Status}' "$rt" 2>/dev/null | grep -q "install ok installed"; then
    echo "Installing: $rt"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get install -y -qq --no-install-recommends "$rt"
  fi
fi

# The locale tests read decimal marks and date orders of other countries.
for loc in de_DE en_GB; do
  if ! locale -a 2>/dev/null | grep -qi "^${loc}\.utf-\?8$"; then
    $sudo sed -i "s/^# *\(${loc}\.UTF-8 UTF-8\)/\1/" /etc/locale.gen
    grep -q "^${loc}\.UTF-8 UTF-8" /etc/locale.gen || echo "${loc}.UTF-8 UTF-8" | $sudo tee -a /etc/locale.gen > /dev/null
    need_locales=1
  fi
done
if [ -n "${need_locales:-}" ]; then
  $sudo locale-gen > /dev/null
fi
