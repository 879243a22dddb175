#!/usr/bin/env bash
# Builds slewd and starts it on the simulated camera, in real time.
# Arguments are passed to slewd (e.g. `scripts/run.sh spddry 2`).
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
root=$(cd "$(dirname "$0")/.." && pwd)
# Only what building and running needs; the test command installs the rest.
"$root/scripts/install-deps.sh" run
echo "configuring build/ ..."
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF >/dev/null
echo "building slewd and its tools (the first build takes a few minutes) ..."
ninja -C "$root/build" slewd slewctl slewsim slewweb slewvideo slewonvif
exec "$root/build/slewd" "$@"
