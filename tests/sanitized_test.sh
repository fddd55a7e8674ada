#!/usr/bin/env bash
# Runs programs that are built with a sanitizer, which must come before any preloaded library, on the kernel's own
# nodes. The argument is the build folder.
set -euo pipefail
build=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
on_phone() {
  SPECTRALHOST_LOG=silent "$build/spectralsim" run --nodes kernel --scene mixed "$@" >"$folder/out" 2>&1 ||
    { echo "$*: exit status $?"; cat "$folder/out"; exit 1; }
}
on_phone "$build/spectralsensorctl" info
on_phone "$build/spectralsensorctl" als --count 2 --json
on_phone "$build/spectralsensorctl" flicker --json
on_phone "$build/spectralsensorctl" tunnel dump
on_phone "$build/spectralsensorctl" registers dump
on_phone "$build/first_reading"
on_phone "$build/two_clients"
on_phone "$build/session_client" "device calibrated ALS" "layered ALS default" "layered flicker" "driver controls" \
  "driver dump" "wrapper AmbientLightSensor"
