#!/bin/sh
# Runs the fuzzers of a build folder, or minimises their committed inputs.
# Usage: scripts/fuzz.sh BUILD_FOLDER SECONDS [THING...]       each fuzzer for that many seconds
#        scripts/fuzz.sh BUILD_FOLDER --runs COUNT [THING...]  each for that many runs
#        scripts/fuzz.sh BUILD_FOLDER --merge [THING...]       see below
#
# THING is a folder of fuzz/corpus; all of them if none is given. Two fuzzers run at a time. After a
# failure no other is started. For each fuzzer one line says how many inputs were run, the coverage
# as libFuzzer counts it (cov: edges, ft: features), and how many inputs were new.
#
# A fuzzer starts from the committed inputs, with the options in fuzz/settings. New inputs, its log
# and the input that made it fail are kept in BUILD_FOLDER/fuzz/runs.
#
# --merge adds to the committed inputs those new ones that cover more edges. What it adds is named
# by 12 hexadecimal digits, and it removes what has such a name and is not needed any more. Inputs
# with any other name stay.
set -eu
CDPATH= cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh

jobs=2

usage() {
  fail "usage: $0 BUILD_FOLDER SECONDS|--runs COUNT|--merge [THING...] (numbers: 1 or more)"
}

build=${1:-}
mode=${2:-}
number=1
case $mode in
  --merge) limit='' ;;
  --runs)
    limit=-runs
    number=${3:-}
    ;;
  *)
    limit=-max_total_time
    number=$mode
    ;;
esac
case $number in
  '' | 0* | *[!0-9]*) usage ;;
esac
[ "$mode" != --runs ] || shift
shift 2
[ -d "$build/fuzz" ] || fail "no fuzzers in '$build'"
clean_environment

# value_of NAME: the last value of a statistic in the log, 0 if there is none.
value_of() {
  sed -n "s/.*$1: *\([0-9][0-9]*\).*/\1/p" "$log" | tail -n 1 | grep . || echo 0
}

# run_fuzzer THING ARGUMENT...: runs fuzz-THING with its output in the log.
run_fuzzer() {
  program=$build/fuzz/fuzz-$1
  settings=$(sed -n "s/^$1 //p" fuzz/settings)
  shift
  # shellcheck disable=SC2086 # the settings are a list of options
  "$program" -max_len=4096 -timeout=10 -rss_limit_mb=2048 $settings -print_final_stats=1 "$@" \
    </dev/null >"$log" 2>&1
}

# explain THING: prints the failed check or the sanitizer's report, and how to reproduce it.
explain() {
  grep -n -E 'fuzz check failed|runtime error|ERROR: |SUMMARY: ' "$log" || tail -n 20 "$log"
  input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
  [ -z "$input" ] || echo "To reproduce the failure: $build/fuzz/fuzz-$1 $input"
  echo "The full log: $log"
}

# fuzz_one THING: runs a fuzzer and prints its line.
fuzz_one() {
  if ! run_fuzzer "$1" "$limit=$number" -artifact_prefix="$folder/failures/" "$folder/found" \
    "fuzz/corpus/$1"; then
    echo "$1: FAILED
$(explain "$1")"
    return 1
  fi
  runs=$(value_of stat::number_of_executed_units)
  echo "$1: $runs runs, cov $(value_of cov), ft $(value_of ft)," \
    "$(value_of stat::new_units_added) new inputs"
  echo "$runs" >"$folder/passed"
}

was_merged() {
  case $1 in
    *[!0-9a-f]*) return 1 ;;
    ????????????) return 0 ;;
    *) return 1 ;;
  esac
}

# merge_one THING: minimises its committed inputs and prints how many there are then.
merge_one() {
  corpus=fuzz/corpus/$1
  earlier=$folder/earlier
  added=$folder/added
  rm -rf "$earlier" "$added"
  mkdir "$earlier" "$added"
  for input in "$corpus"/*; do
    folder_for_copy=$added
    ! was_merged "${input##*/}" || folder_for_copy=$earlier
    cp "$input" "$folder_for_copy" || return 1
  done
  kept=$(find "$added" -type f | wc -l)
  if ! run_fuzzer "$1" -use_counters=0 -merge=1 "$added" "$earlier" "$folder/found"; then
    echo "$1: FAILED
$(explain "$1")"
    return 1
  fi
  for input in "$added"/*; do
    name=${input##*/}
    [ -e "$corpus/$name" ] || cp "$input" "$corpus/$(printf %.12s "$name")" || return 1
  done
  for input in "$earlier"/*; do
    name=${input##*/}
    [ ! -e "$input" ] || find "$added" -name "$name*" | grep -q . || rm "$corpus/$name"
  done
  find "$folder/found" -type f -delete
  echo "$1: $((kept)) inputs kept, $(($(find "$added" -type f | wc -l) - kept)) others"
  echo 0 >"$folder/passed"
}

# One fuzzer, alone or for the call below. After a failure the others that run there finish, and no
# other begins: STOP_FILE exists then.
if [ $# = 1 ]; then
  if [ -n "${STOP_FILE:-}" ] && [ -e "$STOP_FILE" ]; then
    exit 1
  fi
  [ -d "fuzz/corpus/$1" ] || fail "no inputs in fuzz/corpus/$1"
  folder=$build/fuzz/runs/$1
  log=$folder/log
  mkdir -p "$folder/found" "$folder/failures"
  rm -f "$folder/passed"
  case $mode in
    --merge) one=merge_one ;;
    *) one=fuzz_one ;;
  esac
  "$one" "$1" && exit 0
  [ -z "${STOP_FILE:-}" ] || : >"$STOP_FILE"
  exit 1
fi

things=$*
[ -n "$things" ] || things=$(ls fuzz/corpus)
[ -n "$things" ] || fail "no inputs in fuzz/corpus"
for thing in $things; do
  rm -f "$build/fuzz/runs/$thing/passed"
done
arguments=$mode
what="$mode seconds each"
case $mode in
  --merge) what='merging their inputs' ;;
  --runs)
    arguments="--runs $number"
    what="$number runs each"
    ;;
esac
echo "== fuzz: $(echo "$things" | wc -w) fuzzers, $what"
status=0
export STOP_FILE="$build/fuzz/runs/stop"
rm -f "$STOP_FILE"
# shellcheck disable=SC2086 # two arguments
echo "$things" | xargs -n 1 -P "$jobs" scripts/fuzz.sh "$build" $arguments || status=1

passed=0
failed=0
runs=0
for thing in $things; do
  result=$build/fuzz/runs/$thing/passed
  if [ -f "$result" ]; then
    passed=$((passed + 1))
    runs=$((runs + $(cat "$result")))
  else
    failed=$((failed + 1)) # or not begun after another had failed
  fi
done
echo "$runs runs"
echo "$passed passed, $failed failed"
[ "$status" = 0 ] && [ "$passed" -gt 0 ]
