#!/usr/bin/env bash
# Builds the fuzz target with clang (libFuzzer, ASan, UBSan) and runs it
# for the given number of seconds (default 60). Exit 0 when nothing failed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
dir="$root/build-test/fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSLEWD_FUZZ=ON -DBUILD_TESTING=OFF >/dev/null
ninja -C "$dir" command_fuzz >/dev/null
mkdir -p "$dir/corpus"
cp "$root"/tests/fuzz/seeds/* "$dir/corpus/"
status=0
"$dir/command_fuzz" -max_total_time="$seconds" -max_len=160 -print_final_stats=1 \
  "$dir/corpus" >"$dir/fuzz.log" 2>&1 || status=$?
grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|SUMMARY|ERROR' "$dir/fuzz.log" || true
exit $status
