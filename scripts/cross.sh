# SPDX-License-Identifier: GPL-3.0-or-later
#
# Sourced after common.sh by the scripts that build for ARM on another machine: `prepare_cross` for
# Debian's cross compilers and the libraries of the other architecture.

# unpack <architecture> <directory> <dpkg-deb option> <package>...
#
# Unpacks packages of another architecture into the directory: all into one tree (--extract), or each
# into a tree of its name together with what it tells dpkg (--raw-extract). They are not installed: a
# foreign architecture in dpkg would have every later apt-get update of the machine fetch its indexes
# too, and would tie the versions of the machine's own -dev packages to those of the foreign ones.
unpack() {
  local architecture="$1" directory="$PWD/build/$2/$1" how="$3" scratch package
  shift 3
  [ -d "$directory" ] && return
  echo "Fetching $* for $architecture"
  scratch="$directory.part"
  rm -rf "$scratch"
  mkdir -p "$scratch/apt/lists/partial" "$scratch/apt/cache/archives/partial"
  local apt=(apt-get -qq -o APT::Sandbox::User=root
    -o "APT::Architecture=$architecture" -o "APT::Architectures=$architecture"
    -o "Dir::State::lists=$scratch/apt/lists" -o "Dir::Cache=$scratch/apt/cache")
  # Not every source of the machine need have this architecture: the download decides.
  "${apt[@]}" update 2>/dev/null || true
  (cd "$scratch/apt" && "${apt[@]}" download "$@")
  for package in "$scratch"/apt/*.deb; do
    case "$how" in
      --extract) dpkg-deb --extract "$package" "$scratch" ;;
      --raw-extract) dpkg-deb --raw-extract "$package" "$scratch/$(dpkg-deb --field "$package" Package)" ;;
    esac
  done
  rm -rf "$scratch/apt"
  mv "$scratch" "$directory"
}

# prepare_cross <architecture>: arm64 or armhf. Ends the script for any other.
prepare_cross() {
  local compiler
  case "$1" in
    arm64) compiler=g++-aarch64-linux-gnu ;;
    armhf) compiler=g++-arm-linux-gnueabihf ;;
    *) echo "$0: cannot build for $1 here; arm64 and armhf it can" >&2 && exit 2 ;;
  esac
  need cmake make qemu-user "$compiler"
  unpack "$1" arm-libraries --extract libbcm2835-dev libcli11-dev libfmt-dev libfmt9 libgtest-dev nlohmann-json3-dev \
    libcpp-httplib-dev libcpp-httplib0.11 libssl-dev libssl3 zlib1g-dev zlib1g libbrotli-dev libbrotli1
}
