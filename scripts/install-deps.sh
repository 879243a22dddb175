#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing:
# the native tool chain, the arm64 cross tool chain with the arm64 libraries
# (multiarch) and the emulator that runs them, and the packaging tools.
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap 'echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $?" >&2' ERR
# Libraries present for both processors are named with theirs.
native=$(dpkg --print-architecture)
# slewweb: its HTTP and JSON libraries; its browser test: Chromium, driven from Node.
packages=(cmake ninja-build g++ clang libclang-rt-14-dev libsqlite3-dev:$native libgtest-dev:$native
  zlib1g-dev:$native pkg-config libcpp-httplib-dev:$native nlohmann-json3-dev chromium
  g++-aarch64-linux-gnu qemu-user libsqlite3-dev:arm64 libgtest-dev:arm64 zlib1g-dev:arm64 libstdc++6:arm64
  libcpp-httplib-dev:arm64
  dpkg-dev file systemd
  gnuplot-nox)
sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
if [[ $'\n'$(dpkg --print-foreign-architectures)$'\n' != *$'\n'arm64$'\n'* ]]; then
  $sudo_cmd dpkg --add-architecture arm64
fi
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
# Node may come from elsewhere than Debian; only a missing npm asks for Debian's.
command -v npm >/dev/null || missing+=(nodejs npm)
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  $sudo_cmd apt-get update -qq
  log=$(mktemp)
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >"$log" 2>&1 ||
    { tail -n 20 "$log"; echo "install-deps.sh: apt-get install failed" >&2; rm -f "$log"; exit 1; }
  rm -f "$log"
fi
