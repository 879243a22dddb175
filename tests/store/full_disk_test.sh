#!/usr/bin/env bash
# A real full file system under the store: in a private mount namespace the
# state folder is a small tmpfs, filled up while slewd runs. The head must
# obey stop, a preset save must be refused naming the cause and never be
# shown, the change must be said once, and writes must resume by themselves
# once space returns. Exits 77 (skipped) only when the namespace cannot be made.
#
# full_disk_test.sh BUILD_FOLDER
set -euo pipefail
build=$(cd "$1" && pwd)
if [ -z "${FULL_DISK_INSIDE:-}" ]; then
  if ! unshare -rm true 2>/dev/null; then
    echo "SKIP: unshare -rm is not permitted here"
    exit 77
  fi
  FULL_DISK_INSIDE=1 exec unshare -rm "$0" "$@"
fi

state=$(mktemp -d /tmp/full-disk.XXXXXX)
mount -t tmpfs -o size=1m tmpfs "$state"
export SLEWD_STATE=$state
slewd_pid=""
# Ends the slewd this script started, by process id, and removes what the
# script made in /tmp (slewd's stderr is shown when the test failed).
cleanup() {
  status=$?
  [ -n "$slewd_pid" ] && kill -9 "$slewd_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  [ "$status" = 0 ] || cat "$state.err" 2>/dev/null || true
  umount "$state" 2>/dev/null || true
  rmdir "$state" 2>/dev/null || true
  rm -f "$state.err" "$state.ctl"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; exit 1; }
ctl() { "$build/slewctl" "$@"; }
# Waits up to 60 s until `slewctl get KEY` prints VALUE.
await() {
  for _ in $(seq 600); do [ "$(ctl get "$1" 2>/dev/null)" = "$2" ] && return 0; sleep 0.1; done
  fail "$1 never became $2"
}
start() {
  "$build/slewd" >/dev/null 2>>"$state.err" &
  slewd_pid=$!
  for _ in $(seq 600); do grep -qs "out in loop" "$state/transcript.log" && return 0; sleep 0.1; done
  fail "slewd did not reach its loop"
}

start
ctl run set_preset:1 || fail "a save on a healthy store"
ctl run manual:-30,0,0 || fail "a move"
await ptz.status 1
# Fill the file system to the last byte.
dd if=/dev/zero of="$state/filler" bs=4k 2>/dev/null || true
set +e
ctl run set_preset:2 2>"$state.ctl"
status=$?
set -e
[ "$status" = 4 ] || fail "a save on a full disk ended $status"
grep -q "store full: not saved" "$state.ctl" || fail "the refusal does not name the cause: $(cat "$state.ctl")"
await sim.store full
ctl run stop || fail "stop on a full disk"
await ptz.status 0
shown=$(ctl list ptz.preset.position.)
rm "$state/filler"
await sim.store ok
ctl run set_preset:3 || fail "a save once space returned"
shown_after=$(ctl list ptz.preset.position.)
[ "$(grep -c "store full: settings are not being saved" "$state.err")" = 1 ] || fail "not said once"
grep -q "store writing again" "$state.err" || fail "the return is not said"
kill -9 "$slewd_pid"
wait "$slewd_pid" 2>/dev/null || true
rm -f "$state/transcript.log"
start
[ "$(ctl list ptz.preset.position.)" = "$shown_after" ] || fail "a restart shows other presets"
[ "$(echo "$shown" | grep -c 'id:2,')" = 0 ] || fail "the refused save was shown"
echo "PASS"
