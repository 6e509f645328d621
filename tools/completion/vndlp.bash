# Completion of vndlp for bash. Commands, options, their choices and settings are those that the program's help lists.

# First words of the lines of a help section; of options every spelling.
_vndlp_section() {  # SECTION PROGRAM [COMMAND]
  local section=$1
  shift
  "$@" --help 2>/dev/null | awk -v section="$section" '
    /^[^ ]/ { inside = index($0, section) == 1 }
    inside && /^  [^ ]/ { gsub(",", " ", $1); print $1 }'
}

# The choices of an option, which its help gives in braces.
_vndlp_choices() {  # OPTION PROGRAM COMMAND
  local option=$1
  shift
  "$@" --help 2>/dev/null | awk -v option="$option" '
    $1 == option && match($0, /\{[^}]*\}/) { choices = substr($0, RSTART + 1, RLENGTH - 2); gsub(",", " ", choices); print choices }'
}

_vndlp() {
  local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command= word words=
  COMPREPLY=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $word != -* ]]; then
      command=$word
      break
    fi
  done
  if [[ -z $command ]]; then
    words="$(_vndlp_section Subcommands "$program") $(_vndlp_section Options "$program")"
  elif [[ $previous == --set ]]; then
    words=$(_vndlp_section Settings "$program" convert | sed 's/$/=/')
    compopt -o nospace 2>/dev/null
  elif [[ $previous == --machine ]]; then
    words=$("$program" machines --names 2>/dev/null)
  elif [[ $previous == --* ]]; then
    words=$(_vndlp_choices "$previous" "$program" "$command")
  fi
  if [[ -z $words && $current == -* ]]; then
    words="$(_vndlp_section Options "$program" "$command") --verbose -v --quiet -q"
  fi
  # what is left are file names, which the shell completes
  [[ -n $words ]] && mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  return 0
}

complete -o bashdefault -o default -F _vndlp vndlp
