#!/usr/bin/env bash
# full_disk_test.sh BUILD_FOLDER: the state folder a 1 MiB tmpfs (own mount namespace, else 77),
# filled under slewd: stop obeyed, a save refused naming the cause and never shown, said once, resumed.
set -euo pipefail
build=$(cd "$1" && pwd)
if [ -z "${FULL_DISK_INSIDE:-}" ]; then
  unshare -rm true 2>/dev/null || { echo "SKIP: unshare -rm is not permitted here"; exit 77; }
  FULL_DISK_INSIDE=1 exec unshare -rm "$0" "$@"
fi
state=$(mktemp -d /tmp/full-disk.XXXXXX)
mount -t tmpfs -o size=1m tmpfs "$state"
export SLEWD_STATE=$state
slewd_pid=""
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
await() { for _ in $(seq 600); do eval "$1" && return 0; sleep 0.1; done; fail "never: $1"; }
value() { await "[ \"\$(ctl get $1 2>/dev/null)\" = $2 ]"; }
start() {
  rm -f "$state/transcript.log"
  "$build/slewd" >/dev/null 2>>"$state.err" &
  slewd_pid=$!
  await "grep -qs 'out in loop' $state/transcript.log"
}

start
ctl run set_preset:1 || fail "a save on a healthy store"
ctl run manual:-30,0,0 || fail "a move"
value ptz.status 1
dd if=/dev/zero of="$state/filler" bs=4k 2>/dev/null || true  # to the last byte
status=0
ctl run set_preset:2 2>"$state.ctl" || status=$?
[ "$status" = 4 ] || fail "a save on a full disk ended $status"
grep -q "store full: not saved" "$state.ctl" || fail "the refusal does not name the cause: $(cat "$state.ctl")"
value sim.store full
ctl run stop || fail "stop on a full disk"
value ptz.status 0
shown=$(ctl list ptz.preset.position.)
rm "$state/filler"
value sim.store ok
ctl run set_preset:3 || fail "a save once space returned"
shown_after=$(ctl list ptz.preset.position.)
[ "$(grep -c "store full: settings are not being saved" "$state.err")" = 1 ] || fail "not said once"
grep -q "store writing again" "$state.err" || fail "the return is not said"
kill -9 "$slewd_pid"
wait "$slewd_pid" 2>/dev/null || true
start
[ "$(ctl list ptz.preset.position.)" = "$shown_after" ] || fail "a restart shows other presets"
[ "$(echo "$shown" | grep -c 'id:2,')" = 0 ] || fail "the refused save was shown"
echo "PASS"
