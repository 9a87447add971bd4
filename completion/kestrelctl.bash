# SPDX-License-Identifier: GPL-3.0-or-later
#
# Completion of kestrelctl's command line in bash. Subcommands, options and their values are those that
# the program's help lists, and the names are those of the newest scan.

# The names of the stations that can be played, one a line.
_kestrelctl_names() {
  kestrelctl stations --json 2>/dev/null |
    sed -nE 's/^ *"name": "(.*)",$/\1/p; /^ *"command": "[^"]/a .' |
    sed -n '/^\.$/!h; /^\.$/{x;p}' | sed 's/\\\(["\\]\)/\1/g' | sort -u
}

_kestrelctl() {
  local current="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD - 1]}" subcommand=""
  local i candidate candidates help quote typed names=0
  ((COMP_CWORD > 1)) && subcommand="${COMP_WORDS[1]}"
  help="$(kestrelctl ${subcommand:+"$subcommand"} --help 2>/dev/null)"
  COMPREPLY=()
  for ((i = 2; i < COMP_CWORD; ++i)); do
    case "${COMP_WORDS[i]}" in
      -n | --dry-run) ;;
      -*) ((++i)) ;; # and its value
      *) ((++names)) ;;
    esac
  done
  if [[ -z $subcommand && $current != -* ]]; then
    candidates="$(sed '1,/^Subcommands:/d' <<<"$help" | awk '/^  [a-z]/ {print $1}')"
  elif [[ $current == -* ]]; then
    candidates="$(awk '/^ +-/ {print $1}' <<<"$help" | tr ',' '\n')"
  elif [[ $before == --sort || $before == -s ]]; then
    candidates="$(sed -n 's/.*--sort.*{\(.*\)}.*/\1/p' <<<"$help" | tr ',' '\n')"
  elif [[ $before == -[bel] || $before == --@(block|level|every|count) ]]; then
    return
  elif [[ $subcommand == play && names -eq 0 && $before != --@(kestrel|lock) ]]; then
    # What is typed is as it stands, quotes and all; what is offered is to stand in its place.
    quote="${current:0:1}" typed="${current#[\"\']}"
    [[ $quote == [\"\'] ]] || quote=""
    while IFS= read -r candidate; do
      if [[ -n $quote ]]; then COMPREPLY+=("$quote$candidate$quote"); else COMPREPLY+=("$(printf %q "$candidate")"); fi
    done < <(_kestrelctl_names | grep -iF -- "${typed//\\/}")
    return
  else
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
  return 0
} && complete -F _kestrelctl kestrelctl
