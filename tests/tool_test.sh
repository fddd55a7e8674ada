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
  expect 0 '^  2 .* 4: +[0-9]+\.' --facade "$facade" --simulate=office als --count 2
  expect 0 '"dominant":\{"frequency_hz":270' --facade "$facade" --simulate=mixed flicker --json
  expect 0 '^0x00: 70 bc 02' --facade "$facade" --simulate registers read 0 3
done
expect 0 '"exposure_ms":80\.0,' --simulate als --no-auto-exposure --exposure-us 80000 --gain 2 --json
[ "$(wc -l <"$folder/out")" = 1 ] || fail "more than the object"
expect 0 '^2,1,' --simulate als --count 2 --csv
expect 0 "^  1     300 Hz         100$" --simulate=pwm-300hz flicker --detector
expect 0 '"frequency_hz":300,"confidence":100' --simulate=pwm-300hz flicker --detector --json
expect 0 "calibration    none" --simulate info
expect 0 '"chip_id":112,"revision":188' --simulate info --json
expect 0 '^      1  green +0\.71 +65520\.00 \*$' --simulate=sunlight als
expect 0 '^      0  red +0\.71 +59[0-9]{3}\.[0-9]+$' --simulate=sunlight als
# Also where a unit's factors bring the counts down.
for ((line = 1; line <= 13; ++line)); do echo 30000; done >"$folder/factory"
SPECTRALSIM_MODEL=ostrel SPECTRALSIM_FACTORY_FILE=$folder/factory expect 0 '^      1  green +0\.71 +4[0-9]{3}\.[0-9]+ \*$' --simulate=sunlight als
SPECTRALSIM_MODEL=ostrel SPECTRALSIM_FACTORY_FILE=$folder/factory expect 0 '^      3  infrared +66\.67 +1[0-9]{3}\.[0-9]+$' --simulate als --no-auto-exposure --exposure-us 16000 --gain 66
expect 0 'saturated: too bright' --simulate=sunlight flicker
expect 0 '"saturated":true' --facade layered --simulate=sunlight als --json
expect 0 '^      4  clear +10\.00 +45[0-9]{3}\.[0-9]+$' --simulate=office als

# What a measurement is kept as.
expect 0 "270 Hz" --simulate=mixed flicker --plot "$folder/lamp.png" --save "$folder/lamp.wav"
[ "$(head -c 4 "$folder/lamp.png" | tail -c 3)" = PNG ] || fail "no picture"
[ "$(head -c 4 "$folder/lamp.wav")" = RIFF ] || fail "no sound"
[ "$(stat -c %s "$folder/lamp.wav")" = 4044 ] || fail "not 2000 samples"
expect 0 "" --simulate=mixed flicker --plot "$folder/lamp.gp"
grep "dominant 270 Hz" "$folder/lamp.gp" >/dev/null || fail "the peak is not marked"
expect 1 "cannot write .*nowhere/lamp.png: No such" --simulate flicker --plot "$folder/nowhere/lamp.png"
expect 0 "^   1    0      0 +10000000 +0    160 +-?[0-9]+" --simulate tunnel dump --raw "$folder/stream"
[ "$(head -c 4 "$folder/stream")" = EMOR ] || fail "no stream"
expect 0 "^5,15,0,40000000,0,16$" --simulate tunnel dump --csv
expect 0 '^pedestal-value +0, 1, .* 6 or 7$' control list
expect 0 '^3$' --simulate control get pedestal-value
expect 0 '' --simulate control set sda-drive 20
expect 0 '^mains-50hz ' scenes

expect 1 'iridel_enable: No such file or directory' info
grep -- '--simulate' "$folder/err" >/dev/null || fail "no advice"
SPECTRALSIM_FAULTS="open:sensor_tunnel#every" expect 1 "/dev/sensor_tunnel: Input/output error" --simulate flicker
SPECTRALSIM_ANALYSIS=none expect 1 "Flicker needs the analysis library" --simulate flicker
SPECTRALSIM_FAULTS="open:vd6281#every=EACCES" expect 1 "/dev/vd6281: Permission denied" --simulate info
grep "as root" "$folder/err" >/dev/null || fail "no advice"

# What fails on the way is named too, and is not taken for steady light.
while read -r fault text command; do
  SPECTRALSIM_FAULTS=$fault expect 1 "$text" --simulate $command
done <<'FAULTS'
read:sensor_tunnel#every sensor_tunnel:.no.samples flicker
ioctl:sensor_tunnel#every sensor_tunnel:.no.samples flicker
ioctl:sensor_tunnel#every sensor_tunnel:.setting.it.up tunnel dump
ioctl:vd6281#5+ vd6281:.reading.a.register als
ioctl:vd6281#60+ vd6281:.reading.a.register flicker
write:iridel_enable#every iridel_enable:.switching.the.power.on info
write:iridel_write_byte#every iridel_write_byte:.writing.a.register info
open:unparsed_flicker_data=EACCES unparsed_flicker_data:.Permission tunnel dump
open:unparsed_flicker_data#2=EACCES sensor_tunnel.gave.nothing tunnel dump
FAULTS
how_to_start --simulate
if "${start[@]}" --simulate als --count 2 --csv >/dev/full 2>"$folder/err"; then fail "a full disk is no failure"; fi
expect 0 "none +1$" --simulate=dark flicker --detector
expect 2 'sda-drive takes 4, 8' --simulate control set sda-drive 6
expect 2 "pedestal-value takes" --simulate control set pedestal-value 9
expect 2 'pedestal-value takes' --simulate control set pedestal-value abc
expect 2 'no factor' --simulate als --gain nan
expect 2 'no option "--bogus"' --bogus
expect 2 'a command is needed: list get set' control
# What is printed goes nowhere but to the output, even where that is closed.
how_to_start --simulate
if "${start[@]}" --simulate als >&-; then fail "a closed output is no failure"; fi 2>"$folder/err"
if "${start[@]}" --help >/dev/full; then fail "a full disk is no failure of --help"; fi 2>"$folder/err"
expect 2 'no control "volume"' --simulate control get volume
expect 2 'no scene "disco"' --simulate=disco info
expect 2 "does not end in" --simulate flicker --plot lamp.svg
expect 0 "clear" als --facade layered --simulate
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

# On a terminal a watch draws itself again in its place, and gives the cursor back.
unset SPECTRALSIM_TRACE
how_to_start --simulate
script -qefc "timeout --foreground -s INT 1 ${start[*]} --simulate als --watch --no-auto-exposure --exposure-us 100000" "$folder/typescript" >/dev/null </dev/null || true
grep -aE $'^\033\\[7A\r\033\\[Jexposure ' "$folder/typescript" >/dev/null || fail "not drawn again"
grep -aF $'\033[?7h\033[?25h' "$folder/typescript" >/dev/null || fail "no cursor left"

# A reader that goes away leaves the sensor powered down, too.
export SPECTRALSIM_TRACE="$folder/trace"
rm -f "$folder/trace"
how_to_start --simulate
("${start[@]}" --simulate als --watch --no-auto-exposure --exposure-us 1600 2>/dev/null || true) | head -n 1 >/dev/null
tail -n 1 "$folder/trace" | grep 'close iridel_enable' >/dev/null || fail "powered for nobody"
