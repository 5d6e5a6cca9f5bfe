# shellcheck shell=sh
# Functions for ./demo, ./check and other scripts, which source this file. POSIX sh.

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
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
    [ "$status" = installed ] || printf '%s ' "$package"
  done
}

# Installs packages, but does not let them start servers: policy-rc.d forbids that while apt-get
# runs. If apt-get needs a proxy, set it in apt's configuration.
install_packages() {
  policy=/usr/sbin/policy-rc.d
  saved=$policy.quintral-saved
  written=
  trap 'restore_policy' EXIT
  trap 'exit 1' HUP INT QUIT PIPE TERM
  if [ -e "$policy" ] || [ -L "$policy" ]; then
    mv "$policy" "$saved"
  fi
  written=yes
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod 755 "$policy"
  export DEBIAN_FRONTEND=noninteractive
  if ! apt-get update || ! apt-get install -y --no-install-recommends "$@"; then
    fail "apt-get could not install: $*"
  fi
  restore_policy
  trap - EXIT HUP INT QUIT PIPE TERM
}

restore_policy() {
  if [ -e "$saved" ] || [ -L "$saved" ]; then
    mv -f "$saved" "$policy"
  elif [ -n "$written" ]; then
    rm -f "$policy"
  fi
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
  [ "$(id -u)" = 0 ] || fail "please install as root: apt-get install $missing"
  echo "Installing $missing"
  # shellcheck disable=SC2086 # a list of names
  install_packages $missing
}
