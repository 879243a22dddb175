#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, ASan, UBSan) and runs each
# from its seeds, sharing the given number of seconds (default 60) between
# them. Exit 0 when nothing failed.
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
dir="$root/build-test/fuzz"
# target:seed folder under tests/fuzz:longest input
targets=(command_fuzz:seeds:600 srecord_fuzz:srecord_seeds:4096 listener_fuzz:listener_seeds:1024
  protocol_fuzz:protocol_seeds:2048 onvif_soap_fuzz:onvif_soap_seeds:4096 onvif_digest_fuzz:onvif_digest_seeds:2048
  render_fuzz:render_seeds:2048)
mkdir -p "$dir"
if ! { CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
         -DSLEWD_FUZZ=ON -DBUILD_TESTING=OFF && ninja -C "$dir" "${targets[@]%%:*}"; } >"$dir/build.log" 2>&1; then
  tail -n 30 "$dir/build.log"
  echo "fuzz.sh: the fuzz build failed; full log: $dir/build.log" >&2
  exit 1
fi
# The renderer's font library keeps its configuration until exit on purpose.
export LSAN_OPTIONS="suppressions=$root/tests/fuzz/lsan.supp"
share=$(( seconds / ${#targets[@]} ))
[ "$share" -ge 1 ] || share=1
status=0
for entry in "${targets[@]}"; do
  IFS=: read -r target seeds max_len <<<"$entry"
  corpus="$dir/corpus-$target"
  mkdir -p "$corpus"
  cp "$root/tests/fuzz/$seeds"/* "$corpus/"
  cp "$root/tests/fuzz/findings/$target"/* "$corpus/" 2>/dev/null || true
  echo "-- $target"
  "$dir/$target" -max_total_time="$share" -max_len="$max_len" -print_final_stats=1 \
    "$corpus" >"$dir/$target.log" 2>&1 || status=$?
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|SUMMARY|ERROR' "$dir/$target.log" || true
done
exit $status
