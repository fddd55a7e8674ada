#!/usr/bin/env bash
# Kills clients by SIGKILL at random moments of sessions of every kind, on one phone with the kernel's own nodes.
# The next process must bring the sensor up and measure as if nothing had been. The arguments are the build
# folder, the number of kills (100) and the seed of the moments (1).
set -euo pipefail
build=$1 kills=${2:-100}
RANDOM=${3:-1}

if [ -z "${ON_PHONE-}" ]; then
  echo "seed ${3:-1}"
  ON_PHONE=1 exec "$build/spectralsim" run --nodes kernel --scene mains-50hz "$0" "$build" "$kills" "${3:-1}"
fi

export SPECTRALHOST_LOG=info
# The statuses of a session, and whether its results are valid, from its log.
statuses() {
  "$build/session_client" "$1" 2>&1 >/dev/null |
    sed -nE 's/^I\/client\( *[0-9]+\): (.*( = ).*|(als|flicker) [0-9]).*/\1/p'
}
mapfile -t sessions < <("$build/session_client" --list)
als="device ALS default" flicker="layered flicker"
als_statuses=$(statuses "$als")
flicker_statuses=$(statuses "$flicker")
for kill in $(seq "$kills"); do
  session=${sessions[kill % ${#sessions[@]}]}
  after=$(printf '0.%03d' $((10 + RANDOM % 990)))
  # The session again and again: it is killed in the middle of one.
  (yes "$session" | timeout --signal=KILL "$after" "$build/session_client" >/dev/null) 2>/dev/null && status=0 || status=$?
  [ $status = 137 ] || { echo "\"$session\" ended with $status"; exit 1; }
  next=$als
  [ $((kill % 20)) != 0 ] || next=$flicker
  undisturbed=$als_statuses
  [ "$next" = "$als" ] || undisturbed=$flicker_statuses
  [ "$(statuses "$next")" = "$undisturbed" ] ||
    { echo "after \"$session\" was killed at $after s, \"$next\" has other results"; exit 1; }
done
echo "$kills clients killed in the middle of their sessions, each next session as if nothing had been"
