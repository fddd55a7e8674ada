#!/usr/bin/env bash
# spectralsensorctl as its users run it, on the simulated phone. Takes its path.
set -euo pipefail
tool=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export SPECTRALSIM_TIME=virtual SPECTRALHOST_LOG=silent

fail() {
  echo "$1"
  cat "$folder/out" "$folder/err"
  exit 1
}
# Sets `start` to what starts the tool for these arguments. An emulator cannot start a program again, as
# --simulate does: there the simulator is preloaded from outside.
how_to_start() {
  local argument scene=
  for argument; do
    case $argument in
      --simulate) scene=office ;;
      --simulate=*) scene=${argument#*=} ;;
    esac
  done
  # shellcheck disable=SC2206
  start=(${EMULATOR-} "$tool")
  if [ -n "${EMULATOR-}" ] && [ -n "$scene" ]; then
    start=(env LD_PRELOAD="$(dirname "$tool")/libspectralsim.so" SPECTRALSIM_SCENE="$scene" "${start[@]}")
  fi
}
# Runs the tool and expects an exit status and a text in its output: expect STATUS TEXT ARGUMENTS
expect() {
  local wanted=$1 text=$2 status=0
  shift 2
  how_to_start "$@"
  "${start[@]}" "$@" >"$folder/out" 2>"$folder/err" || status=$?
  [ "$status" = "$wanted" ] || fail "$*: exit status $status, not $wanted"
  cat "$folder/out" "$folder/err" >"$folder/both"
  [ -z "$text" ] || grep -E "$text" "$folder/both" >/dev/null || fail "$*: no \"$text\""
}

for facade in device layered; do
  expect 0 'cut 2\.2' --facade "$facade" --simulate info
  expect 0 '^ +1 .* 4: +4[0-9]{4}\.' --facade "$facade" --simulate=office als
  expect 0 '"dominant":\{"frequency_hz":270' --facade "$facade" --simulate=mixed flicker --json
  expect 0 '^0x00: 70 bc 02' --facade "$facade" --simulate registers read 0 3
done
expect 0 '"exposure_ms":80\.0,' --simulate als --no-auto-exposure --exposure-us 80000 --gain 2 --json
[ "$(wc -l <"$folder/out")" = 1 ] || fail "more than the object"
expect 0 '^2,1,' --simulate als --count 2 --csv
expect 0 '^300 Hz, confidence 100$' --simulate=pwm-300hz flicker --detector
expect 0 '^pedestal-value +0\.\.7$' control list
expect 0 '^3$' --simulate control get pedestal-value
expect 0 '' --simulate control set sda-drive 20
expect 0 '^mains-50hz ' scenes

expect 1 'iridel_enable: No such file or directory' info
grep -- '--simulate' "$folder/err" >/dev/null || fail "no advice"
expect 1 'sda-drive takes 4, 8' --simulate control set sda-drive 6
expect 1 'no control "volume"' --simulate control get volume
expect 2 'no scene "disco"' --simulate=disco info
for usage in '' 'fly' 'als --gain 1000' 'als --json --csv' 'registers read 256' '--facade other info'; do
  # shellcheck disable=SC2086
  expect 2 '.' $usage
done

# Ctrl-C ends a watch with the sensor powered down.
export SPECTRALSIM_TIME=real SPECTRALSIM_TRACE="$folder/trace"
how_to_start --simulate
"${start[@]}" --simulate als --watch --no-auto-exposure --exposure-us 1600 >"$folder/out" 2>"$folder/err" &
for _ in $(seq 100); do
  [ "$(wc -l <"$folder/out")" -lt 3 ] || break
  sleep 0.02
done
kill -INT $!
wait $! || fail "Ctrl-C: exit status $?"
grep 'write iridel_enable "0\\0"' "$folder/trace" >/dev/null || fail "still powered"
tail -n 1 "$folder/trace" | grep 'close iridel_enable' >/dev/null || fail "not the last thing done"
