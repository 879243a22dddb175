#!/usr/bin/env bash
# Compares the scenario transcripts of two builds byte for byte (the scenario
# tests leave them in BUILD/transcripts/). Every scenario under
# tests/scenarios must have one in both. Prints each difference and, last,
# "N passed, M failed"; exit 0 when all are the same.
set -Eeuo pipefail
# A command that stops this script under set -e names itself.
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
root=$(cd "$(dirname "$0")/.." && pwd)
first=$1/transcripts
second=$2/transcripts
passed=0
failed=0
while IFS= read -r scenario; do
  name=$(basename "$scenario" .scn)
  if [ ! -f "$first/$name.txt" ] || [ ! -f "$second/$name.txt" ]; then
    echo "transcript missing: $name"
    failed=$((failed + 1))
  elif cmp -s "$first/$name.txt" "$second/$name.txt"; then
    passed=$((passed + 1))
  else
    echo "transcripts differ: $name"
    diff "$first/$name.txt" "$second/$name.txt" | head -n 6 || true
    failed=$((failed + 1))
  fi
done < <(find "$root/tests/scenarios" -name '*.scn' | sort)
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
