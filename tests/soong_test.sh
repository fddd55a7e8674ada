#!/usr/bin/env bash
# Android.bp builds the library of the same sources as CMake. Takes the source folder.
set -euo pipefail
cd "$1"
sources() { sort "$@" | uniq; }
soong=$(sed -n '/^cc_library_shared/,/^}/p' Android.bp | grep -oE '"[a-z_]+/[a-z0-9_]+\.cpp"' | tr -d '"' | sources)
cmake=$(sed -n '/^add_library(spectralrules/,/)/p; /^add_library(spectralsensor/,/)/p' CMakeLists.txt |
  grep -oE '[a-z_]+/[a-z0-9_]+\.cpp' | sources)
diff <(echo "$soong") <(echo "$cmake") || { echo "Android.bp and CMakeLists.txt list other sources"; exit 1; }
[ "$(echo "$soong" | wc -l)" -gt 30 ] || { echo "hardly any source found"; exit 1; }
if command -v bpfmt >/dev/null; then
  [ -z "$(bpfmt -d Android.bp)" ] || { bpfmt -d Android.bp; exit 1; }
fi
