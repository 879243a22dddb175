#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing:
# the native tool chain, the arm64 cross tool chain with the arm64 libraries
# (multiarch) and the emulator that runs them, and the packaging tools.
set -euo pipefail
# Libraries present for both processors are named with theirs.
native=$(dpkg --print-architecture)
# slewweb: its HTTP and JSON libraries; its browser test: Chromium, driven from Node.
# slewonvif: pugixml for XML, OpenSSL's libcrypto for digests (native only: docs/decisions.md).
# slewvideo: cairo, GStreamer's RTSP server and encoders, JPEG; its test decodes with ffmpeg.
packages=(cmake ninja-build g++ clang libclang-rt-14-dev libsqlite3-dev:$native libgtest-dev:$native
  zlib1g-dev:$native pkg-config libcpp-httplib-dev:$native nlohmann-json3-dev chromium
  g++-aarch64-linux-gnu qemu-user libsqlite3-dev:arm64 libgtest-dev:arm64 zlib1g-dev:arm64 libstdc++6:arm64
  libcpp-httplib-dev:arm64
  dpkg-dev file systemd
  libpugixml-dev:$native libssl-dev:$native
  libcairo2-dev libgstrtspserver-1.0-dev libturbojpeg0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly gstreamer1.0-libav ffmpeg)
sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
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
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi
