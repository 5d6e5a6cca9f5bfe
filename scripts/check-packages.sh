#!/bin/sh
# Builds the Debian packages, checks them with lintian, and installs, uses and removes them in a
# scratch root: this machine's files below a layer that takes all changes. Needs root.
# Usage: scripts/check-packages.sh [--must-install]
# A container that may not mount file systems has no scratch root: the packages are built and read
# there only, or with --must-install that is a failure.
# shellcheck disable=SC2016 # the commands in quotes are expanded in the scratch root
set -eu
CDPATH='' cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh

# The mounts below are seen by this script alone and end with it.
if [ "${1:-}" != --own-mounts ]; then
  clean_environment
  need util-linux dpkg-dev debhelper lintian g++ cmake ninja-build pkg-config jq git python3 \
    bash-completion zsh fish
  [ "$(id -u)" = 0 ] || fail "run this as root: it mounts a scratch root"
  if unshare --mount true 2>/dev/null; then
    exec setpriv --pdeathsig KILL unshare --mount --mount-proc --pid --fork --kill-child \
      scripts/check-packages.sh --own-mounts
  fi
  [ "${1:-}" != --must-install ] || fail "this system lets nobody mount file systems"
  scripts/build-packages.sh build/packages
  lintian --allow-root --fail-on error,warning build/packages/*.changes ||
    fail "lintian has errors or warnings"
  echo "1 passed, 0 failed"
  echo "skipped: installing the packages, as this system lets nobody mount file systems"
  exit
fi

packages=build/packages
scripts/build-packages.sh "$packages"

work=$(mktemp -d)
end() {
  ! mountpoint -q "$work" || umount --recursive "$work" # also those inside
  rmdir "$work"
}
trap end EXIT
trap 'exit 1' HUP INT QUIT PIPE TERM
mount -t tmpfs tmpfs "$work"

root=$work/root
changes=$work/changes
mkdir "$root" "$changes" "$work/layer"
mount -t overlay overlay -o "lowerdir=/,upperdir=$changes,workdir=$work/layer" "$root" ||
  fail "this system has no overlay file system"
mount --rbind /proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs tmpfs "$root/tmp"

passed=0
failed=0
# check WHAT COMMAND...: one line if the command succeeds, else its output too.
check() {
  what=$1
  shift
  run_logged "$work/log" "$@"
  if [ "$status" = 0 ]; then
    passed=$((passed + 1))
    echo "passed: $what"
  else
    failed=$((failed + 1))
    cat "$work/log"
    echo "FAILED: $what"
  fi
}

# in_root COMMANDS: runs them in the scratch root, in the folder with the test's own files.
in_root() {
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp/files LC_ALL=C.UTF-8 \
    VERSION="$version" sh -euc "cd /tmp/files; $1"
}

# Each file of the sources is in the document with its checksums, and nothing else is.
compare_spdx() {
  mkdir "$work/sources"
  tar -xf "$packages/quintral_$version.tar.xz" --strip-components=1 -C "$work/sources"
  mv "$work/sources/debian" "$work/debian" # made from packaging/debian
  (
    cd "$work/sources"
    document=$work/spdx.json
    jq -r '.files[].fileName' "$document" | LC_ALL=C sort >"$work/listed"
    find . ! -type d | LC_ALL=C sort | diff "$work/listed" -
    for kind in 1 256; do
      jq -r --arg kind "SHA$kind" '.files[] |
        "\(.checksums[] | select(.algorithm == $kind).checksumValue)  \(.fileName)"' "$document" |
        "sha${kind}sum" --check --quiet
    done
    jq -e --arg version "$version" '
      .spdxVersion == "SPDX-2.3" and .packages[0].versionInfo == $version and
      .packages[0].licenseDeclared == "MIT" and
      all(.files[]; .licenseConcluded == "MIT" and .licenseInfoInFiles != [] and .copyrightText)
      ' "$document"
  )
}

# What is left in the layer is not a folder of this machine, apart from what dpkg and ldconfig keep.
expect_nothing_left() {
  (
    cd "$changes"
    find . -mindepth 1 | while read -r path; do
      case $path in
        ./var/lib/dpkg/* | ./var/log/* | ./var/cache/* | ./etc/ld.so.cache) continue ;;
      esac
      [ -d "$path" ] && [ -d "/$path" ] || echo "left: $path"
    done
    find . -name '*quintral*' | sed 's/^/left: /'
  ) >"$work/left"
  cat "$work/left"
  [ ! -s "$work/left" ]
}

version=$(sed -n 's/^Version: //p' "$packages"/*.dsc)
mkdir "$root/tmp/files"
cp "$packages"/*.deb tests/install/consumer/* examples/sample-products.txt \
  examples/sample-update-service.cpp examples/update-exchange.* "$root/tmp/files"
rm "$root"/tmp/files/*-dbgsym_*

check "lintian has no errors or warnings" \
  lintian --allow-root --fail-on error,warning "$packages"/*.changes
check "the packages can be installed" in_root 'dpkg --path-include="/usr/share/*" --install *.deb'
check "the utility tells its version" in_root 'quintral -version | grep -F "$VERSION"'
check "the utility asks the sample service" in_root '
  g++ -std=c++17 -o service sample-update-service.cpp update-exchange.cpp
  ./service sample-products.txt >address &
  service=$!
  trap "kill $service; wait $service || :" EXIT
  trap "exit 1" HUP INT TERM
  tries=0
  while ! grep -q "^Listening on " address && [ $tries -lt 100 ]; do
    sleep 0.1
    tries=$((tries + 1))
  done
  quintral -service "$(sed -n "s/^Listening on //p" address)" -product "Quintral Shapes" \
    -product-version 5.1 | tee answer
  grep -qx "Version: 5.2" answer'
check "a program is built with pkg-config and the shared libraries" in_root '
  libraries="quintral-web quintral-cmdline quintral-platform"
  g++ -std=c++17 -o shared consumer.cpp \
    $(pkg-config --cflags --libs $libraries)
  ldd ./shared | grep -q "libquintral_web.so.1 => /lib"
  ./shared | grep -q "^C++17 a%20b=1%2e5 .* HasHost HasFolder"'
check "a program is built with pkg-config and the static libraries" in_root '
  libraries="quintral-web quintral-cmdline quintral-platform"
  g++ -std=c++17 -o static consumer.cpp \
    $(pkg-config --cflags $libraries) \
    -Wl,-Bstatic $(pkg-config --libs --static $libraries) -Wl,-Bdynamic
  if ldd ./static | grep quintral; then exit 1; fi
  ./static | grep -q "^C++17 a%20b=1%2e5 .* HasHost HasFolder"'
check "a program is built with CMake" in_root '
  cmake -G Ninja -S . -B with-cmake -DWAY=installed -DLINKAGE=SHARED
  cmake --build with-cmake
  with-cmake/consumer | grep -q "^C++17 a%20b=1%2e5 .* HasHost HasFolder"'
check "the manual is found" in_root '
  test -s /usr/share/man/man1/quintral.1.gz && test -s /usr/share/man/man3/quintral-error.3.gz'
check "bash completes the options" in_root '
  bash -c ". /usr/share/bash-completion/bash_completion; _completion_loader quintral
    COMP_WORDS=(quintral -product-v) COMP_CWORD=1; _quintral; echo \${COMPREPLY[*]}" |
    grep -qx -e -product-version'
check "zsh finds the completion" in_root '
  zsh -fc "autoload -Uz compinit; compinit -D; [[ \$_comps[quintral] == _quintral ]]"'
check "fish completes the options" in_root '
  fish -c "complete -C \"quintral -product-v\"" | grep -q -e "-product-version"'
zcat "$root/usr/share/doc/quintral/quintral.spdx.json.gz" >"$work/spdx.json"
check "the SPDX document has every source file" compare_spdx
in_root 'rm -rf /tmp/files/*'
check "the packages can be removed" in_root '
  dpkg --remove quintral libquintral-dev libquintral1
  dpkg --purge quintral libquintral-dev libquintral1'
check "nothing is left" expect_nothing_left

echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
