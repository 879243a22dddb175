#!/usr/bin/env bash
# slewonvif's client test: slewd, slewvideo and slewonvif on a fresh state
# folder, driven by the npm onvif client (onvif_client_test.mjs), then again
# after a restart of slewd.
#
# run_onvif_test.sh BUILD_FOLDER
source "$(dirname "$0")/../lib/start_head.sh"
need node ffprobe
npm_ci onvif
# In a network of its own when the machine allows it, so that the multicast
# Probe is tried too: lo up, multicast routed over it.
listen=127.0.0.1
if [ -z "${SLEWONVIF_NETNS:-}" ] && unshare -rn true 2>/dev/null; then
  exec unshare -rn env SLEWONVIF_NETNS=1 bash -c \
    'ip link set lo up multicast on && ip route add 239.0.0.0/8 dev lo && exec "$0" "$@"' "$0" "$@"
fi
[ -z "${SLEWONVIF_NETNS:-}" ] || listen=0.0.0.0

start_head
echo "the password of the test" >"$state/password"
start_server slewonvif --listen "$listen:0" --discovery-port 0 --rtsp-port "${rtsp##*:}" \
  --snapshot-port "${http##*:}" --user admin --password-file "$state/password"
device=$(await_line "$state/server.out" 'http://[0-9.]*:[0-9]*')
discovery=$(await_line "$state/server.out" 'udp [0-9.]*:[0-9]*')
client() { node "$here/onvif_client_test.mjs" "${device##*:}" "${discovery##*:}" "$http" "$rtsp" "$build/slewctl" "$state/password"; }
status=0
MULTICAST=${SLEWONVIF_NETNS:-} client || status=$?
# slewd restarted under the same slewonvif: presets and the status come back.
kill -TERM "$slewd_pid"
wait "$slewd_pid" 2>/dev/null || true
start_slewd
AFTER_RESTART=1 client || status=1
finish "$status"
