#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
#
# documents_test.sh <directory of the programs> <document>...
#
# Runs every command of a document's console blocks, in their order, on a simulated board of the
# document's own, and compares what it prints with what the document shows. "..." in a document means
# any lines, and at the end of a line any rest of it. kestrel and kestrelctl are the programs on the
# simulated board.
set -uo pipefail

programs="$1"
shift
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/bin"
for program in kestrel kestrelctl; do
  ln -s "$programs/$program-sim" "$scratch/bin/$program"
done
export PATH="$scratch/bin:$programs:$PATH" KESTREL_SIM_CLOCK=virtual
sudo() { "$@"; }
failures=0

# compare <document> <command> <shown text> <printed text>: "..." becomes any lines, or the rest of one.
compare() {
  local pattern
  pattern="$(sed 's/[][*?()\\|!+@]/\\&/g; s/^\.\.\.$/*/; s/ \.\.\.$/ *([![:cntrl:]])/' <<<"$3")"
  # shellcheck disable=SC2053 # a pattern
  [[ "$4" == $pattern ]] && return
  echo "$1: $ $2"
  diff --label shown --label printed -u0 <(echo "$3") <(echo "$4")
  ((++failures))
}

# run <document> <command> <shown text>
run() {
  [ -n "$2" ] || return
  ((++commands))
  compare "$1" "$2" "$(printf %s "$3")" "$(cd "$work" && eval "$2" 2>&1 </dev/null)"
}

for document in "$@"; do
  export KESTREL_SIM_DIR="$scratch/board-$(basename "$document")"
  export KESTREL_STATE="$scratch/state-$(basename "$document")"
  work="$scratch/work-$(basename "$document")"
  mkdir -p "$work"
  commands=0 in_block=no command="" shown="" indent=""
  while IFS= read -r line; do
    # A block in a list is indented.
    [[ "$line" =~ ^(\ *)\`\`\`console$ ]] && indent="${BASH_REMATCH[1]}"
    line="${line#"$indent"}"
    case "$in_block:$line" in
      no:'```console') in_block=yes command="" shown="" ;;
      yes:'```')
        run "$document" "$command" "$shown"
        in_block=no
        ;;
      yes:'$ '*)
        run "$document" "$command" "$shown"
        command="${line#\$ }" shown=""
        ;;
      yes:'> '*)
        # What the shell asks for after the command's first line.
        if [ -z "$shown" ]; then command+=$'\n'"${line#> }"; else shown+="$line"$'\n'; fi
        ;;
      yes:*) shown+="$line"$'\n' ;;
    esac
  done <"$document"
  echo "$document: $commands commands run"
  ((commands > 0)) || ((++failures))
done
exit $((failures > 0))
