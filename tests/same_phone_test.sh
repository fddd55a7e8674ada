#!/usr/bin/env bash
# Plays sessions of a client on the kernel's own nodes and on the preloaded simulator: both must see the same
# calls and log lines, and strace must see no call on the kernel's nodes but those. The arguments are the build
# folder and the names of the sessions, without which it plays all that build/session_client --list prints.
set -euo pipefail
build=$1
shift
here=$(dirname "$(readlink -f "$0")")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

if [ $# -gt 0 ]; then printf '%s\n' "$@"; else "$build/session_client" --list; fi >"$folder/sessions"
echo '{"light": [9.5, 13, 6.7, 1.4, 28, 32], "flicker": [{"wave": "mains", "hz": 100, "share": 0.6}]}' >"$folder/light.json"
printf '\n\n\n\n\n\n1764\n3021\n1240\n8113\n0\n6350\n6511\n' >"$folder/factory"

# play FRONT COMMAND...
play() {
  local front=$1
  shift
  SPECTRALHOST_LOG=silent "$build/spectralsim" run --nodes "$front" --scene "$folder/light.json" --model tamberlo \
    --factory-file "$folder/factory" --trace "$folder/$front" "$@" <"$folder/sessions" >"$folder/$front.out"
}
play preload "$build/session_client" &
play kernel strace -f -y -qq -X raw -o "$folder/strace" "$build/session_client"
wait $!

# A trace without what depends on the time: how often something is polled, the phase of the lamps in the
# detector's counters and the flicker samples, and time stamps. The C library opens the analysis library once.
without_times() {
  sed -E -e '/^$/d' -e '/client: flicker/d' -e 's/(client: als .*) [0-9]+$/\1/' -e 's/^(read 3[3-9])=.*/\1/' \
    -e 's/took [0-9]+ ms/took some ms/' "$1" | awk '/^dlopen/ && seen++ { next } 1' | uniq
}
diff <(without_times "$folder/kernel") <(without_times "$folder/preload") ||
  { echo "the traces of the two fronts differ"; exit 1; }

perl "$here/system_calls.pl" "$folder/strace" "$folder/kernel"
