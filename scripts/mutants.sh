#!/usr/bin/env bash
# Measures what the plain suite catches: plants each fault of a reviewed list
# (scripts/mutants.list) in a scratch copy of the tree, one at a time, builds,
# runs the plain suite and records which tests failed. Prints each fault's
# catchers, the kill rate, and for each test file the faults it alone catches.
# Not part of the test command: a run takes one build and one suite per fault.
# The few tests that take over 8 s in the unplanted run (they wait on real
# time: restarts, streams, browsers) run only for a fault the others miss, so
# a run takes about half an hour; their lone catches are counted, the rest of
# their catches are not.
#
#   scripts/mutants.sh [-j JOBS] [-w WORKERS] [-o OUT] [-n IDS] [LIST]
#   scripts/mutants.sh -r OUT        the report of an earlier run again
#
# -j  tests run at once within a suite (default 6: most of the suite waits on
#     real time, not on the processor)
# -w  scratch copies working on different faults at once (default 1)
# -o  the run's folder: scratch copies, logs, results.txt (default
#     /tmp/slewd-mutants)
# -n  only these faults, by number in the list (e.g. 3,17,40), to recheck
#     survivors
set -Eeuo pipefail
trap '_failed=$?; echo "$(basename "$0"): line $LINENO: \"$BASH_COMMAND\" exited with status $_failed" >&2' ERR
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=6 workers=1 out=/tmp/slewd-mutants only="" report_only=""
usage() { sed -n 's/^#   scripts/scripts/p' "$0" >&2; exit 2; }
while getopts "j:w:o:n:r:" opt; do
  case $opt in
    j) jobs=$OPTARG ;;
    w) workers=$OPTARG ;;
    o) out=$OPTARG ;;
    n) only=",$OPTARG," ;;
    r) out=$OPTARG report_only=1 ;;
    *) usage ;;
  esac
done
shift $((OPTIND - 1))
list=${1:-$root/scripts/mutants.list}
[[ $jobs =~ ^[1-9][0-9]*$ && $workers =~ ^[1-9][0-9]*$ ]] || { echo "mutants.sh: -j and -w take a count" >&2; exit 2; }
[ -r "$list" ] || { echo "mutants.sh: no fault list at $list" >&2; exit 2; }

# The faults, one per line: path ~~ text as it stands ~~ planted text ~~ the slip.
mapfile -t faults < <(grep -v -e '^#' -e '^[[:space:]]*$' "$list")
field() { local line=$1 n=$2; awk -F ' ~~ ' -v n="$n" '{print $n}' <<<"$line"; }

# The test file a ctest name comes from.
test_file() {
  local name=$1
  case $name in
    scenario.*) echo "tests/scenarios/${name#scenario.}.scn" ;;
    fuzz_replay.*) echo "tests/fuzz/${name#fuzz_replay.}.cpp" ;;
    web.browser) echo tests/web/browser_test.mjs ;;
    onvif.npm_client) echo tests/onvif/onvif_client_test.mjs ;;
    package.install_and_run) echo tests/package/install_package_test.sh ;;
    store.full_disk) echo tests/store/full_disk_test.sh ;;
    soak.*) echo "slewsim --soak" ;;
    *)
      local suite=${name#*/}; suite=${suite%%.*}
      local file; file=$(grep -rlE "TEST(_F|_P)?\\($suite," "$root/tests" --include='*.cpp' | head -n1 || true)
      [ -n "$file" ] && echo "${file#"$root"/}" || echo "$name (no longer in tests/)"
      ;;
  esac
}

# Copies the tree as it stands (tracked files) into a scratch folder and
# builds it once, without debug information to keep links short.
prepare() {
  local dir=$1
  mkdir -p "$dir/tree"
  (cd "$root" && git ls-files -z | tar --null -T - -cf -) | tar -xf - -C "$dir/tree"
  local npm
  for npm in tests/web tests/onvif; do
    [ ! -d "$root/$npm/node_modules" ] || cp -a "$root/$npm/node_modules" "$dir/tree/$npm/"
  done
  local launcher=""
  command -v ccache >/dev/null && launcher=-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
  cmake --no-warn-unused-cli -S "$dir/tree" -B "$dir/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g0 -DNDEBUG" $launcher \
    $(command -v ld.lld >/dev/null && echo -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld) >"$dir/configure.log" 2>&1
  build "$dir" >"$dir/build.log" 2>&1 || { tail -n 20 "$dir/build.log"; exit 1; }
}

# Builds every program the suite runs; the benchmarks are left out.
build() {
  local dir=$1 targets
  targets=$(ninja -C "$dir/build" -t targets all | sed -nE 's/^([^:[]+): CXX_EXECUTABLE_LINKER.*/\1/p' | grep -v '^bench/')
  # shellcheck disable=SC2086
  ninja -C "$dir/build" $targets
}

# Runs the plain suite in a build folder (or the part of it that ctest's
# further arguments choose); prints the names of failed tests.
failed_tests() {
  local build=$1 log=$2; shift 2
  (cd "$build" && rm -f transcripts/*.txt && ctest -j"$jobs" --timeout 240 --output-on-failure "$@" >"$log" 2>&1) || true
  sed -nE 's/^[[:space:]]*[0-9]+ - ([^ ]+) \((Failed|Timeout|Subprocess.*|SEGFAULT|Exception.*|Not Run)\).*/\1/p' "$log" | sort -u
}

# The tests that took over 8 s in a ctest log, as one anchored pattern.
slow_pattern() {
  sed -nE 's/.*Test +#[0-9]+: ([^ ]+) \.+ +Passed +([0-9.]+) sec.*/\2 \1/p' "$1" |
    awk '$1 > 8 {print $2}' | sed 's/[].[]/\\&/g' | paste -sd'|' | sed -E 's/(.+)/^(\1)$/'
}

# Plants fault number n in the worker's tree, builds and runs the suite;
# appends "n <tab> outcome <tab> catchers" to the worker's results.
try_fault() {
  local dir=$1 n=$2 line=${faults[$(($2 - 1))]}
  local path old new; path=$(field "$line" 1) old=$(field "$line" 2) new=$(field "$line" 3)
  local file="$dir/tree/$path" result
  if [ ! -f "$file" ] || [ "$(grep -cF -- "$old" "$file")" != 1 ]; then
    result="not-applied"
  else
    cp -p "$file" "$dir/original"
    OLD=$old NEW=$new perl -0pi -e 's/\Q$ENV{OLD}\E/$ENV{NEW}/' "$file"
    if ! build "$dir" >"$dir/logs/$n.build.log" 2>&1; then
      result="build-failed"
    else
      local caught; caught=$(failed_tests "$dir/build" "$dir/logs/$n.ctest.log" -E "$slow" | paste -sd, -)
      [ -n "$caught" ] || caught=$(failed_tests "$dir/build" "$dir/logs/$n.slow.ctest.log" -R "$slow" | paste -sd, -)
      result=$([ -n "$caught" ] && echo "killed	$caught" || echo "survived")
    fi
    cp "$dir/original" "$file" && touch "$file"
  fi
  printf '%s\t%s\n' "$n" "$result" >>"$dir/results.txt"
  printf '%3d %-12s %s\n' "$n" "${result%%	*}" "$(field "$line" 4)"
}

# One worker: a scratch copy, a clean run that must pass, then its share of
# the faults (every workers-th, from its index).
worker() {
  local w=$1 dir="$out/w$1" slow
  rm -rf "$dir"; mkdir -p "$dir/logs"
  prepare "$dir"
  local clean; clean=$(failed_tests "$dir/build" "$dir/logs/clean.ctest.log")
  # A test that fails once unplanted and passes again is only named here:
  # a catch of its alone is worth less.
  if [ -n "$clean" ]; then
    echo "worker $w: failed unplanted, run again: $clean"
    clean=$(failed_tests "$dir/build" "$dir/logs/clean.again.ctest.log" -R "^($(paste -sd'|' <<<"$clean"))\$")
  fi
  if [ -n "$clean" ]; then
    echo "mutants.sh: the unplanted suite fails in $dir ($clean): no fault can be judged" >&2
    exit 1
  fi
  slow=$(slow_pattern "$dir/logs/clean.ctest.log")
  [ -n "$slow" ] || slow='^$'
  echo "worker $w: run only for faults the rest misses: $slow"
  : >"$dir/results.txt"
  local n
  for ((n = w + 1; n <= ${#faults[@]}; n += workers)); do
    [ -z "$only" ] || [[ $only == *",$n,"* ]] || continue
    try_fault "$dir" "$n"
  done
}

# The report: each fault's catchers, the kill rate, each file's lone catches.
report() {
  local results; results=$(sort -n "$out"/w*/results.txt)
  echo "== faults and the tests that caught them"
  local killed=0 judged=0 survivors=""
  declare -A alone=()
  while IFS=$'\t' read -r n outcome caught; do
    local line=${faults[$((n - 1))]}
    echo "$n. $(field "$line" 1): $(field "$line" 4): $outcome${caught:+ by $caught}"
    case $outcome in
      killed)
        judged=$((judged + 1)) killed=$((killed + 1))
        local files; files=$(tr ',' '\n' <<<"$caught" | while read -r t; do test_file "$t"; done | sort -u)
        [ -n "$files" ] && [ "$(wc -l <<<"$files")" -eq 1 ] && alone[$files]+="$n "
        ;;
      survived) judged=$((judged + 1)) survivors+="$n " ;;
    esac
  done <<<"$results"
  echo "== killed $killed of $judged judged faults ($(awk -v k=$killed -v j=$judged 'BEGIN{printf "%.1f", j ? 100*k/j : 0}') %)"
  echo "survivors: ${survivors:-none}"
  echo "== faults caught by one test file alone"
  local f
  for f in "${!alone[@]}"; do echo "$f: ${alone[$f]}"; done | sort
}

if [ -z "$report_only" ]; then
  rm -rf "$out"; mkdir -p "$out"
  pids=()
  for ((w = 0; w < workers; ++w)); do worker "$w" & pids+=($!); done
  for pid in "${pids[@]}"; do wait "$pid"; done
fi
report | tee "$out/report.txt"
