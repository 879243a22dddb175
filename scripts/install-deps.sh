#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
set -euo pipefail
# slewweb: its HTTP and JSON libraries; its browser test: Chromium, driven from Node.
packages=(cmake ninja-build g++ clang libclang-rt-14-dev libsqlite3-dev libgtest-dev zlib1g-dev pkg-config
  libcpp-httplib-dev nlohmann-json3-dev chromium)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
# Node may come from elsewhere than Debian; only a missing npm asks for Debian's.
command -v npm >/dev/null || missing+=(nodejs npm)
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi
