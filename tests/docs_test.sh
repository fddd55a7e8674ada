#!/usr/bin/env bash
# Compares docs/integration.md with the library: it must list exactly the library's log lines with
# their priorities and name every file that the library opens, and its example of a factory file must
# give the factors that it shows. The SELinux policy in android/ must allow exactly the requests that
# the library makes. The arguments are the source folder and, if it has been built, spectralsensorctl.
set -euo pipefail
cd "$1"
tool=${2:-}
page=docs/integration.md
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() {
  echo "$1"
  exit 1
}

# The calls of the log functions, as lines "PRIORITY TEXT". The tag and the priority of a call have no
# quotes, so that the first literals behind its name are its text, which may be several of them.
mapfile -t sources < <(find driver flicker service -name '*.h' -o -name '*.cpp' | LC_ALL=C sort)
log_calls() {
  perl -0777 -ne '
    while (/SPECTRAL_LOG(?:_(ERROR|WARNING))?\(([^"]*?)((?:"(?:[^"\\]|\\.)*"\s*)+)/g) {
      my ($level, $before, $text) = ($1 // "", $2, $3);
      $level = uc $1 if $before =~ /\bkLog(Debug|Info|Warning|Error)\b/;
      print substr($level, 0, 1), " ", join("", $text =~ /"((?:[^"\\]|\\.)*)"/g), "\n";
    }' "${sources[@]}"
}
paths() {
  sed 's|//.*||' "${sources[@]}" | grep -v '#include' | grep -oE '"/[a-z][^" ]*"' | tr -d '"'
}
export LC_ALL=C

# The page lists the log lines in rows "| `text` | E, W | ...".
log_calls | sort -u >"$folder/code"
[ "$(wc -l <"$folder/code")" -gt 40 ] || fail "hardly any log line found in the sources"
sed -n '/^## Log lines$/,/^## [^L]/p' "$page" |
  perl -ne 'if (/^\| `(.*?)` \| ([DIWE](?:, [DIWE])*) \|/) { print "$_ $1\n" for split /, /, $2 }' |
  sort >"$folder/page"
diff "$folder/page" "$folder/code" || fail "$page and the sources (>) have other log lines"

# The page names every path.
paths | sort -u >"$folder/paths"
[ "$(wc -l <"$folder/paths")" -gt 6 ] || fail "hardly any path found in the sources"
while read -r path; do
  grep -F -- "$path" "$page" >/dev/null || fail "$page does not name $path"
done <"$folder/paths"

# SELinux knows a request by its low 16 bits.
for request in $(grep -oE '= 0x[0-9A-F]+;' driver/nodes.h | tr -d '=; '); do
  printf '0x%04x\n' $((request & 0xFFFF))
done | sort >"$folder/requests"
[ "$(wc -l <"$folder/requests")" = 5 ] || fail "not five requests in driver/nodes.h"
grep -h '^allowxperm' android/sepolicy/*.te | grep -oE '0x[0-9a-f]+' | sort >"$folder/allowed"
diff "$folder/allowed" "$folder/requests" || fail "android/sepolicy and driver/nodes.h (>) have other requests"

# The factors that the page shows are those of its factory file on the phone model "ostrel".
[ -n "$tool" ] || exit 0
sed -n '/^<!-- factory file -->$/,/^```$/p' "$page" | sed '1,2d;$d' >"$folder/factory"
# shellcheck disable=SC2086
LD_PRELOAD=$(dirname "$tool")/libspectralsim.so SPECTRALSIM_TIME=virtual SPECTRALSIM_MODEL=ostrel \
  SPECTRALSIM_FACTORY_FILE="$folder/factory" ${EMULATOR-} "$tool" info >"$folder/info"
[ "$(grep -cE "^ +[0-5] .*[0-9]$" "$folder/info")" = 6 ] || fail "info has no six factors"
while read -r line; do
  grep -xF -- "    $line" <(sed -E "s/^ +/    /" "$page") >/dev/null || fail "$page does not show: $line"
done < <(grep -E "^channel|^ +[0-5] " "$folder/info")
