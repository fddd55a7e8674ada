#!/usr/bin/env bash
# The Android.bp files name files and file groups that exist, and the project's version. The argument is the
# source folder.
set -euo pipefail
cd "$1"
files=(Android.bp analysis/Android.bp tools/Android.bp)
count=0
for file in "${files[@]}"; do
  while read -r name; do
    count=$((count + 1))
    case $name in
      :*) grep -xF "    name: \"${name#:}\"," Android.bp >/dev/null ;;
      *) compgen -G "$(dirname "$file")/$name" >/dev/null ;;
    esac || { echo "$file names $name, which does not exist"; exit 1; }
  done < <(grep -v ' name:' "$file" | grep -oE '"(:[a-z]\w+|[^":]+\.(cpp|map|rc))"' | tr -d '"')
done
[ "$count" -ge 14 ] || { echo "hardly any file is found in the Android.bp files"; exit 1; }

version=$(sed -n 's/^project(spectralsensor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
grep -F "SPECTRAL_VERSION=\\\"$version\\\"" tools/Android.bp >/dev/null ||
  { echo "tools/Android.bp has another version than $version"; exit 1; }
