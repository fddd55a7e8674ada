#!/usr/bin/env bash
# Runs spectralsensorctl on the simulated phone, as its users do. The argument is its path.
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
# Sets `start` to the command that runs the tool with these arguments. Under an emulator the tool cannot
# start itself again, which --simulate makes it do, so the simulator is preloaded from outside.
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
# Runs the tool and checks its exit status and a text in its output: expect STATUS TEXT ARGUMENTS
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
  expect 0 '"dominant_hz":270,' --facade "$facade" --simulate=mixed flicker --json
  expect 0 '^0x00: 70 bc 02' --facade "$facade" --simulate registers read 0 3
done
expect 0 '"exposure_ms":80\.0,' --simulate als --no-auto-exposure --exposure-us 80000 --gain 2 --json
[ "$(wc -l <"$folder/out")" = 1 ] || fail "more than the object"
expect 0 "^  1 .*Z     300 Hz         100$" --simulate=pwm-300hz flicker --detector
expect 0 '"chip_id":112,"revision":188' --simulate info --json
expect 0 '^\{"format":1,"address":0,"value":112\}$' --simulate registers read 0 --json
expect 0 '^\{"format":1,"name":"pedestal-value","value":3\}$' --simulate control get pedestal-value --json
expect 0 '^\{"format":1,"name":"sda-drive","values":\[4,8,12,16,20\]\}$' control list --json
expect 0 '^\{"format":1,"name":"dark","description":"[^"]+"\}$' scenes --json

# The page lists every field of the last output, and the version of the formats.
page=$(dirname "$0")/../docs/tool.md
is_documented() {
  local field
  while read -r field; do
    grep -F "\`$field\`" "$page" >/dev/null || fail "$page does not list $field"
  done < <(grep -oE '"[a-z0-9_]+":' "$folder/out" | tr -d '":' | sort -u)
  grep "version $(grep -oE '"format":[0-9]+' "$folder/out" | head -n 1 | cut -d: -f2) of the formats" "$page" >/dev/null ||
    fail "$page has another version"
}
for command in info 'registers dump' 'control get sda-drive' 'control list' scenes; do
  # shellcheck disable=SC2086
  expect 0 '^\{"format":' --simulate $command --json
  is_documented
done

# Every command that measures gives the time by both clocks. Those of the simulated phone begin at
# these times.
utc='2025-01-01T00:00:0[0-9]\.[0-9]{3}Z'
while read -r command; do
  # shellcheck disable=SC2086
  expect 0 "\"time_utc\":\"$utc\",\"time_boot_ns\":120[0-9]{10}," --simulate $command --json
  is_documented
  # shellcheck disable=SC2086
  expect 0 "^1,$utc,120[0-9]{10}," --simulate $command --csv
done <<'COMMANDS'
als
flicker
flicker --detector
tunnel dump
COMMANDS

# A number has the same digits in JSON and in CSV.
expect 0 '' --simulate=clouds als --json
from_json=$(grep -oE '"(gain|counts|exposure_ms)":[0-9.]+' "$folder/out" | cut -d: -f2 | sort)
expect 0 '' --simulate=clouds als --csv
from_csv=$(tail -n 1 "$folder/out" | cut -d, -f6,8,9,11,12,17,18,20,21 | tr , '\n' | sort)
[ "$from_json" = "$from_csv" ] || fail "JSON has $from_json"

# Nothing is null in JSON and an empty field in CSV.
expect 0 '"dominant_hz":null,"dominant_strength_counts":null,' --simulate=dark flicker --json
expect 0 '^1,.*,0,0,,,,$' --simulate=dark flicker --csv
expect 0 '"frequency_hz":null,"confidence":1,' --simulate=dark flicker --detector --json
expect 0 ',,1,0$' --simulate=dark flicker --detector --csv

# A single reading waits until the auto-exposure keeps its setting, and no longer.
expect 0 '^\{.*"settled":true,' --simulate=sunlight als --json
[ "$(grep -c '^Settling the exposure: capture [12] of at most 10' "$folder/err")" = 2 ] || fail "not two captures"
# The light of this scene doubles every 300 ms.
for ((i = 0, light = 1; i < 12; ++i, light *= 2)); do
  echo "{\"at_ms\": $((300 * i)), \"light\": [$light, $light, $light, $light, $light, $light]}"
done | paste -sd, >"$folder/points"
echo "{\"points\": [$(cat "$folder/points")]}" >"$folder/sunrise.json"
expect 0 'the exposure did not settle within 10 captures' --simulate="$folder/sunrise.json" als
grep ', not settled$' "$folder/out" >/dev/null || fail "the reading does not say so"
expect 0 '^1,[^,]*,[^,]*,1,0,' --simulate="$folder/sunrise.json" als --csv
expect 0 '"settled":null,' --simulate als --no-auto-exposure --json
expect 0 '^      1  green +0\.71 +65520\.00 \*$' --simulate=sunlight als
expect 0 '^      0  red +0\.71 +59[0-9]{3}\.[0-9]+$' --simulate=sunlight als
# Saturation is recognised in the counts of a calibrated unit too.
for ((line = 1; line <= 13; ++line)); do echo 30000; done >"$folder/factory"
SPECTRALSIM_MODEL=ostrel SPECTRALSIM_FACTORY_FILE=$folder/factory expect 0 '^      1  green +0\.71 +4[0-9]{3}\.[0-9]+ \*$' --simulate=sunlight als
SPECTRALSIM_MODEL=ostrel SPECTRALSIM_FACTORY_FILE=$folder/factory expect 0 '^      3  infrared +66\.67 +1[0-9]{3}\.[0-9]+$' --simulate als --no-auto-exposure --exposure-us 16000 --gain 66

# Without a calibration, info gives the reason.
expect 0 '^calibration    none: ro.product.device is none of the four' --simulate info
while read -r fault line text; do
  { printf '2000\n%.0s' {1..7} && echo "$line" && printf '2000\n%.0s' {9..13}; } >"$folder/bad"
  SPECTRALSIM_MODEL=ostrel SPECTRALSIM_FACTORY_FILE=$folder/bad SPECTRALSIM_FAULTS=$fault \
    expect 0 "^calibration    none: .*$text" --simulate info
done <<'FACTORY_FILES'
open:ials_fac_test#every=ENOENT 2000 ials_fac_test:.No.such.file
open:ials_fac_test#9 60 channel.1,.60,.is.not.within.100\.\.50000.\(line.8
open:ials_fac_test#9 worn line.8.of.*"worn"
FACTORY_FILES

expect 0 'saturated: too bright' --simulate=sunlight flicker
expect 0 ' none +1  saturated: too bright' --simulate=sunlight flicker --detector
expect 0 '"saturated":true' --facade layered --simulate=sunlight als --json
expect 0 '^      4  clear +10\.00 +45[0-9]{3}\.[0-9]+$' --simulate=office als

# The files in which a measurement is kept.
expect 0 "270 Hz" --simulate=mixed flicker --plot "$folder/lamp.png" --save "$folder/lamp.wav"
[ "$(head -c 4 "$folder/lamp.png" | tail -c 3)" = PNG ] || fail "no picture"
[ "$(head -c 4 "$folder/lamp.wav")" = RIFF ] || fail "no sound"
[ "$(stat -c %s "$folder/lamp.wav")" = 4044 ] || fail "not 2000 samples"
expect 0 "" --simulate=mixed flicker --plot "$folder/lamp.gp"
grep "dominant 270 Hz" "$folder/lamp.gp" >/dev/null || fail "the peak is not marked"
grep "scene mixed.*channel 5, gain 5.00, 2025-01-01T" "$folder/lamp.gp" >/dev/null || fail "the picture does not say what was measured"
expect 0 "" --simulate=sunlight flicker --plot "$folder/lamp.gp"
grep "SATURATED, 2000 of 2000 samples" "$folder/lamp.gp" >/dev/null || fail "the picture does not show the saturation"
# Where a file cannot be written whole, what was there before stays, and nothing else is left.
mkdir "$folder/full"
echo before >"$folder/full/lamp.png"
(
  ulimit -f 2
  for file in --plot\ lamp.png --plot\ lamp.gp --save\ lamp.wav; do
    expect 1 "cannot write .*: File too large" --simulate=mixed flicker "${file% *}" "$folder/full/${file#* }"
  done
)
expect 1 "cannot write /dev/full: No space left" --simulate tunnel dump --raw /dev/full
[ "$(ls "$folder/full")" = lamp.png ] || fail "half a file is left"
[ "$(cat "$folder/full/lamp.png")" = before ] || fail "the picture before is lost"
expect 1 "cannot write .*nowhere/lamp.png: No such" --simulate flicker --plot "$folder/nowhere/lamp.png"
expect 0 "^   1  .*Z    0      0 +10000000 +0    160 +-?[0-9]+" --simulate tunnel dump --raw "$folder/stream"
[ "$(head -c 4 "$folder/stream")" = EMOR ] || fail "no stream"
expect 0 "^5,.*,15,0,40000000,0,16,{20}$" --simulate tunnel dump --csv
expect 0 '' --simulate tunnel dump --raw -
cmp "$folder/out" "$folder/stream" || fail "the output has other bytes than the file"
expect 2 'excludes --json' --simulate tunnel dump --raw - --json
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

# A sensor that stays powered is a failure, whatever else has worked; a second attempt is made first.
SPECTRALSIM_FAULTS=write:iridel_enable#3+ expect 1 'still powered: .*iridel_enable: switching the power off: Input/output' --simulate info
grep '^chip ' "$folder/out" >/dev/null || fail "nothing shown"
SPECTRALSIM_FAULTS=write:iridel_enable#3 expect 0 '' --simulate info

# A failure during a measurement is named too, and is not reported as steady light.
while read -r fault text command; do
  # shellcheck disable=SC2086
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
expect 2 'sda-drive takes 4, 8' --simulate control set sda-drive 6
expect 2 'pedestal-value takes' --simulate control set pedestal-value abc
expect 2 '^spectralsensorctl: --gain: 0.5 is not a number from 0.71 to 66.67$' --simulate als --gain 0.5
expect 2 'nan is not a number' --simulate als --gain nan
expect 0 '^ 10 ' --simulate als --count 010
expect 2 'no option "--bogus"' --bogus
expect 2 'a command is needed: list get set' control
# A closed or full output is a failure, and nothing is written elsewhere instead.
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

# Ctrl-C ends a watch, with the sensor powered down.
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

# Ctrl-C before the last of the readings has the exit status of a signal.
how_to_start --simulate
status=0
timeout --preserve-status -s INT 1 "${start[@]}" --simulate als --count 1000 >"$folder/out" 2>"$folder/err" || status=$?
[ "$status" = 130 ] || fail "Ctrl-C: exit status $status"

# On a terminal a watch redraws itself in place, and leaves every setting of the terminal as it is.
unset SPECTRALSIM_TRACE
how_to_start --simulate
TERM=xterm script -qefc "timeout --foreground -s INT 1 ${start[*]} --simulate als --watch --no-auto-exposure --exposure-us 100000" "$folder/typescript" >/dev/null </dev/null || true
grep -aE $'^\033\\[8A\r\033\\[Jtime ' "$folder/typescript" >/dev/null || fail "not drawn again"
if grep -aF $'\033[?' "$folder/typescript" >/dev/null; then fail "a setting of the terminal is changed"; fi
TERM=dumb script -qefc "timeout --foreground -s INT 1 ${start[*]} --simulate als --watch" "$folder/typescript" >/dev/null </dev/null || true
grep -aE '^  1  2' "$folder/typescript" >/dev/null || fail "no plain lines"
if grep -aF $'\033' "$folder/typescript" >/dev/null; then fail "a dumb terminal gets escape sequences"; fi

# When the reader of the output goes away, the tool ends without a word, and powers the sensor down.
export SPECTRALSIM_TRACE="$folder/trace"
rm -f "$folder/trace"
how_to_start --simulate
set +o pipefail
"${start[@]}" --simulate als --watch --no-auto-exposure --exposure-us 1600 2>"$folder/err" | head -n 1 >"$folder/out"
ends=("${PIPESTATUS[@]}")
[ "${ends[0]}" = 141 ] || fail "a closed pipe: exit status ${ends[0]}"
[ ! -s "$folder/err" ] || fail "a closed pipe is reported"
tail -n 1 "$folder/trace" | grep 'close iridel_enable' >/dev/null || fail "powered for nobody"
