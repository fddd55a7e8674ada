#!/usr/bin/env bash
# Preloads the simulator into a program that is not linked to it. The argument is the build folder.
set -euo pipefail
build=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Reads all of its input, unlike grep -q, which would end the writing program early.
has() {
  grep -E "$1" >/dev/null
}
fail() {
  echo "$1"
  exit 1
}
# shellcheck disable=SC2086
run() {
  env LD_PRELOAD="$build/libspectralsim.so" SPECTRALSIM_TIME=virtual SPECTRALHOST_LOG=error "$@" ${EMULATOR-} "$build/first_reading"
}

run SPECTRALSIM_TRACE="$folder/trace" | has '^channel 0: [0-9.]+ at gain [0-9.]+$' || fail "no reading"
grep -q '^write 03=01$' "$folder/trace" || fail "no trace"

echo '{"light": [3, 3, 3, 3, 3, 3]}' >"$folder/scene.json"
run SPECTRALSIM_SCENE="$folder/scene.json" SPECTRALSIM_CUT=2.0 | has '^channel 0:' || fail "no reading of a scene file"

if run SPECTRALSIM_SENSOR=none 2>"$folder/log"; then fail "read without a sensor"; fi
grep -qE '^E/ilsservice-driver-device\( *[0-9]+\): VD6281_Enable file open failed$' "$folder/log" || fail "no log line"
if run SPECTRALSIM_FAULTS="ioctl:vd6281#every" 2>/dev/null; then fail "read through a fault"; fi

status=0
run SPECTRALSIM_SCEEN=home >/dev/null 2>"$folder/log" || status=$?
[ "$status" = 2 ] || fail "SPECTRALSIM_SCEEN: exit status $status"
grep -q '^spectralsim: no variable SPECTRALSIM_SCEEN; there are SPECTRALSIM_SCENE, ' "$folder/log" || fail "SPECTRALSIM_SCEEN: no names"

for wrong in SPECTRALSIM_SCENE=disco SPECTRALSIM_CUT=3 SPECTRALSIM_TIME=slow SPECTRALSIM_FAULTS=x SPECTRALSIM_FACTORY_FILE=/nowhere/file SPECTRALSIM_SENSOR=no SPECTRALSIM_TRACE=/nowhere/file SPECTRALSIM_ANALYSIS=/nowhere/file; do
  status=0
  run "$wrong" >/dev/null 2>"$folder/log" || status=$?
  [ "$status" = 2 ] || fail "$wrong: exit status $status"
  grep -q '^spectralsim: ' "$folder/log" || fail "$wrong: no message"
done
