# What the scripts share: the Debian packages that they need, and building.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
CTEST_PARALLEL_LEVEL=$(nproc)
export CTEST_PARALLEL_LEVEL

build_packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libkissfft-dev
  libcli11-dev libsndfile1-dev gnuplot-nox libfuse3-dev fuse3 bubblewrap)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev binutils strace)
format_packages=(clang-format blueprint-tools)
tidy_packages=(clang clang-tidy)
clang_packages=(clang libclang-rt-dev)
libcxx_packages=(clang libc++-dev libc++abi-dev googletest)
aarch64_packages=(g++-aarch64-linux-gnu qemu-user-static libstdc++6:arm64 libkissfft-dev:arm64
  libsndfile1-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64 libbenchmark-dev:arm64)
soong_packages=(clang lld binutils libc++-dev libc++abi-dev libc6-dev-arm64-cross libcli11-dev nlohmann-json3-dev
  libkissfft-dev libgtest-dev libgmock-dev)
android_packages=(checkpolicy m4 selinux-utils)

# Takes a script's arguments as one word, and the only argument that the script knows, if it knows one.
# Shows what the script does when asked for --help, or for anything else that it does not know, and ends
# it.
know_only() {
  [ -n "$1" ] && [ "$1" != "${2-}" ] || return 0
  local head
  head=$(sed -n '2,/^[^#]/s/^# //p' "scripts/$(basename "$0")")
  if [ "$1" = --help ]; then
    echo "$head"
    exit 0
  fi
  echo "$head" >&2
  exit 2
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# Whether a package is installed, NAME for this machine or NAME:ARCHITECTURE.
installed() {
  local architecture=${1##*:}
  [ "$architecture" != "$1" ] || architecture="(all|$(dpkg --print-architecture))"
  dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "${1%:*}" 2>/dev/null | grep -E "^$architecture installed$" >/dev/null
}

# Installs those of the packages that are missing, and shows the command.
need() {
  local missing=() package install
  for package in "$@"; do
    installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  install=(apt-get install -y --no-install-recommends "${missing[@]}")
  echo "${install[*]}"
  as_root apt-get update -qq
  DEBIAN_FRONTEND=noninteractive as_root "${install[@]}" -qq >/dev/null
}

# Configures and builds a preset, quietly unless something goes wrong: build PRESET [CMake options].
build() {
  local preset=$1 log
  shift
  log=$(mktemp)
  echo "Building the $preset preset"
  if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
    cat "$log"
    rm -f "$log"
    return 1
  fi
  grep -E 'warning:' "$log" || true
  rm -f "$log"
}
