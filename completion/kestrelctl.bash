# SPDX-License-Identifier: GPL-3.0-or-later
#
# Completion of kestrelctl's command line in bash. Subcommands and options are those that the program's
# help lists, and the names are those of the newest scan.

_kestrelctl() {
  local current="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD - 1]}" candidates
  local subcommand=""
  ((COMP_CWORD > 1)) && subcommand="${COMP_WORDS[1]}"
  COMPREPLY=()
  if [[ -z $subcommand && $current != -* ]]; then
    candidates="$(kestrelctl --help | sed '1,/^Subcommands:/d' | awk '/^  [a-z]/ {print $1}')"
  elif [[ $current == -* ]]; then
    candidates="$(kestrelctl $subcommand --help | awk '/^ +-/ {print $1}' | tr ',' '\n')"
  elif [[ $before == --sort || $before == -s ]]; then
    candidates="name block signal kind type id"
  elif [[ $subcommand == play && $COMP_CWORD -eq 2 ]]; then
    # A name has blanks: it is offered with what the shell needs to keep it together.
    local IFS=$'\n'
    mapfile -t COMPREPLY < <(kestrelctl stations --json 2>/dev/null |
      sed -n 's/^ *"name": "\(.*\)",$/\1/p' | grep -iF -- "$current" | sort -u)
    ((${#COMPREPLY[@]} == 0)) || mapfile -t COMPREPLY < <(printf '%q\n' "${COMPREPLY[@]}")
    return
  else
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
  return 0
} && complete -F _kestrelctl kestrelctl
