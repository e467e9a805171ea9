# shellcheck shell=bash
# What ./test and ./demo share, to be sourced: messages, and the installing of Debian packages.

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }

as_root() {
  if ((EUID == 0)); then
    "$@"
  elif [[ -n $(command -v sudo) ]]; then
    sudo "$@"
  else
    echo "not root, and there is no sudo: cannot run: $*" >&2
    return 1
  fi
}

install_packages() { # PACKAGE...: installs those that are missing; says why and returns 1 if it cannot
  local package missing=()
  for package in "$@"; do
    if [[ " ${missing[*]} " != *" $package "* &&
      $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
      missing+=("$package")
    fi
  done
  ((${#missing[@]} > 0)) || return 0
  if [[ -z $(command -v apt-get) ]]; then
    say "No apt-get here to install ${missing[*]}."
    return 1
  fi
  say "Installing ${missing[*]}"
  if ! as_root apt-get update -qq ||
    ! as_root env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -qq --no-install-recommends "${missing[@]}"; then
    say "Installing failed."
    return 1
  fi
}

missing_commands() { # COMMAND...: prints those that are not there
  local command missing=()
  for command in "$@"; do
    [[ -n $(command -v "$command") ]] || missing+=("$command")
  done
  echo "${missing[*]}"
}
