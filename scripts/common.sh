# What the scripts share: the Debian packages they need, and building.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libkissfft-dev
  libcli11-dev libsndfile1-dev gnuplot-nox)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev binutils
  blueprint-tools)
clang_packages=(clang libclang-rt-dev)

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# Installs those of the packages that are missing.
need() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "Installing ${missing[*]}"
  as_root apt-get update -qq
  DEBIAN_FRONTEND=noninteractive as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
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

# Runs every test of a built folder; the library's log stays out of the way.
run_tests() {
  SPECTRALHOST_LOG=silent ctest --test-dir "$1" --output-on-failure -j "$(nproc)" --no-tests=error
}
