#!/bin/sh
# Runs ./demo and ./check in freshly bootstrapped minimal roots of Debian releases, as root and as
# an ordinary user, with and without /etc/hosts. Tests what is committed. Must be run as root.
# Usage: scripts/check-debian.sh [--presets "PRESET..."] [RELEASE...]
#        (default: the preset dev on bookworm and trixie)
#
# The roots are in build/debian, beside the bootstrapped systems that they are made from; remove
# build/debian/*.tar to bootstrap again. The output is in build/debian/RELEASE.log. A root has its
# own processes and mounts, which end with this script, however it ends.
# shellcheck disable=SC2016 # the shells inside a root expand what is in single quotes
set -eu
CDPATH= cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh

presets=dev
if [ "${1:-}" = --presets ]; then
  [ $# -ge 2 ] || fail "--presets needs a list of presets"
  presets=$2
  shift 2
fi
for release in "$@"; do
  case $release in
    '' | *[!a-z]*) fail "usage: scripts/check-debian.sh [--presets \"PRESET...\"] [RELEASE...]" ;;
  esac
done
[ $# -gt 0 ] || set -- bookworm trixie

clean_environment
[ "$(id -u)" = 0 ] || fail "must be run as root, because it makes system roots"
need debootstrap debian-archive-keyring git util-linux

folder=$PWD/build/debian
home=/home/tester
mkdir -p "$folder"
passed=0
failed=0

# The first package source of this machine's apt.
mirror() {
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | head -n 1
}

# A minimal system with nothing but an ordinary user and the project's files.
make_root() {
  rm -rf --one-file-system "$root" && mkdir "$root" || return 1
  if [ ! -e "$root.tar" ]; then
    in_namespace debootstrap --variant=minbase "$release" "$root" "$(mirror)" &&
      tar -C "$root" --one-file-system -cf "$root.tar.new" . &&
      mv "$root.tar.new" "$root.tar" || return 1
  else
    tar -C "$root" -xf "$root.tar" && cp /etc/resolv.conf "$root/etc" || return 1
  fi
  apt-config dump | grep -E '^Acquire::https?::' >"$root/etc/apt/apt.conf.d/machine" || :
  in_root root useradd --create-home tester &&
    git archive --prefix=project/ HEAD | tar -C "$root$home" -xf -
}

# in_namespace COMMAND...: with processes and mounts that end with the command, or with this script,
# even if it is killed.
in_namespace() {
  setpriv --pdeathsig KILL unshare --mount --mount-proc --pid --fork --kill-child "$@" </dev/null
}

# in_root USER COMMAND...: in the folder of the project, with a fresh environment. The shell stays,
# because the first process must reap orphans.
in_root() {
  in_namespace sh -euc '
    root=$1 home=$2 user=$3
    shift 3
    mount -t proc proc "$root/proc"
    mount --bind /dev "$root/dev"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts"
    mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
    folder=$home/project
    [ -d "$root$folder" ] || folder=/
    [ "$user" != root ] || home=/root
    path=/usr/local/bin:/usr/bin:/bin
    [ "$user" != root ] || path=/usr/local/sbin:/usr/sbin:/sbin:$path
    chroot "$root" setpriv --reuid "$user" --regid "$user" --init-groups env -i PATH="$path" \
      HOME="$home" USER="$user" TERM=dumb sh -c "cd $folder && exec \"\$@\"" sh "$@"
  ' sh "$root" "$home" "$@"
}

# step TITLE COMMAND...: counts whether the command succeeds. Its output goes to the log; the end of
# it is shown if it fails.
step() {
  title="$release: $1"
  shift
  echo "== $title" | tee -a "$log"
  run_logged "$log.step" "$@"
  if [ "$status" = 0 ]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    tail -n 60 "$log.step"
    echo "== $title: FAILED"
  fi
  cat "$log.step" >>"$log"
  rm -f "$log.step"
}

# Without the packages, an ordinary user is told the whole command that installs them.
show_hint() {
  in_root tester sh -c '! hint=$(./demo 2>&1) && echo "$hint" && echo "$hint" | grep -qx "$1"' sh \
    "  sudo '$home/project/scripts/install-packages' g++ cmake ninja-build"
}

# A server that had been started would have left its process id.
find_no_server() {
  in_root root sh -c 'found=$(find /run/ -name "*.pid") && echo "$found" && [ -z "$found" ]'
}

check_release() {
  step "bootstrap" make_root
  [ -d "$root$home/project" ] || return 0
  step "./demo as a user without the packages" show_hint
  step "./demo as root" in_root root ./demo
  # shellcheck disable=SC2086 # a list of names
  step "./check $presets as root" in_root root ./check $presets
  step "no server has been started" find_no_server

  # The user goes on with the same build, which took most of the time.
  in_root root chown -R tester:tester .
  rm -rf "$root$home/project/build/demo"
  step "./demo as a user" in_root tester ./demo
  rm -f "$root/etc/hosts"
  step "tests of ${presets%% *} as a user, one at a time, without /etc/hosts" \
    in_root tester ctest --preset "${presets%% *}" --parallel 1
  printf '127.0.0.1 localhost\n' >"$root/etc/hosts"
  step "./check ${presets%% *} as a user, with /etc/hosts" in_root tester ./check "${presets%% *}"
}

for release in "$@"; do
  root=$folder/$release
  log=$root.log
  : >"$log"
  check_release
done
echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
