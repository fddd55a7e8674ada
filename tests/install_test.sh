#!/usr/bin/env bash
# Installs the library into an empty folder and builds the README's program against it, with CMake's
# find_package and with pkg-config. The arguments are the build folder, the source folder and the
# compiler.
set -euo pipefail
build=$1 source=$2 compiler=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Reads all of its input, unlike grep -q, which would end the writing program early.
has() {
  grep -E "$1" >/dev/null
}

cmake --install "$build" --prefix "$folder/prefix" >"$folder/log" || { cat "$folder/log"; exit 1; }

# The README shows the example as it is.
sed -n '/^```cpp$/,/^```$/p' "$source/README.md" | sed '1d;$d' >"$folder/first_reading.cpp"
diff "$folder/first_reading.cpp" "$source/examples/first_reading.cpp"

cat >"$folder/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.22)
project(user LANGUAGES CXX)
find_package(spectralsensor 0.20 REQUIRED)
add_executable(by_cmake first_reading.cpp)
target_link_libraries(by_cmake PRIVATE spectralsensor::spectralsensor)
TEXT
cmake -S "$folder" -B "$folder/build" -G Ninja -DCMAKE_PREFIX_PATH="$folder/prefix" -DCMAKE_CXX_COMPILER="$compiler" >"$folder/log"
cmake --build "$folder/build" >>"$folder/log" || { cat "$folder/log"; exit 1; }

PKG_CONFIG_PATH=$(dirname "$(find "$folder/prefix" -name spectralsensor.pc)")
export PKG_CONFIG_PATH
libdir=$(pkg-config --variable=libdir spectralsensor)
# shellcheck disable=SC2046,SC2086
"$compiler" ${CXXFLAGS-} -std=c++17 "$folder/first_reading.cpp" $(pkg-config --cflags --libs spectralsensor) -Wl,-rpath,"$libdir" -o "$folder/by_pkg_config"

for program in "$folder/build/by_cmake" "$folder/by_pkg_config"; do
  # shellcheck disable=SC2086
  LD_PRELOAD="$build/libspectralsim.so" SPECTRALSIM_TIME=virtual ${EMULATOR-} "$program" | has '^channel 0: '
  # shellcheck disable=SC2086
  LD_TRACE_LOADED_OBJECTS=1 ${EMULATOR-} "$program" | has "$folder/prefix/.*libspectralsensor.so" || { echo "$program does not use the installed library"; exit 1; }
done

# The installed tool finds its library and the simulator, and its manual page and completion are there.
# Under an emulator the tool cannot start itself again on the simulator, so it only shows its help.
if [ -z "${EMULATOR-}" ]; then
  SPECTRALSIM_TIME=virtual "$folder/prefix/bin/spectralsensorctl" --simulate flicker 2>/dev/null | has ' 0x20 '
  "$folder/prefix/bin/spectralsim" run --nodes preload --time virtual -- "$folder/prefix/bin/spectralsensorctl" flicker 2>/dev/null |
    has ' 0x20 '
else
  "$EMULATOR" "$folder/prefix/bin/spectralsensorctl" --help | has SYNOPSIS
fi
for file in man/man1/spectralsensorctl.1 man/man1/spectralsim.1 bash-completion/completions/spectralsensorctl; do
  [ -s "$folder/prefix/share/$file" ] || { echo "no $file"; exit 1; }
done
