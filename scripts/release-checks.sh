#!/bin/sh
# Everything that is checked before a release, hours of it. For ./check --release.
# Usage: scripts/release-checks.sh SECONDS
#
# Each fuzzer runs for SECONDS. The table of steps is at the end. A step that fails does not end the
# others; the output of each is kept in build/release-checks.
set -eu
CDPATH='' cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh
clean_environment

case ${1:-} in
  '' | 0* | *[!0-9]*) fail "usage: $0 SECONDS (1 or more)" ;;
esac

logs=build/release-checks
rm -rf "$logs"
mkdir -p "$logs"
summary=
passed=0
failed=0

# step NAME COMMAND...
step() {
  name=$1
  shift
  echo "== $name: $*"
  begin=$(date +%s)
  run_logged "$logs/$name.log" "$@"
  if [ "$status" = 0 ]; then
    result=passed
    passed=$((passed + 1))
  else
    result=FAILED
    failed=$((failed + 1))
    tail -n 20 "$logs/$name.log"
  fi
  last_line=$(tail -n 1 "$logs/$name.log")
  summary="$summary
$result: $name, $((($(date +%s) - begin + 30) / 60)) minutes: $last_line"
}

# 20,000 exchanges in one process.
endurance() {
  build/dev/tests/transaction-endurance-test --gtest_also_run_disabled_tests \
    --gtest_filter='*.DISABLED_TwentyThousand*' | tee "$logs/exchanges"
  grep -qF '[  PASSED  ] 1 test.' "$logs/exchanges"
}

# The order matters for two of them, which run programs of the preset dev: endurance and valgrind.
step style scripts/check-style
step style-test scripts/check-style-test
for preset in dev release asan i386 clang; do
  step "$preset" ./check "$preset"
done
step endurance endurance
step valgrind scripts/valgrind.sh
step coverage ./check --coverage
step counts bench/run --counts
step macos scripts/check-macos.sh
step packages scripts/check-packages.sh --must-install
step reproducible scripts/check-reproducible.sh
step debian scripts/check-debian.sh
step fuzz ./check --fuzz "$1"
step mutants ./check --mutants 300 1 # a choice whose equivalent changes are listed

echo "== summary; the output is in $logs$summary"
echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
