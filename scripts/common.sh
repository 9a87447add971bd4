# SPDX-License-Identifier: GPL-3.0-or-later
#
# Sourced by the scripts beside it: the repository's root as the current directory, `as_root` for what
# needs privileges, `need` for Debian packages that may be missing, and an owner for what is built.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

is_installed() {
  [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need <package>...: install those that are not there yet.
need() {
  local package missing=()
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing ${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# What every build takes.
need_build_tools() {
  need g++ cmake make libbcm2835-dev libcli11-dev libcpp-httplib-dev libfmt-dev libmosquitto-dev \
    libutf8proc-dev nlohmann-json3-dev
}

# What the tests take beyond that.
need_test_tools() { need jq libgtest-dev sqlite3 zsh; }

# What root has made in build/ is given to the owner of the repository, who may want to delete it.
give_build_back() {
  [ -z "$(find build ! -uid "$(stat -c %u .)" -print -quit 2>/dev/null)" ] ||
    as_root chown -R --reference=. build
}
trap give_build_back EXIT
