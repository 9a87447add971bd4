# SPDX-License-Identifier: GPL-3.0-or-later
#
# Completion of kestrel's and kestrel-sim's command lines in bash: the options, and the values of
# those that have a few. bash-completion loads it by the program's name; sourcing it does as well.

_kestrel() {
  local current="${COMP_WORDS[COMP_CWORD]}" option="" candidates
  ((COMP_CWORD > 0)) && option="${COMP_WORDS[COMP_CWORD - 1]}"
  # To bash "--boot=D" is three words.
  if [[ $current == = ]]; then
    current=""
  elif [[ $option == = ]] && ((COMP_CWORD > 1)); then
    option="${COMP_WORDS[COMP_CWORD - 2]}"
  fi
  COMPREPLY=()
  case "$option" in
    -b | --boot) candidates="D F" ;;
    -o | --i2s_out) candidates="0 1" ;;
    -y | --frequency_list)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    -[lfecF] | --level | --frequency | --service | --component | --fm_frequency) return ;;
    *)
      candidates="-l --level= -b --boot= -k --shutdown -i --chip_info -d --digrad_status
        -n --event_status -g --digital_service_list -D --station_text -t --datetime -p --play
        -f --frequency= -e --service= -c --component= -o --i2s_out= -x --next -X --previous
        -F --fm_frequency= -r --rds_status -j --format_json -u --full_scan -y --frequency_list=
        -? --help --usage -V --version"
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
  # The value follows "=" without a blank.
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
  return 0
} && complete -F _kestrel kestrel kestrel-sim
