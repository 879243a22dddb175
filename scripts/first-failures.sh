#!/usr/bin/env bash
# Reads a ctest log (run with --output-on-failure) and prints one line for
# each failed test: SUITE: TEST: its first failing line, that is the first
# line of its output that says what went wrong (with gtest's next lines, up
# to five, when that one says only where), else ctest's own verdict.
# Usage: first-failures.sh SUITE CTEST_LOG
set -euo pipefail
suite=$1
log=$2
[ -f "$log" ] || { echo "$suite: no ctest log at $log"; exit 0; }
awk -v suite="$suite" '
  # A result line: "  3/256 Test  #12: name ....***Failed  0.1 sec".
  function result_line(s) { return s ~ /^ *[0-9]+\/[0-9]+ +Test +#[0-9]+: / }
  function start_line(s) { return s ~ /^ +Start +[0-9]+: / }
  function flush() {
    if (name != "") print suite ": " name ": " (first != "" ? first : verdict)
    name = ""
  }
  result_line($0) || start_line($0) || /^[0-9]+% tests passed/ { flush() }
  result_line($0) && /\*\*\*/ && !/\*\*\*Skipped/ {
    line = $0
    sub(/^ *[0-9]+\/[0-9]+ +Test +#[0-9]+: /, "", line)
    name = line; sub(/ .*/, "", name)
    verdict = line; sub(/^[^ ]+ [ .]*/, "", verdict); sub(/ +[0-9.]+ sec$/, "", verdict)
    first = ""; want_next = 0
    next
  }
  name != "" && want_next > 0 {
    if (!NF || /^\[  FAILED  \]/ || / Failure$/) { want_next = 0 }
    else { t = $0; gsub(/^ +| +$/, "", t); first = first " | " t; want_next--; next }
  }
  name != "" && first == "" && /(^FAIL|[Ff]ailure|FAILED|[Ee]rror|[Ee]xpected|timed out|Timeout|Sanitizer|runtime error|Assertion|differ|not )/ && !/^\[ +(RUN|OK) +\]/ {
    first = $0
    # gtest says where on one line and what on the next.
    if ($0 ~ /: Failure$/) want_next = 5
  }
  END { flush() }
' "$log"
