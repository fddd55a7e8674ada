#!/usr/bin/env bash
# Android.bp names sources that are there, and the project's version. Takes the source folder.
set -euo pipefail
cd "$1"
mapfile -t sources < <(sed -n '/srcs: \[/,/\]/p' Android.bp | grep -oE '"[^"]+\.cpp"' | tr -d '"')
[ ${#sources[@]} -ge 6 ] || { echo "hardly any source found in Android.bp"; exit 1; }
for source in "${sources[@]}"; do
  compgen -G "$source" >/dev/null || { echo "Android.bp names $source, which is not there"; exit 1; }
done

version=$(sed -n 's/^project(spectralsensor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
grep -F "SPECTRAL_VERSION=\\\"$version\\\"" Android.bp >/dev/null || { echo "Android.bp has another version than $version"; exit 1; }
