#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
#
# completion_test.sh bash|zsh <source directory> <directory of the programs>
#
# Completes command lines as bash does, and reads what the zsh function hands to zsh: values and file
# names. options_agree_test.sh checks the list of options. Ends with 77 when the shell is not there.
set -uo pipefail

shell="$1"
completion="$2/completion"
PATH="$3:$PATH"
failures=0
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
touch "my blocks.txt" my-other.txt
component='"ComponentList": [{"comp_ID": 2}]'
printf '{"ensembleList": [{"EnsemleNo": 1, "DigitalServiceList": {"ServiceList": [%s, %s, %s]}}]}' \
  "{\"Label\": \"Radio & 1\", \"ServId\": 1, $component}" "{\"Label\": \"\\\"Loud\\\"\", \"ServId\": 2, $component}" \
  '{"Label": "Radio Silent"}' >ensemblescan_1_X.json

# expect <what> <expected> <got>
expect() {
  [ "$2" = "$3" ] && return
  printf '%s\n  expected %s\n  got      %s\n' "$1" "$2" "$3"
  ((++failures))
}

# complete_bash <word>...: what bash offers for the last word, sorted
complete_bash() {
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
  "_${1%-sim}"
  printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd '|'
}

check_bash() {
  source "$completion/kestrel.bash"
  local program
  for program in kestrel kestrel-sim; do
    expect "$program" "complete -F _kestrel $program" "$(complete -p "$program" 2>&1)"
  done
  expect "firmware" "D|F" "$(complete_bash kestrel -b "")"
  expect "firmware, long" "D|F" "$(complete_bash kestrel --boot = "")"
  expect "firmware, behind =" "D|F" "$(complete_bash kestrel --boot =)"
  expect "firmware, begun" "F" "$(complete_bash kestrel -k --boot = F)"
  expect "output" "0|1" "$(complete_bash kestrel-sim -i -o "")"
  expect "output, long" "1" "$(complete_bash kestrel --i2s_out = 1)"
  expect "files" "my blocks.txt|my-other.txt" "$(complete_bash kestrel -y my)"
  expect "no file" "" "$(complete_bash kestrel --frequency_list = none)"
  expect "a number" "" "$(complete_bash kestrel -l "")"
  expect "a number, long" "" "$(complete_bash kestrel --fm_frequency = 9)"
  expect "a long option" "--frequency=|--frequency_list=" "$(complete_bash kestrel -b D --fr)"
  expect "an option without value" "--play" "$(complete_bash kestrel -D --pl)"
  expect "no option" "" "$(complete_bash kestrel stray)"
  source "$completion/kestrelctl.bash"
  expect "subcommands" "report" "$(complete_bash kestrelctl r)"
  expect "options" "--sort" "$(complete_bash kestrelctl stations --so)"
  expect "keys of the sorting" "signal" "$(complete_bash kestrelctl stations -s si)"
  expect "a station, quoted for the shell" 'Radio\ \&\ 1' "$(complete_bash kestrelctl play rad)"
  expect "a station, typed further" 'Radio\ \&\ 1' "$(complete_bash kestrelctl play -l 5 'radio\ \&')"
  expect "a station in quotes" "'\"Loud\"'" "$(complete_bash kestrelctl play -n "'\"lo")"
  expect "scan files" "ensemblescan_1_X.json" "$(complete_bash kestrelctl report ens)"
}

# complete_zsh <word>...: what the function of kestrelctl offers for the last word
complete_zsh() {
  zsh -f -c 'compadd() { print -rl -- ${(P)@[-1]} }; _describe() { compadd "$@" }; _files() { print files }
    words=("${@:2}") CURRENT=$(($# - 1)); source "$1"' - "$completion/_kestrelctl" "$@" | paste -sd '|'
}

# What the zsh function hands over, one option a line.
described_options() { zsh -f -c '_arguments() { print -rl -- "$@" }; source "$1"' - "$completion/_kestrel"; }

check_zsh() {
  command -v zsh >/dev/null || {
    echo "zsh is not installed"
    exit 77
  }
  local given
  expect "programs" "#compdef kestrel kestrel-sim" "$(head -n 1 "$completion/_kestrel")"
  given="$(described_options 2>&1)"
  expect "firmware" '(-b --boot)-b+[boot the receiver]:firmware:((D\:DAB F\:"FM with HD"))' \
    "$(grep -e '-b+' <<<"$given")"
  expect "output" '(-o --i2s_out)--i2s_out=[choose the output]:output:((0\:analogue 1\:I2S))' \
    "$(grep -e ')--i2s_out=' <<<"$given")"
  expect "files" '(-y --frequency_list)-y+[replace the frequency list]:file:_files' \
    "$(grep -e '-y+' <<<"$given")"
  expect "subcommands" "stations|play|watch|report|frequencies|doctor" \
    "$(complete_zsh kestrelctl r | sed 's/:[^|]*//g')"
  expect "options" "-h|--help" "$(complete_zsh kestrelctl doctor --)"
  expect "keys of the sorting" "name|block|signal|kind|type|id" "$(complete_zsh kestrelctl stations -s "")"
  expect "stations" '"Loud"|Radio & 1' "$(complete_zsh kestrelctl play -n --level 5 "")"
  expect "scan files" "files" "$(complete_zsh kestrelctl report e)"
}

"check_$shell"
exit $((failures > 0))
