#!/usr/bin/env bash
# Builds slewd and starts it on the simulated camera, in real time.
# Arguments are passed to slewd (e.g. `scripts/run.sh spddry 2`).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
echo "configuring build/ ..."
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
echo "building slewd, slewctl and slewsim (the first build takes a few minutes) ..."
ninja -C "$root/build" slewd slewctl slewsim
exec "$root/build/slewd" "$@"
