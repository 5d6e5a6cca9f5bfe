#!/bin/sh
# Runs each fuzzer in a build folder for a number of seconds. Stops at the first failure.
# Usage: scripts/fuzz.sh BUILD_FOLDER SECONDS
#
# A fuzzer starts from the committed inputs. New inputs, its log and the input that made it fail are
# kept in BUILD_FOLDER/fuzz/runs.
set -eu
CDPATH= cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh

build=${1:-}
seconds=${2:-}
case $seconds in
  '' | *[!0-9]* | 0*) fail "usage: $0 BUILD_FOLDER SECONDS (1 or more)" ;;
esac
[ -d "$build/fuzz" ] || fail "no fuzzers in '$build'"
clean_environment

# explain THING LOG: prints the failed check or the sanitizer's report, and how to reproduce it.
explain() {
  grep -n -E 'fuzz check failed|runtime error|ERROR: |SUMMARY: ' "$2" || tail -n 20 "$2"
  input=$(sed -n 's/.*Test unit written to //p' "$2" | tail -n 1)
  [ -z "$input" ] || echo "To reproduce the failure: $build/fuzz/fuzz-$1 $input"
  echo "The full log: $2"
}

# run_fuzzer THING: runs fuzz-THING; sets log to the name of its log.
run_fuzzer() {
  folder=$build/fuzz/runs/$1
  log=$folder/log
  mkdir -p "$folder/found" "$folder/failures"
  "$build/fuzz/fuzz-$1" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$folder/failures/" "$folder/found" "fuzz/corpus/$1" \
    </dev/null >"$log" 2>&1
}

passed=0
failed=0
for corpus in fuzz/corpus/*/; do
  thing=$(basename "$corpus")
  echo "== fuzz: $thing, $seconds seconds"
  if run_fuzzer "$thing"; then
    sed -n 's/^stat::number_of_executed_units: */inputs run: /p' "$log"
    passed=$((passed + 1))
  else
    explain "$thing" "$log"
    failed=1
    break
  fi
done
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && [ "$passed" -gt 0 ]
