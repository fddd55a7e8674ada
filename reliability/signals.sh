#!/usr/bin/env bash
# Plays the fault sweep's sessions on the kernel's own nodes with a SIGALRM each millisecond, without and with
# SA_RESTART, and each once more without signals. Every call must have the status that it has undisturbed, and
# so must every call of the session after it; an interrupted flicker measurement ends early, with what it has.
# The arguments are the build folder and the sessions' names, without which it plays all.
set -euo pipefail
build=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
if [ $# -gt 0 ]; then printf '%s\n' "$@"; else "$build/session_client" --list; fi >"$folder/sessions"

# play NAME [OPTION]: the client's log to a file, and what it left behind to another.
play() {
  SPECTRALHOST_LOG=silent "$build/spectralsim" run --nodes kernel --scene mains-50hz --trace "$folder/trace$1" \
    "$build/session_client" ${2:+"$2"} <"$folder/sessions" >"$folder/left$1" || exit
  sed -nE 's/^log I client: (.*( = |disturbed: ).*|(als|flicker) [0-9]).*/\1/p' "$folder/trace$1" >"$folder/log$1"
}
play alone
play alarm --alarm &
play restart --alarm-restart &
wait -n && wait -n

# The lines of the disturbed or of the undisturbed sessions: part WHICH FILE
part() { awk -v which="$1" '/disturbed: / { on = $1 == which ":"; sub(/.*: /, "session ") } on' "$2"; }
for how in alarm restart; do
  for which in disturbed undisturbed; do
    diff <(part undisturbed "$folder/logalone") <(part "$which" "$folder/log$how") ||
      { echo "$how: $which sessions have other results"; exit 1; }
  done
  [ "$(sort -u "$folder/left$how")" = "$(sort -u "$folder/leftalone")" ] || { echo "$how: descriptors are left"; exit 1; }
  interrupted=$(grep -c 'failed (EINTR)' "$folder/trace$how" || true)
  [ "$interrupted" -gt 0 ] || { echo "$how: no call was interrupted"; exit 1; }
  grep -q 'log W .*:Failed to read data from the tunnel$' "$folder/trace$how" || { echo "$how: no message"; exit 1; }
  echo "$how: $(wc -l <"$folder/sessions") sessions as undisturbed, $interrupted calls interrupted"
done
