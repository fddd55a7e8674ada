#!/usr/bin/env bash
# The tool's manual page and its bash completion know every command and option that its --help lists.
# The arguments are the path of the tool and the source folder.
set -euo pipefail
program=$(realpath "$1") source=$2
failed=0
complain() {
  echo "$1"
  failed=1
}
spectralsensorctl() { ${EMULATOR-} "$program" "$@"; }

# shellcheck source=/dev/null
. "$source/tools/spectralsensorctl.bash"
# Prints the completions of the last of these words, and how readline is to take them.
completions() {
  local taken=
  compopt() { taken=" ($*)"; }
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  _spectralsensorctl
  echo "${COMPREPLY[*]}$taken"
}
expect() {
  local wanted=$1 got
  shift
  got=$(completions spectralsensorctl "$@")
  [ "$got" = "$wanted" ] || complain "\"$*\" completes to \"$got\""
}

# The page without its markup, with options as "--name".
page=$(sed -E 's/\\&//g; s/ , -/ , Fl -/g; s/Fl -/--/g; s/-- -/--/g' "$source/tools/spectralsensorctl.1")
commands=("" info als flicker registers "registers read" "registers write" "registers dump" control
  "control list" "control get" "control set" tunnel "tunnel dump" scenes)
count=0
for command in "${commands[@]}"; do
  # shellcheck disable=SC2086
  help=$(spectralsensorctl $command --help)
  for section in NAME SYNOPSIS OPTIONS "EXIT STATUS"; do
    [[ $help == *"$section"$'\n'* ]] || complain "$command --help has no $section"
  done
  case $command in
    registers | control | tunnel | "") ;;
    *) [[ $page == *$'.Cm '"$command"* ]] || complain "the manual page does not mention $command" ;;
  esac
  for option in $(grep -oE '^    -.*' <<<"$help" | grep -oE -- '--[a-z-]+'); do
    count=$((count + 1))
    [ "$option" = --help ] || [[ $page == *"$option"* ]] || complain "the manual page does not mention $command $option"
    # shellcheck disable=SC2086
    [[ " $(completions spectralsensorctl $command --) " == *" $option "* ]] || complain "$command $option does not complete"
  done
done
# spectralsim's page knows its options as well.
simulator_page=$(sed -E 's/Fl -/--/g' "$source/simulator/spectralsim.1")
for option in $(${EMULATOR-} "$(dirname "$program")/spectralsim" run --help | grep -oE -- '^  (-h,)?--[a-z-]+' | grep -oE -- '--[a-z-]+'); do
  [ "$option" = --help ] || [[ $simulator_page == *".It $option"* ]] || complain "spectralsim(1) does not describe $option"
done
[ "$count" -gt 30 ] || complain "only $count options found"

expect "moonlight mains-50hz mains-60hz mixed (-o filenames)" --simulate = m
expect "flicker" --simulate = mixed fl
expect "device layered" --facade ""
expect "list get set -h --help" --facade layered control ""
expect "pedestal-enable pedestal-value" control get p
expect "4 8 12 16 20" control set sda-drive ""
expect "--help --count --watch --detector --save --plot --json --csv" flicker --count 3 --

# Files, with readline's escapes in what is typed and without them in what is completed.
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/my scenes"
touch "$folder/my desk.json" "$folder/my lamp.png"
cd "$folder"
expect "my desk.json my scenes (-o filenames)" --simulate = "my\\ "
expect "my lamp.png (-o filenames)" flicker --plot '"my l'
exit $failed
