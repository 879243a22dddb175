#!/usr/bin/env bash
# Runs slewweb's browser test: a real-time slewd on a fresh state folder,
# slewvideo and slewweb on free ports, and the page driven in headless Chromium. Installs
# Chromium and the npm packages first when missing; exits 77 (skipped) only
# when Chromium cannot be installed.
#
# run_browser_test.sh BUILD_FOLDER [SCREENSHOT]
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$(cd "$1" && pwd)
screenshot=${2:-$build/slewweb.png}

command -v chromium >/dev/null || "$root/scripts/install-deps.sh" || true
if ! command -v chromium >/dev/null; then
  echo "SKIP: chromium is not installed and could not be installed"
  exit 77
fi
if [ ! -d "$here/node_modules/puppeteer-core" ]; then
  (cd "$here" && npm ci --no-audit --no-fund --loglevel=error)
fi

state=$(mktemp -d /tmp/slewweb-test.XXXXXX)
slewd_pid="" video_pid="" web_pid="" node_pid=""
# Ends what this script started, by process id, and removes the state folder.
cleanup() {
  [ -n "$node_pid" ] && kill -- -"$node_pid" 2>/dev/null || true
  [ -n "$web_pid" ] && kill "$web_pid" 2>/dev/null || true
  [ -n "$video_pid" ] && kill "$video_pid" 2>/dev/null || true
  [ -n "$slewd_pid" ] && kill "$slewd_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$state"
}
trap cleanup EXIT

SLEWD_STATE="$state/cam" "$build/slewd" >"$state/slewd.out" 2>&1 &
slewd_pid=$!
# GStreamer keeps allocations for the life of the process on purpose: no leak report for slewvideo.
SLEWD_STATE="$state/cam" ASAN_OPTIONS=detect_leaks=0 "$build/slewvideo" --rtsp 127.0.0.1:0 --http 127.0.0.1:0 \
  >"$state/slewvideo.out" 2>&1 &
video_pid=$!
video=""
for _ in $(seq 100); do
  video=$(sed -n 's|^http http://||p' "$state/slewvideo.out")
  [ -n "$video" ] && break
  sleep 0.1
done
if [ -z "$video" ]; then
  echo "slewvideo did not start:"; cat "$state/slewvideo.out"
  exit 1
fi
SLEWD_STATE="$state/cam" "$build/slewweb" --listen 127.0.0.1:0 --video "$video" >"$state/slewweb.out" 2>&1 &
web_pid=$!
url=""
for _ in $(seq 100); do
  url=$(grep -o 'http://[0-9.:]*/' "$state/slewweb.out" || true)
  [ -n "$url" ] && break
  sleep 0.1
done
if [ -z "$url" ]; then
  echo "slewweb did not start:"; cat "$state/slewweb.out"
  exit 1
fi

# Node and Chromium in a process group of their own, so cleanup ends both.
SLEWD_STATE="$state/cam" setsid node "$here/browser_test.mjs" "$url" "$build/slewctl" "$state/cam" "$screenshot" &
node_pid=$!
status=0
wait "$node_pid" || status=$?
node_pid=""

# slewweb must end cleanly on SIGTERM (under the sanitizers: with no report).
kill -TERM "$web_pid"
web_status=0
wait "$web_pid" || web_status=$?
web_pid=""
if [ "$web_status" -ne 0 ]; then
  echo "FAIL slewweb ended with status $web_status:"
  tail -n 40 "$state/slewweb.out"
  status=1
fi
if [ "$status" -ne 0 ]; then
  echo "--- slewd's last lines:"
  tail -n 20 "$state/slewd.out"
fi
exit "$status"
