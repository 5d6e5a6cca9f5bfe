# Sourced by ./demo and ./check: what both need before they can build. POSIX sh.

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# Neither the build nor a run may depend on the settings of whoever starts it.
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

# A server that is installed here must not start: a policy that refuses it stands while apt-get
# runs. A proxy that the packages are behind belongs in apt's own configuration.
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
  apt-get update && apt-get install -y --no-install-recommends "$@" ||
    fail "apt-get could not install: $*"
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

# need PACKAGE...: installs what is missing. Elsewhere than on Debian the tools must be there.
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
