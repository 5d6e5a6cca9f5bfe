#!/bin/sh
# Runs the test programs of the preset dev under valgrind, two at a time: it reports reads of
# uninitialised memory, which the sanitizers do not, and leaks.
# Usage: scripts/valgrind.sh [--quick | NAME...]
# A NAME is that of a test program without "-test", or a pattern; without one, all run. With --quick
# all but the slow ones run.
set -eu
CDPATH='' cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh
clean_environment
need valgrind

# Left out, as patterns of program names:
#   tool-*, outcome-schema, real-peers, check-for-update, sample-service-*: they start other
#     programs and wait for them; valgrind would watch the test alone
#   harness, transaction-waiting, transaction-time: nearly all of their time is waiting
#   transaction-signals: a signal each millisecond, faster than valgrind delivers one
#   servers-and-proxies, readme, options-pages, json-line: they compare documents
#   transforms-reference, dates-reference: millions of comparisons, which take minutes
#   update-faults: counts the calls of malloc by operator new, which valgrind replaces
left_out() {
  case $1 in
    tool-* | outcome-schema | real-peers | check-for-update | sample-service-* | harness | \
      transaction-signals | transaction-waiting | transaction-time | servers-and-proxies | \
      readme | options-pages | json-line | transforms-reference | dates-reference | \
      update-faults) return 0 ;;
  esac
  return 1
}

# The slow ones: most of the time is theirs.
is_slow() {
  case $1 in
    dates | files-remove-tree-exchange | files-remove-tree-faults* | hostile-peers | \
      long-options-random | parse-float | reply-splits | safe-text | transaction-memory | \
      transaction-reply | update-failures | version-update-body) return 0 ;;
  esac
  return 1
}

# is_wanted NAME PATTERN...
is_wanted() {
  name=$1
  shift
  [ $# != 0 ] || return 0
  if [ "$1" = --quick ]; then
    is_slow "$name" && return 1
    return 0
  fi
  for pattern in "$@"; do
    # shellcheck disable=SC2254 # a pattern
    case $name in
      $pattern) return 0 ;;
    esac
  done
  return 1
}

# Tests named Slow wait for the ten seconds of the time limit. In the two others, execve fails, at
# which valgrind ends the process.
left_out_tests='*Slow*:XdgOpenSearch.ReturnsMinus1IfThereIsNoneOrItCannotBeStarted'
left_out_tests="$left_out_tests:XdgOpenStart.FailsIfTheUrlIsTooLongForAnArgument"

# run PROGRAM
run() {
  begin=$(date +%s)
  timeout -k 10 900 valgrind -q --error-exitcode=9 --leak-check=full \
    --errors-for-leak-kinds=definite \
    "$1" --gtest_brief=1 --gtest_filter="-$left_out_tests" >"$1.valgrind" 2>&1 || {
    cat "$1.valgrind"
    fail "valgrind: $1"
  }
  echo "valgrind: $1, $(($(date +%s) - begin)) s"
}

if [ "${1:-}" = --program ]; then
  run "$2"
  exit
fi
programs=$(for program in build/dev/tests/*-test; do
  name=$(basename "$program" -test)
  if ! left_out "$name" && is_wanted "$name" "$@"; then
    echo "$program"
  fi
done)
[ -n "$programs" ] || fail "no test program has that name"
echo "$programs" | xargs -n 1 -P 2 scripts/valgrind.sh --program
