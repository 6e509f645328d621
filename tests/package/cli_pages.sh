#!/usr/bin/env bash
# The man page and the completions know every command, option and setting of the program.
#   cli_pages.sh PROGRAM MAN_PAGE COMPLETION_FOLDER
set -euo pipefail
program=$1 page=$2 completions=$3
failed=0
complain() { echo "$*" >&2; failed=1; }

# the words of a section of the program's help, found here in another way than in the completions
words() {  # SECTION [COMMAND]
  "$program" "${@:2}" --help | sed -n "/^$1/,/^\$/s/^  \([^ ]\+\).*/\1/p" | tr ',' '\n'
}
# the man page's text of a command, or its settings, without markup
page_section() { sed -n "/^\.S[SH] \"\?$1\( \|\"\|\$\)/,/^\.S[SH] /p" "$page" | sed 's/\\-/-/g'; }

mapfile -t commands < <(words Subcommands)
mapfile -t settings < <(words Settings convert)
[ ${#commands[@]} -ge 7 ] && [ ${#settings[@]} -ge 20 ] || complain "the help was not understood"

for command in "${commands[@]}"; do
  [ "$command" = help ] && continue
  section=$(page_section "$command")
  [ -n "$section" ] || complain "$page: nothing on $command"
  for option in $(words Options "$command" | grep -v -x -e -h -e --help); do
    grep -q -E -e "(^| |\")$option( |,|\$|\")" <<<"$section" || complain "$page: $command: nothing on $option"
  done
done
settings_section=$(page_section SETTINGS)
for setting in "${settings[@]}"; do
  grep -q -w "$setting" <<<"$settings_section" || complain "$page: nothing on the setting $setting"
done

source "$completions/vndlp.bash"
compopt() { :; }  # for the shell while it completes
offers() {  # EXPECTED WORD...: what is offered for the last word
  local expected=$1
  shift
  COMP_WORDS=("$program" "$@")
  COMP_CWORD=$#
  _vndlp 2>/dev/null
  [ "$(printf '%s\n' "${COMPREPLY[@]}" | sort)" = "$(printf '%s\n' $expected | sort)" ] ||
    complain "completion of \"vndlp $*\": ${COMPREPLY[*]}, expected $expected"
}
offers "${commands[*]} -h --help -V --version -v --verbose -q --quiet" ""
offers "convert" con
for command in "${commands[@]}"; do
  offers "$(words Options "$command" | xargs) -v --verbose -q --quiet" "$command" -
done
offers "${settings[*]/%/=}" convert in out --set ""
offers "x xy" convert --mirror x
offers "M31 M32 M33" -v estimate --model M
offers "" verify "no such fi"

for shell in zsh fish; do
  command -v "$shell" >/dev/null || continue
  file=$completions/vndlp.fish
  [ "$shell" = zsh ] && file=$completions/_vndlp
  "$shell" -n "$file" || complain "$file is no $shell"
done
exit "$failed"
