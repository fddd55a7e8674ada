#!/usr/bin/env bash
# The Android.bp files name existing sources and the project's version. The argument is the source folder.
set -euo pipefail
shopt -s nullglob
cd "$1"
files=(Android.bp */Android.bp)
count=0
for file in "${files[@]}"; do
  while read -r source; do
    count=$((count + 1))
    compgen -G "$(dirname "$file")/$source" >/dev/null || { echo "$file names $source, which does not exist"; exit 1; }
  done < <(sed -n '/srcs: \[/,/\]/p' "$file" | grep -oE '"[^":]+\.cpp"' | tr -d '"')
done
[ "$count" -ge 6 ] || { echo "hardly any source found in the Android.bp files"; exit 1; }

version=$(sed -n 's/^project(spectralsensor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
grep -F "SPECTRAL_VERSION=\\\"$version\\\"" "${files[@]}" >/dev/null || { echo "no Android.bp has version $version"; exit 1; }
