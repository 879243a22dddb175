#!/usr/bin/env bash
# Runs the plain suite N times (default 20) with the machine loaded by two
# busy loops beside it, and lists every test that failed at least once with
# its failure count and its first failing line. Outside CI, like a
# benchmark: it finds the tests that fail only now and then.
# Usage: scripts/repeat.sh [N] [BUILD_DIR]
set -Eeuo pipefail
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-20}
dir=${2:-$root/build-test/plain}
[[ $runs =~ ^[1-9][0-9]*$ ]] || { echo "repeat.sh: N must be a whole number above 0, not '$runs'" >&2; exit 2; }
"$root/scripts/install-deps.sh"
cmake --no-warn-unused-cli -S "$root" -B "$dir" -G Ninja -DSLEWD_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C "$dir" -j2 >/dev/null

loads=()
# Ends the busy loops however the script ends.
stop_loads() { [ ${#loads[@]} -eq 0 ] || kill "${loads[@]}" 2>/dev/null || true; }
trap stop_loads EXIT
for _ in 1 2; do
  (while :; do :; done) &
  loads+=($!)
done

logs="$dir/repeat"
rm -rf "$logs"
mkdir -p "$logs"
for run in $(seq "$runs"); do
  status=0
  (cd "$dir" && ctest -j2 --timeout 600 --output-on-failure) >"$logs/run-$run.log" 2>&1 || status=$?
  "$root/scripts/first-failures.sh" "run $run" "$logs/run-$run.log" >"$logs/run-$run.failed"
  echo "run $run of $runs: $(grep -cv '^$' "$logs/run-$run.failed" || true) failed (ctest status $status)"
done
stop_loads
loads=()

echo "== tests that failed at least once in $runs runs"
cat "$logs"/run-*.failed >"$logs/all.failed"
if [ ! -s "$logs/all.failed" ]; then
  echo "none"
  exit 0
fi
# "run K: TEST: line" -> per test: count, then the first line seen.
awk -F': ' '{ name = $2; n[name]++; if (!(name in first)) first[name] = substr($0, length($1 ": " $2 ": ") + 1) }
  END { for (t in n) printf "%3d  %s  %s\n", n[t], t, first[t] }' "$logs/all.failed" | sort -rn
echo "logs: $logs"
exit 1
