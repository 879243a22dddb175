#!/usr/bin/env bash
# Installs the Debian packages that are missing. With "run": only what
# building and running slewd and its tools needs (the run command). Without:
# everything the tests need too: the sanitizers' and fuzzers' compiler, the
# arm64 cross tool chain with the arm64 libraries (multiarch) and the
# emulator that runs them, the browser and Node for the browser test, and
# the packaging tools.
# Usage: install-deps.sh [run]
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
# Libraries present for both processors are named with theirs.
native=$(dpkg --print-architecture)
# The build, the bus store, slewweb's HTTP and JSON, slewsim's plots;
# slewonvif: pugixml for XML, OpenSSL's libcrypto for digests (native only:
# docs/decisions.md); slewvideo: cairo, GStreamer's RTSP server and its
# H.264 encoder, JPEG.
run_packages=(cmake ninja-build g++ pkg-config libsqlite3-dev:$native zlib1g-dev:$native
  libcpp-httplib-dev:$native nlohmann-json3-dev gnuplot-nox
  libpugixml-dev:$native libssl-dev:$native
  libcairo2-dev libgstrtspserver-1.0-dev libturbojpeg0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-ugly)
# The tests (the stream is decoded with ffmpeg), the arm64 build and the package.
test_packages=(clang libclang-rt-14-dev libgtest-dev:$native chromium gstreamer1.0-libav ffmpeg
  g++-aarch64-linux-gnu qemu-user libsqlite3-dev:arm64 libgtest-dev:arm64 zlib1g-dev:arm64 libstdc++6:arm64
  libcpp-httplib-dev:arm64
  dpkg-dev file systemd)
case "${1:-}" in
  run) packages=("${run_packages[@]}") ;;
  "") packages=("${run_packages[@]}" "${test_packages[@]}") ;;
  *) echo "install-deps.sh: unknown word '$1' (only 'run')" >&2; exit 2 ;;
esac
sudo_cmd=""
[ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
if [ -z "${1:-}" ] && [[ $'\n'$(dpkg --print-foreign-architectures)$'\n' != *$'\n'arm64$'\n'* ]]; then
  $sudo_cmd dpkg --add-architecture arm64
fi
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
# Node may come from elsewhere than Debian; only a missing npm asks for Debian's.
[ -n "${1:-}" ] || command -v npm >/dev/null || missing+=(nodejs npm)
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  $sudo_cmd apt-get update -qq
  log=$(mktemp)
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >"$log" 2>&1 ||
    { tail -n 20 "$log"; echo "install-deps.sh: apt-get install failed" >&2; rm -f "$log"; exit 1; }
  rm -f "$log"
fi
