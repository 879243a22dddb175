#!/usr/bin/env bash
# Runs slewonvif's client test: a real-time slewd on a fresh state folder,
# slewvideo and slewonvif on free ports, and the npm onvif client driving
# them as a video management system would (onvif_client_test.js). Installs
# the npm packages first when missing; exits 77 (skipped) only when Node or
# ffprobe cannot be installed.
#
# run_onvif_test.sh BUILD_FOLDER
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "FAIL: $(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed"' ERR
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)

root=$(cd "$here/../.." && pwd)
command -v node >/dev/null && command -v ffprobe >/dev/null || "$root/scripts/install-deps.sh" || true
if ! command -v node >/dev/null || ! command -v ffprobe >/dev/null; then
  echo "SKIP: node or ffprobe is not installed and could not be installed"
  exit 77
fi
# One install at a time: the plain and sanitizer suites may start together.
if [ ! -d "$here/node_modules/onvif" ]; then
  (cd "$here" && flock /tmp/slewonvif-npm.lock sh -c \
    '[ -d node_modules/onvif ] || npm ci --no-audit --no-fund --loglevel=error')
fi

# In a network of its own when the machine allows it, so that the multicast
# Probe is tried too: lo up, multicast routed over it.
listen=127.0.0.1
if [ -z "${SLEWONVIF_NETNS:-}" ] && unshare -rn true 2>/dev/null; then
  exec unshare -rn env SLEWONVIF_NETNS=1 bash -c \
    'ip link set lo up multicast on && ip route add 239.0.0.0/8 dev lo && exec "$0" "$@"' "$0" "$@"
fi
[ -n "${SLEWONVIF_NETNS:-}" ] && listen=0.0.0.0

state=$(mktemp -d /tmp/slewonvif-test.XXXXXX)
slewd_pid="" video_pid="" onvif_pid=""
# Ends what this script started, by process id, and removes the state folder.
cleanup() {
  for pid in "$onvif_pid" "$video_pid" "$slewd_pid"; do
    [ -n "$pid" ] && kill "$pid" 2>/dev/null || true
  done
  wait 2>/dev/null || true
  rm -rf "$state"
}
trap cleanup EXIT

# Waits for a line matching pattern in file; prints the match.
await_line() {
  for _ in $(seq 100); do
    if grep -o -m1 "$2" "$1" 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  echo "no \"$2\" from $(basename "$1"):" >&2
  cat "$1" >&2
  return 1
}

export SLEWD_STATE="$state/cam"
"$build/slewd" >"$state/slewd.out" 2>&1 &
slewd_pid=$!
"$build/slewvideo" --rtsp 127.0.0.1:0 --http 127.0.0.1:0 >"$state/video.out" 2>&1 &
video_pid=$!
rtsp=$(await_line "$state/video.out" 'rtsp://127.0.0.1:[0-9]*')
snapshot=$(await_line "$state/video.out" 'http://127.0.0.1:[0-9]*')
echo "the password of the test" >"$state/password"
"$build/slewonvif" --listen "$listen:0" --discovery-port 0 --rtsp-port "${rtsp##*:}" \
  --snapshot-port "${snapshot##*:}" --user admin --password-file "$state/password" >"$state/onvif.out" 2>&1 &
onvif_pid=$!
device=$(await_line "$state/onvif.out" 'http://[0-9.]*:[0-9]*')
discovery=$(await_line "$state/onvif.out" 'udp [0-9.]*:[0-9]*')

status=0
MULTICAST=${SLEWONVIF_NETNS:-} node "$here/onvif_client_test.js" "${device##*:}" "${discovery##*:}" "$snapshot" "$rtsp" "$build/slewctl" \
  "$state/password" || status=$?

# slewd restarted under the same slewonvif: presets and the status come back.
kill -TERM "$slewd_pid"
wait "$slewd_pid" 2>/dev/null || true
"$build/slewd" >>"$state/slewd.out" 2>&1 &
slewd_pid=$!
AFTER_RESTART=1 node "$here/onvif_client_test.js" "${device##*:}" "${discovery##*:}" "$snapshot" "$rtsp" \
  "$build/slewctl" "$state/password" || status=1

# slewonvif must end cleanly on SIGTERM (under the sanitizers: with no report).
kill -TERM "$onvif_pid"
onvif_status=0
wait "$onvif_pid" || onvif_status=$?
onvif_pid=""
if [ "$onvif_status" -ne 0 ]; then
  echo "FAIL slewonvif ended with status $onvif_status:"
  tail -n 40 "$state/onvif.out"
  status=1
fi
if [ "$status" -ne 0 ]; then
  echo "--- slewd's last lines:"
  tail -n 20 "$state/slewd.out"
fi
exit "$status"
