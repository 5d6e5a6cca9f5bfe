#!/bin/sh
# Runs the tests in the preset coverage, except those of the installation, which build copies of
# their own, and prints which lines and branches they run. The last line is the total of the code
# that this system builds; the macOS sources, which run with the mock frameworks, have a line of
# their own above it. Branches that only an exception takes are left out: the compiler adds one to
# nearly every call.
#
# Ends with 0 if the total is at least 99.5 % of the lines and 97 % of the branches.
set -eu
CDPATH='' cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh
clean_environment

build=build/coverage
find "$build" -name '*.gcda' -exec rm -f {} +
ctest --test-dir "$build" --output-on-failure -j 8 -E '^install[.]' >"$build/tests.log" 2>&1 || {
  tail -n 30 "$build/tests.log"
  fail "tests of the preset coverage failed"
}

# report NAME [OPTION...]: writes NAME.txt and NAME.json into the build folder. Left out are copies
# that the tests of the installation have built, and the test that optimises its copy of the code,
# whose branches are not those of the source.
report() {
  name=$1
  shift
  gcovr --root . --object-directory "$build" -j 2 --exclude-unreachable-branches \
    --exclude-directories '.*/CompilerIdCXX' --exclude-directories '.*/tests/install-.*' \
    --exclude-directories '.*/dates-fortified-test[.]dir' "$@" \
    --txt "$build/$name.txt" --json "$build/$name.json" "$build"
}

report macos --filter '(web|platform|tool)/.*-macos[.]cpp'
report total --filter '(support|cmdline|web|platform|tool)/' --exclude '.*-macos[.].*'
cat "$build/total.txt"
exec python3 scripts/coverage-totals.py "$build/macos.json" "$build/total.json"
