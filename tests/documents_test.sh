#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
#
# documents_test.sh <directory of kestrel-sim> <document>...
#
# Runs every command of a document's console blocks, in their order, on a simulated board of the
# document's own, and compares what it prints with what the document shows. A line "..." in a document
# stands for any lines. A command goes on in lines that begin with "> ".
set -uo pipefail

programs="$1"
shift
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
export PATH="$programs:$PATH" KESTREL_SIM_CLOCK=virtual
sudo() { "$@"; }
failures=0

# compare <document> <command> <shown lines> <printed lines>
compare() {
  local -a shown printed
  mapfile -t shown <<<"$3"
  mapfile -t printed <<<"$4"
  local i=0 j=0
  while ((i < ${#shown[@]})); do
    if [ "${shown[i]}" = ... ]; then
      ((++i == ${#shown[@]})) && return
      while ((j < ${#printed[@]})) && [ "${printed[j]}" != "${shown[i]}" ]; do ((++j)); done
    fi
    if [ "${shown[i]}" != "${printed[j]-<end of output>}" ]; then
      printf '%s: $ %s\n  shows   %s\n  printed %s\n' "$1" "$2" "${shown[i]}" \
        "${printed[j]-<end of output>}"
      ((++failures))
      return
    fi
    ((++i, ++j))
  done
  if ((j < ${#printed[@]})); then
    printf '%s: $ %s\n  shows no   %s\n' "$1" "$2" "${printed[j]}"
    ((++failures))
  fi
}

# run <document> <command> <shown text>
run() {
  [ -n "$2" ] || return
  ((++commands))
  compare "$1" "$2" "$(printf %s "$3")" "$(cd "$work" && eval "$2" 2>&1 </dev/null)"
}

for document in "$@"; do
  export KESTREL_SIM_DIR="$scratch/board-$(basename "$document")"
  work="$scratch/work-$(basename "$document")"
  mkdir -p "$work"
  commands=0 in_block=no command="" shown=""
  while IFS= read -r line; do
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
      yes:'> '*) command+=$'\n'"${line#> }" ;;
      yes:*) shown+="$line"$'\n' ;;
    esac
  done <"$document"
  echo "$document: $commands commands run"
  ((commands > 0)) || ((++failures))
done
exit $((failures > 0))
