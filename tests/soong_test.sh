#!/usr/bin/env bash
# Android.bp builds the library, the analysis and the tool of the same sources as CMake, in the same
# version. Takes the source folder.
set -euo pipefail
cd "$1"
# The sources that a file lists between these two lines, under this folder: sources FILE FROM FOLDER
sources() {
  sed -n "/$2/,/^[})]\$\|[^}].*)\$/p" "$1" | grep -oE '[a-zA-Z_{}$/]*[a-z0-9_]+\.cpp' |
    sed "s|^\${PROJECT_SOURCE_DIR}/||; /\//!s|^|$3/|" | sort -u
}
# The module of this type and name, up to its end.
module() {
  awk -v type="$1" -v name="\"$2\"" '
    $1 == type { text = ""; inside = 1 }
    inside { text = text $0 "\n" }
    inside && $1 == "name:" && $2 == name "," { wanted = 1 }
    $0 == "}" { if (wanted) printf "%s", text; inside = wanted = 0 }' Android.bp
}
# compare WHAT LEAST SOONG-SOURCES CMAKE-SOURCES
compare() {
  diff <(echo "$3") <(echo "$4") || { echo "Android.bp and CMake list other sources of $1"; exit 1; }
  [ "$(wc -l <<<"$3")" -ge "$2" ] || { echo "hardly any source of $1 found"; exit 1; }
}
soong() { module "$1" "$2" | grep -oE '"[a-z_]+/[a-z0-9_]+\.cpp"' | tr -d '"' | sort -u; }

compare libspectralsensor 30 "$(soong cc_library_shared libspectralsensor)" \
  "$({ sources CMakeLists.txt '^add_library(spectralrules' .; sources CMakeLists.txt '^add_library(spectralsensor' .; } | sort -u)"
compare libflicker_analysis 1 "$(soong cc_library_shared libflicker_analysis)" \
  "$(sources analysis/CMakeLists.txt '^add_library(flicker_analysis' analysis)"
compare spectralsensorctl 8 "$(soong cc_binary spectralsensorctl)" \
  "$(sources tools/CMakeLists.txt '^add_executable(spectralsensorctl' tools)"

version=$(sed -n 's/^project(spectralsensor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
grep -F "SPECTRAL_VERSION=\\\"$version\\\"" Android.bp >/dev/null || { echo "Android.bp has another version than $version"; exit 1; }
