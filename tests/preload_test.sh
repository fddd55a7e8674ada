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

if run SPECTRALSIM_SENSOR=none 2>"$folder/log"; then fail "read without a sensor"; fi
grep -qE '^E/ilsservice-driver-device\( *[0-9]+\): VD6281_Enable file open failed$' "$folder/log" || fail "no log line"

for wrong in SPECTRALSIM_SCEEN=home SPECTRALSIM_SCENE=disco SPECTRALSIM_CUT=3 SPECTRALSIM_TIME=slow SPECTRALSIM_FAULTS=x SPECTRALSIM_FACTORY_FILE=/nowhere/file SPECTRALSIM_SENSOR=no SPECTRALSIM_TRACE=/nowhere/file SPECTRALSIM_ANALYSIS=/nowhere/file; do
  status=0
  run "$wrong" >/dev/null 2>"$folder/log" || status=$?
  [ "$status" = 2 ] || fail "$wrong: exit status $status"
  grep -q '^spectralsim: ' "$folder/log" || fail "$wrong: no message"
done
