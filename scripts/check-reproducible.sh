#!/bin/sh
# Builds the Debian packages twice, in different folders, with a year between the builds by their
# clock, and compares them byte by byte. Usage: scripts/check-reproducible.sh
#
# .changes and .buildinfo are not compared: they record the build, with its time.
set -eu
CDPATH='' cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh
clean_environment
need faketime

# Each build compiles everything itself.
unset CMAKE_CXX_COMPILER_LAUNCHER CMAKE_C_COMPILER_LAUNCHER

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
trap 'exit 1' HUP INT QUIT PIPE TERM

# NO_FAKE_STAT: ninja and make go by the real times of files.
mkdir "$folder/first" "$folder/second" "$folder/second/another-folder"
TMPDIR=$folder/first TZ=UTC scripts/build-packages.sh build/packages
TMPDIR="$folder/second/another-folder" TZ=Asia/Tokyo DEB_BUILD_OPTIONS=parallel=1 NO_FAKE_STAT=1 \
  faketime -f '+366d' scripts/build-packages.sh build/packages-again

passed=0
failed=0
for path in build/packages/*.deb build/packages/*.dsc build/packages/*.tar.xz \
  build/packages/*.spdx.json; do
  again=build/packages-again/$(basename "$path")
  if cmp "$path" "$again"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    sha256sum "$path" "$again" || :
  fi
done
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && [ "$passed" -ge 8 ]
