#!/usr/bin/env bash
# Builds and runs every test: the plain build with warnings as errors (with
# the Debian package's install test), the same suite cross-built for 64-bit
# Arm and run under qemu-aarch64 with the scenario transcripts of both builds
# compared byte for byte, the suite under AddressSanitizer and
# UndefinedBehaviorSanitizer, the bus and real-time tests under
# ThreadSanitizer, and a short fuzzing run.
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
  cmake --no-warn-unused-cli -S "$root" -B "$dir" -G Ninja -DSLEWD_WERROR=ON "$@" >/dev/null
  ninja -C "$dir" -j$jobs >/dev/null
  rm -f "$dir"/transcripts/*.txt
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

# Adds a script's closing "N passed, M failed" to the totals.
count_closing_line() {
  local line=$1
  if [[ $line =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
    total_pass=$((total_pass + BASH_REMATCH[1]))
    total_fail=$((total_fail + BASH_REMATCH[2]))
  else
    total_fail=$((total_fail + 1))
  fi
}

# The programs of the arm64 build are arm64 binaries.
check_arm64_binaries() {
  local dir=$1 program
  for program in slewd slewsim slewctl tests/slewd_tests; do
    if file -b "$dir/$program" | grep -q 'ARM aarch64'; then
      total_pass=$((total_pass + 1))
    else
      echo "not an arm64 binary: $dir/$program ($(file -b "$dir/$program"))"
      total_fail=$((total_fail + 1))
    fi
  done
}

suite plain "" -DCMAKE_BUILD_TYPE=RelWithDebInfo
arm64_start=$SECONDS
suite arm64 "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake"
check_arm64_binaries "$root/build-test/arm64"
echo "== transcripts, x86-64 against arm64"
compare_log="$root/build-test/arm64/compare.log"
"$root/scripts/compare-transcripts.sh" "$root/build-test/plain" "$root/build-test/arm64" >"$compare_log" 2>&1 || true
tail -n 25 "$compare_log"
count_closing_line "$(tail -n1 "$compare_log")"
echo "arm64 build, tests under qemu and comparison: $((SECONDS - arm64_start)) s"
suite asan-ubsan "" -DCMAKE_BUILD_TYPE=Debug -DSLEWD_SANITIZE=address,undefined
suite tsan "Bus|Realtime|Slewctl" -DCMAKE_BUILD_TYPE=Debug -DSLEWD_SANITIZE=thread
if [ -x "$root/scripts/fuzz.sh" ]; then
  echo "== fuzz"
  if "$root/scripts/fuzz.sh" 60; then total_pass=$((total_pass + 1)); else total_fail=$((total_fail + 1)); fi
fi

echo "$total_pass passed, $total_fail failed"
[ "$total_fail" -eq 0 ]
