#!/usr/bin/env bash
# Builds and runs every test: the plain build with warnings as errors, the
# same suite under AddressSanitizer and UndefinedBehaviorSanitizer, the bus
# and real-time tests under ThreadSanitizer, and a short fuzzing run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
jobs=2
total_pass=0
total_fail=0

# Configures, builds and runs ctest in one build folder; counts results.
suite() {
  local name=$1 filter=$2; shift 2
  local dir="$root/build-test/$name"
  echo "== $name"
  cmake -S "$root" -B "$dir" -G Ninja -DSLEWD_WERROR=ON "$@" >/dev/null
  ninja -C "$dir" -j$jobs >/dev/null
  local log="$dir/ctest.log" status=0
  (cd "$dir" && ctest -j$jobs --timeout 600 --output-on-failure ${filter:+-R "$filter"}) >"$log" 2>&1 || status=$?
  tail -n 25 "$log"
  local line; line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n1 || true)
  local failed; failed=$(echo "$line" | sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/')
  local all; all=$(echo "$line" | sed -E 's/.* failed out of ([0-9]+).*/\1/')
  [ -n "$all" ] || { all=0; failed=1; }
  total_pass=$((total_pass + all - failed))
  total_fail=$((total_fail + failed))
  [ $status -eq 0 ] || echo "$name: ctest exited with $status"
}

suite plain "" -DCMAKE_BUILD_TYPE=RelWithDebInfo
suite asan-ubsan "" -DCMAKE_BUILD_TYPE=Debug -DSLEWD_SANITIZE=address,undefined
suite tsan "Bus|Realtime|Slewctl" -DCMAKE_BUILD_TYPE=Debug -DSLEWD_SANITIZE=thread
if [ -x "$root/scripts/fuzz.sh" ]; then
  echo "== fuzz"
  if "$root/scripts/fuzz.sh" 60; then total_pass=$((total_pass + 1)); else total_fail=$((total_fail + 1)); fi
fi

echo "$total_pass passed, $total_fail failed"
[ "$total_fail" -eq 0 ]
