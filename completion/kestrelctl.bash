# SPDX-License-Identifier: GPL-3.0-or-later
#
# Completion of kestrelctl's command line in bash. Subcommands and options are those that the program's
# help lists, and the names are those of the stations that can be played. Names come from the air: one
# may hold anything that a shell obeys.

# The names that contain $1, one per line. One that begins with a dash would be taken for an option.
_kestrelctl_names() {
  kestrelctl stations --json --filter="$1" 2>/dev/null |
    sed -nE '/"playable":true/s/^\{"name":"(([^"\\-]|\\.)([^"\\]|\\.)*)".*/\1/p' |
    sed 's/\\\(["\\]\)/\1/g' | sort -u
}

# Print the name $1 as it must follow the open quote $2, if there is one: readline keeps that quote, and
# closes it unless the name ends with the same character. Fails for a name that cannot be written so.
_kestrelctl_quote() {
  local name="$1" apostrophe="'\\''"
  case "$2" in
    \") [[ $name != *[\\\"\$\`!]* ]] || return 1 ;;
    \')
      name="${name//\'/"$apostrophe"}"
      [[ $name != *\' ]] || name="${name%\'}"
      ;;
    *)
      printf -v name %q "$name"
      # A word begins after these for readline, though not for the shell.
      [[ $name == \$* ]] || name="$(sed 's/[:=@]/\\&/g' <<<"$name")"
      ;;
  esac
  printf '%s\n' "$name"
}

# Offer names for $1, which follows the words $2 of a name.
_kestrelctl_offer_names() {
  local quote="${1:0:1}" typed="$1" before="${2:+$2 }" apostrophe="'\\''" name
  if [[ $quote == [\"\'] ]]; then
    typed="${typed:1}"
    typed="${typed//"$apostrophe"/\'}"
  else
    quote="" typed="${typed//\\/}"
  fi
  while IFS= read -r name; do
    [[ ${name,,} == "${before,,}"* ]] || continue
    name="$(_kestrelctl_quote "${name:${#before}}" "$quote")" && COMPREPLY+=("$name")
  done < <(_kestrelctl_names "$before$typed")
}

# What the option $2 takes according to the help $1: "FILE", or its values with | between them.
_kestrelctl_argument() {
  awk -v option="$2" 'index("," $1 ",", "," option ",") && $2 ~ /^[A-Z:]+$|[|]/ {print $2}' <<<"$1"
}

_kestrelctl() {
  local current="${COMP_WORDS[COMP_CWORD]}" subcommand="" value="" candidates="" help i
  local -a given=()
  ((COMP_CWORD > 1)) && subcommand="${COMP_WORDS[1]}"
  help="$(kestrelctl ${subcommand:+"$subcommand"} --help 2>/dev/null)"
  [[ $subcommand != preset ]] || help="$(kestrelctl preset set --help 2>/dev/null)"
  for ((i = 2; i < COMP_CWORD; ++i)); do
    if [[ -n $value ]]; then
      value=""
    elif [[ ${COMP_WORDS[i]} == -* ]]; then
      value="$(_kestrelctl_argument "$help" "${COMP_WORDS[i]}")"
    else
      given+=("${COMP_WORDS[i]}")
    fi
  done
  COMPREPLY=()
  if [[ $value == *"|"* ]]; then
    candidates="${value//|/ }"
  elif [[ -n $value && $value != FILE ]]; then
    return
  elif [[ -z $subcommand && $current != -* ]]; then
    candidates="$(sed '1,/^Subcommands:/d' <<<"$help" | awk '/^  [a-z]/ {print $1}')"
  elif [[ -z $value && $current == -* ]]; then
    candidates="$(awk '/^ +-/ {print $1}' <<<"$help" | tr ',' '\n')"
  elif [[ -n $value || $subcommand == @(stations|report|frequencies) ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  elif [[ $subcommand == play ]]; then
    _kestrelctl_offer_names "$current" "${given[*]}"
  elif [[ $subcommand == preset ]] && ((${#given[@]} == 0)); then
    candidates="set remove"
  elif [[ $subcommand == preset && ${given[0]} == set ]]; then
    ((${#given[@]} == 1)) || _kestrelctl_offer_names "$current" "${given[*]:2}"
  fi
  [[ -z $candidates ]] || mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
} && complete -F _kestrelctl kestrelctl kestrelctl-sim
