# shellcheck shell=sh
# Functions for ./demo, ./check and other scripts, which source this file. POSIX sh.

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# run_logged LOG COMMAND...: runs a command, or a function, with its output in the log, and sets
# status. A function ends at its first failure; as the condition of an "if" it would go on.
run_logged() {
  run_log=$1
  shift
  set +e
  (
    set -e
    "$@"
  ) >"$run_log" 2>&1
  status=$?
  set -e
}

# Removes the user's settings that could change the result of a build or a run.
clean_environment() {
  unset http_proxy HTTP_PROXY https_proxy HTTPS_PROXY all_proxy ALL_PROXY no_proxy NO_PROXY \
    POSIXLY_CORRECT LANG LANGUAGE LC_ALL LC_CTYPE LC_NUMERIC LC_COLLATE LC_MESSAGES LC_MONETARY \
    LC_TIME
}

missing_packages() {
  for package in "$@"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) || status=none
    [ "$status" = installed ] || printf ' %s' "$package"
  done
}

# Installs packages, but does not let them start servers: policy-rc.d forbids that while apt-get
# runs. If apt-get needs a proxy, set it in apt's configuration.
#
# The machine's own policy-rc.d is kept under another name meanwhile. A lock makes a second run
# wait, and a run that finds what a killed run has left puts that right first. Tests set
# QUINTRAL_POLICY_FILE.
install_packages() {
  policy=${QUINTRAL_POLICY_FILE:-/usr/sbin/policy-rc.d}
  saved=$policy.quintral-saved
  mark='# Written by scripts/set-up.sh of quintral while it installs packages.'
  lock_policy
  restore_policy
  trap 'restore_policy' EXIT
  trap 'exit 1' HUP INT QUIT PIPE TERM
  forbid_servers
  export DEBIAN_FRONTEND=noninteractive
  if ! apt-get update || ! apt-get install -y --no-install-recommends "$@"; then
    fail "apt-get could not install: $*"
  fi
  restore_policy
  trap - EXIT HUP INT QUIT PIPE TERM
  exec 9<&-
}

# Locks the folder of the policy, so that no lock file is left. If this run is killed, its apt-get
# still holds the lock until it ends.
lock_policy() {
  exec 9<"$(dirname "$policy")"
  flock -n 9 && return
  echo "Waiting for another run that installs packages"
  flock -w 600 9 || fail "another run has been installing packages for ten minutes"
}

# The policy is replaced in one step: there is one at every moment, whenever this is killed.
forbid_servers() {
  if exists "$policy"; then
    ln -P "$policy" "$saved"
  fi
  printf '#!/bin/sh\n%s\nexit 101\n' "$mark" >"$policy.quintral-new"
  chmod 755 "$policy.quintral-new"
  mv -f "$policy.quintral-new" "$policy"
}

# Puts the machine's own policy back, whichever step of forbid_servers was the last. The mark shows
# whose policy is in place. If the machine got a new one after a run was killed, which of the two is
# right is not known here.
restore_policy() {
  rm -f "$policy.quintral-new"
  if grep -qsF "$mark" "$policy"; then
    if exists "$saved"; then
      mv -f "$saved" "$policy"
    else
      rm -f "$policy"
    fi
  elif exists "$saved"; then
    cmp -s "$saved" "$policy" ||
      fail "an earlier run left $saved; move it to $policy if it is the right one, or remove it"
    rm -f "$saved"
  fi
}

exists() {
  [ -e "$1" ] || [ -L "$1" ]
}

# need PACKAGE...: installs the missing packages. On systems other than Debian it only checks
# that the build tools are there.
need() {
  if ! command -v dpkg-query >/dev/null; then
    for tool in cmake ninja c++; do
      command -v "$tool" >/dev/null || fail "$tool is missing; please install it"
    done
    return
  fi
  missing=$(missing_packages "$@")
  [ -n "$missing" ] || return 0
  [ "$(id -u)" = 0 ] ||
    fail "packages are missing. To install them without starting a server, run:
  sudo '$PWD/scripts/install-packages'$missing"
  echo "Installing$missing"
  # shellcheck disable=SC2086 # a list of names
  install_packages $missing
}
