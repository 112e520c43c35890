#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tests and the demo need. Safe to run again:
# it asks apt only for what is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git clang-format
  qtbase5-dev libhiredis-dev libevent-dev libdbus-1-dev libudev-dev libcjson-dev rapidjson-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  redis-server redis-tools dbus umockdev libumockdev-dev iproute2 procps
  python3 file help2man libcpp-httplib-dev
  chromium chromium-driver python3-selenium
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
