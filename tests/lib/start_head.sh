# Sourced by run_*.sh BUILD_FOLDER: slewd, slewvideo and a server on free ports, ended by pid on exit.
set -Eeuo pipefail
trap '_failed=$?; echo "FAIL: $(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$(cd "$1" && pwd)
state="" slewd_pid="" video_pid="" server_pid="" node_pid=""

# Installs the commands named when missing; exits 77 (skipped) when that fails.
need() {
  for c in "$@"; do command -v "$c" >/dev/null || "$root/scripts/install-deps.sh" || true; done
  for c in "$@"; do command -v "$c" >/dev/null || { echo "SKIP: $c is not installed and could not be installed"; exit 77; }; done
}
# npm ci when package is missing, one at a time (suites may start together).
npm_ci() {
  [ -d "$here/node_modules/$1" ] || (cd "$here" && flock /tmp/slew-tools-npm.lock sh -c \
    "[ -d node_modules/$1 ] || npm ci --no-audit --no-fund --loglevel=error")
}
# Waits for a line matching pattern in file; prints the match.
await_line() {
  for _ in $(seq 100); do grep -o -m1 "$2" "$1" 2>/dev/null && return 0; sleep 0.1; done
  echo "no \"$2\" from $(basename "$1"):" >&2; cat "$1" >&2; return 1
}
cleanup() {
  for pid in "$node_pid" "$server_pid" "$video_pid" "$slewd_pid"; do [ -z "$pid" ] || kill -- "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$state"
}
start_slewd() { "$build/slewd" >>"$state/slewd.out" 2>&1 & slewd_pid=$!; }
# A fresh state folder with slewd and slewvideo on it; slewvideo's URLs in $rtsp and $http.
start_head() {
  state=$(mktemp -d /tmp/slew-tools-test.XXXXXX)
  trap cleanup EXIT
  export SLEWD_STATE="$state/cam"
  start_slewd
  ASAN_OPTIONS=detect_leaks=0 "$build/slewvideo" --rtsp 127.0.0.1:0 --http 127.0.0.1:0 >"$state/video.out" 2>&1 &
  video_pid=$!
  rtsp=$(await_line "$state/video.out" 'rtsp://127.0.0.1:[0-9]*')
  http=$(await_line "$state/video.out" 'http://127.0.0.1:[0-9]*')
}
start_server() { server=$1; shift; "$build/$server" "$@" >"$state/server.out" 2>&1 & server_pid=$!; }
# Ends the server (it must end cleanly on SIGTERM) and exits with status, 1 if it did not.
finish() {
  local status=$1 ended=0
  kill -TERM "$server_pid"
  wait "$server_pid" || ended=$?
  server_pid=""
  if [ "$ended" -ne 0 ]; then echo "FAIL $server ended with status $ended:"; tail -n 40 "$state/server.out"; status=1; fi
  if [ "$status" -ne 0 ]; then echo "--- slewd's last lines:"; tail -n 20 "$state/slewd.out"; fi
  exit "$status"
}
