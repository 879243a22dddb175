#!/usr/bin/env bash
# Builds and runs every test: the plain build with warnings as errors (with
# the Debian package's install test), the same suite cross-built for 64-bit
# Arm and run under qemu-aarch64 with the scenario transcripts of both builds
# compared byte for byte, the suite under AddressSanitizer and
# UndefinedBehaviorSanitizer, the bus and real-time tests under
# ThreadSanitizer, and a short fuzzing run. It ends with every failed test:
# its suite, its first failing line and the log that holds the rest.
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
jobs=2
total_pass=0
total_fail=0
mkdir -p "$root/build-test"
failures="$root/build-test/failures.txt"
: >"$failures"

# Notes a failure that is not a ctest test: what failed, and its log.
note_failure() {
  echo "$1" >>"$failures"
  total_fail=$((total_fail + 1))
}

# Configures, builds and runs ctest in one build folder; counts results.
suite() {
  local name=$1 filter=$2; shift 2
  local dir="$root/build-test/$name"
  echo "== $name"
  mkdir -p "$dir"
  if ! { cmake --no-warn-unused-cli -S "$root" -B "$dir" -G Ninja -DSLEWD_WERROR=ON "$@" &&
         ninja -C "$dir" -j$jobs; } >"$dir/build.log" 2>&1; then
    tail -n 30 "$dir/build.log"
    note_failure "$name: the build failed: $(grep -m1 -E 'error|Error' "$dir/build.log" || tail -n1 "$dir/build.log")"
    echo "   full log: $dir/build.log" >>"$failures"
    return
  fi
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
  local before; before=$(wc -l <"$failures")
  "$root/scripts/first-failures.sh" "$name" "$log" >>"$failures"
  if [ $status -ne 0 ] && [ "$(wc -l <"$failures")" -eq "$before" ]; then
    echo "$name: ctest exited with $status and named no failed test" >>"$failures"
  fi
  [ $status -eq 0 ] || echo "   full log: $log" >>"$failures"
}

# Adds a script's closing "N passed, M failed" to the totals; a failure is
# named with the log's first line and its path.
count_closing_line() {
  local what=$1 log=$2 line; line=$(tail -n1 "$log")
  if [[ $line =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
    total_pass=$((total_pass + BASH_REMATCH[1]))
    total_fail=$((total_fail + BASH_REMATCH[2]))
    [ "${BASH_REMATCH[2]}" -eq 0 ] && return
    echo "$what: $(head -n1 "$log")" >>"$failures"
  else
    note_failure "$what: no closing count: $(tail -n1 "$log")"
  fi
  echo "   full log: $log" >>"$failures"
}

# The programs of the arm64 build are arm64 binaries.
check_arm64_binaries() {
  local dir=$1 program
  for program in slewd slewsim slewctl tests/slewd_tests; do
    local kind; kind=$(file -b "$dir/$program" 2>&1 || true)
    if [[ $kind == *"ARM aarch64"* ]]; then
      total_pass=$((total_pass + 1))
    else
      note_failure "arm64: $program: expected an arm64 binary, found: $kind"
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
count_closing_line "transcripts, x86-64 against arm64" "$compare_log"
echo "arm64 build, tests under qemu and comparison: $((SECONDS - arm64_start)) s"
suite asan-ubsan "" -DCMAKE_BUILD_TYPE=Debug -DSLEWD_SANITIZE=address,undefined
suite tsan "Bus|Realtime|Slewctl" -DCMAKE_BUILD_TYPE=Debug -DSLEWD_SANITIZE=thread
if [ -x "$root/scripts/fuzz.sh" ]; then
  echo "== fuzz"
  if "$root/scripts/fuzz.sh" 60; then
    total_pass=$((total_pass + 1))
  else
    note_failure "fuzz: a target failed; its log is build-test/fuzz/<target>.log"
  fi
fi

echo "$total_pass passed, $total_fail failed"
if [ -s "$failures" ]; then
  echo "== failed"
  cat "$failures"
fi
[ "$total_fail" -eq 0 ] || exit 1
