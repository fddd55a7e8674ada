# Bash completion of spectralsensorctl. Its --help lists the commands and options that this completes.

# Adds completions by compgen.
_spectralsensorctl_add() {
  mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen "$@")
}

_spectralsensorctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  local tool=${COMP_WORDS[0]} word commands=() skip=0 i
  COMPREPLY=()
  # Bash takes --simulate=scene apart at the equals sign.
  [ "$cur" != "=" ] || cur=
  [ "$prev" != "=" ] || prev=${COMP_WORDS[COMP_CWORD - 2]}
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    case $word in
      --facade | --count | --exposure-us | --gain | --channels | --save | --plot | --length-ms | --raw) skip=1 ;;
      -* | =) [ "$word" != "=" ] || skip=1 ;;
      *)
        [ "$skip" = 1 ] || commands+=("$word")
        skip=0
        ;;
    esac
  done

  local words name
  case $prev in
    --simulate | --save | --plot | --raw)
      # Readline escapes blanks in file names and adds a slash to folders. The word that is compared
      # with them has no escapes and no quote.
      compopt -o filenames 2>/dev/null || true
      name=${cur//\\/}
      name=${name#[\"\']}
      ;;
  esac
  case $prev in
    --facade) words="device layered" ;;
    --simulate)
      _spectralsensorctl_add -W "$("$tool" scenes 2>/dev/null | cut -d' ' -f1)" -- "$name"
      _spectralsensorctl_add -f -X '!*.json' -- "$name"
      _spectralsensorctl_add -d -- "$name"
      return
      ;;
    --save | --plot | --raw)
      _spectralsensorctl_add -f -- "$name"
      return
      ;;
    --count | --exposure-us | --gain | --channels | --length-ms) return ;;
    *)
      case "${#commands[@]} ${commands[*]} $cur" in
        "2 control get "[!-]* | "2 control set "[!-]* | "2 control get " | "2 control set ") words=$("$tool" control list 2>/dev/null | cut -d' ' -f1) ;;
        "3 control set "*" "[!-]* | "3 control set "*" ") words=$("$tool" control list 2>/dev/null | sed -n "s/^${commands[2]} //p" | tr -c '0-9\n' ' ') ;;
        *)
          words=$("$tool" "${commands[@]}" --help 2>/dev/null | sed -n '
            /^COMMANDS/,/^$/s/^    \([a-z][a-z]*\) .*/\1/p
            /^OPTIONS/,/^[A-Z]/s/^    \(-[^ =[]*\).*/\1/p' | tr ',' '\n')
          ;;
      esac
      ;;
  esac
  _spectralsensorctl_add -W "$words" -- "$cur"
}
complete -F _spectralsensorctl spectralsensorctl
