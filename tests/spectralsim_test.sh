#!/usr/bin/env bash
# Runs spectralsim as its users do: its arguments, exit statuses and signals, and what it leaves behind.
# The arguments are the build folder and the front: kernel or preload.
# shellcheck disable=SC2046,SC2086  # a command is several words
set -euo pipefail
build=$1 front=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

fail() {
  echo "$1"
  cat "$folder/out" "$folder/err"
  exit 1
}
# Runs spectralsim and checks its exit status and a text in its output: expect STATUS TEXT ARGUMENTS
expect() {
  local wanted=$1 text=$2 status=0
  shift 2
  "$build/spectralsim" run --nodes "$front" "$@" >"$folder/out" 2>"$folder/err" || status=$?
  [ "$status" = "$wanted" ] || fail "$*: exit status $status, not $wanted"
  cat "$folder/out" "$folder/err" >"$folder/both"
  [ -z "$text" ] || grep -E -e "$text" "$folder/both" >/dev/null || fail "$*: no \"$text\""
}
processes() { pgrep -fc "$folder|sleep 8765" || true; }

"$build/spectralsim" run --nodes "$front" true 2>"$folder/err" || {
  cat "$folder/err"  # "no kernel nodes here": CTest shows the test as skipped
  exit 1
}
cat /proc/self/mountinfo >"$folder/mounts"
ls -A / /dev /mnt /tmp >"$folder/tree"

# The command's own exit status, arguments, input and working folder.
expect 0 '^a b --scene$' printf '%s\n' 'a b --scene'
expect 3 '' -- sh -c 'exit 3'
expect 143 '' sh -c 'kill -TERM $$'
expect 127 'cannot run /nowhere/program: No such file' /nowhere/program
expect 126 'cannot run /etc: Permission denied' --scene=dark /etc
(cd "$folder" && echo line | "$build/spectralsim" run --nodes "$front" sh -c 'cat; pwd' >out)
printf 'line\n%s\n' "$folder" | cmp - "$folder/out" || fail "no input or another working folder"

# Wrong arguments.
expect 2 'a command is needed'
expect 2 '--scen' --scen home true
expect 2 'no scene "disco"' --scene disco true
expect 2 '--cut' --cut 3 true
expect 2 'a fault is call:node' --fault x true
expect 2 '--factory-file' --factory-file /nowhere/file true
expect 2 '--analysis' --analysis /nowhere/file true
expect 2 '--data' --data /nowhere true
expect 2 'cannot write the trace /nowhere/file' --trace /nowhere/file true
SPECTRALSIM_SCEEN=home expect 2 'no variable SPECTRALSIM_SCEEN' true

# What the options set up.
echo '{"light": [3, 3, 3, 3, 3, 3]}' >"$folder/scene.json"
expect 0 '^channel 0: ' --scene "$folder/scene.json" --cut 2.0 --trace "$folder/trace" "$build/first_reading"
grep -qx 'write 03=01' "$folder/trace" || fail "no trace"
printf '\n\n\n\n\n\n1700\n2100\n470\n8800\n\n3900\n8700\n' >"$folder/factory"
expect 0 '"phone_model":3,"calibrated":true,.*[[]1.0258' --model ostrel --factory-file "$folder/factory" "$build/spectralsensorctl" info --json
expect 1 'iridel_enable: No such file' --no-sensor "$build/spectralsensorctl" als
expect 1 'reading a register: Input/output error' --fault 'ioctl:vd6281#every' "$build/spectralsensorctl" als
expect 1 'libzelk_flicker.so: cannot open shared object' --analysis none "$build/spectralsensorctl" flicker
expect 0 '' --data "$folder" "$build/spectralsensorctl" tunnel dump --raw "$folder/raw"
[ -s "$folder/unparsed_flicker_data" ] || fail "the dump is not in the data folder"
SPECTRALSIM_SENSOR=none expect 1 '' "$build/first_reading"

# Signals to spectralsim reach the command. Nothing is left behind, whatever is killed.
cat >"$folder/waits.sh" <<'TEXT'
trap 'echo caught; exit 9' USR1
echo ready
while :; do sleep 0.05; done
TEXT
"$build/spectralsim" run --nodes "$front" bash "$folder/waits.sh" >"$folder/out" 2>"$folder/err" &
until grep -q ready "$folder/out"; do sleep 0.02; done
kill -USR1 $!
status=0
wait $! || status=$?
[ "$status" = 9 ] && grep -q caught "$folder/out" || fail "SIGUSR1 did not reach the command: status $status"
if [ "$front" = kernel ]; then
  expect 0 '' sh -c 'setsid sleep 8765 >/dev/null & true'
  "$build/spectralsim" run --nodes kernel sh -c 'setsid sleep 8765 & echo ready; sleep 8765' >"$folder/out" 2>"$folder/err" &
  until grep -q ready "$folder/out"; do sleep 0.02; done
  kill -KILL $!
  wait $! 2>/dev/null || true
  for _ in $(seq 100); do [ "$(processes)" = 0 ] || sleep 0.05; done
  [ "$(processes)" = 0 ] || fail "processes are left"
fi
# Other users. The nodes belong to user system and group camera, as on a phone.
as_user() { echo setpriv "--reuid=$1" "--regid=$2" --clear-groups; }
if [ "$front" = kernel ] && [ "$(id -u)" = 0 ]; then
  if $(as_user 65534 65534) test -x "$build/spectralsensorctl"; then
    expect 0 'infrared' $(as_user 1000 1000) "$build/spectralsensorctl" als
    expect 0 'infrared' $(as_user 65534 1006) "$build/spectralsensorctl" als
    expect 1 'iridel_enable: Permission denied' $(as_user 65534 65534) "$build/spectralsensorctl" als
    grep -q '^Try as root' "$folder/err" || fail "no hint"
    # Without root spectralsim needs a /dev/fuse that is open to all, and says so where it is not.
    cat >"$folder/open_fuse.sh" <<'TEXT'
mknod -m "$1" "$2/fuse$1" c 10 229 && mount --bind "$2/fuse$1" /dev/fuse && shift 2 && exec "$@"
TEXT
    other="unshare --mount bash $folder/open_fuse.sh"
    run="$(as_user 65534 65534) $build/spectralsim run --nodes kernel"
    $other 666 "$folder" $run "$build/spectralsensorctl" als >"$folder/out" 2>"$folder/err" || fail "no phone without root"
    grep -q infrared "$folder/out" || fail "no reading without root"
    ! $other 600 "$folder" $run true >"$folder/out" 2>"$folder/err" || fail "a phone by a closed /dev/fuse"
    grep -q "root's alone" "$folder/err" || fail "no word about /dev/fuse"
  else
    echo "other users cannot reach $build: not tested"
  fi
fi
rm -f "$folder"/{fuse600,fuse666,trace,scene.json,factory,raw,*flicker_data*,waits.sh,open_fuse.sh,both}
diff "$folder/mounts" /proc/self/mountinfo || fail "the machine's mounts have changed"
ls -A / /dev /mnt /tmp | diff "$folder/tree" - || fail "files are left"
