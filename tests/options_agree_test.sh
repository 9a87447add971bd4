#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
#
# options_agree_test.sh <directory of kestrel-sim> <source directory>
#
# The program's own help, the manual page and the completions must know the same options: short name, long
# name, and whether there is an argument.
set -uo pipefail

programs="$1"
source="$2"
failures=0

# Each from_... prints lines such as "-b --boot=" or "-k --shutdown", or "--usage" for a long name alone.
from_help() {
  env -u ARGP_HELP_FMT "$programs/kestrel-sim" --help |
    sed -nE 's/^ {1,6}((-.), )?(--[a-z0-9_]+=?).*/\2 \3/p'
}
from_manual() {
  sed -nE 's/^\.It Fl ([^- ])(\\&)? , Fl -([a-z0-9_]+)( Ns (=) Ns Ar [A-Z]+)?$/-\1 --\3\5/p
           s/^\.It Fl -([a-z0-9_]+)$/--\1/p' "$source/docs/kestrel.1"
}
# The completions offer names, without telling which belong together.
from_bash() (
  source "$source/completion/kestrel.bash"
  COMP_WORDS=(kestrel -) COMP_CWORD=1
  _kestrel
  printf '%s\n' "${COMPREPLY[@]}"
)
from_zsh() {
  zsh -f -c '_arguments() { print -rl -- "$@" }; source "$1"' - "$source/completion/_kestrel" |
    sed -nE 's/^(\([^)]*\))?(--?[^[+]+)\+?\[.*/\2/p'
}

# agree <place> <expected> <found>
agree() {
  diff --label "kestrel-sim --help" --label "$1" -u0 <(sort <<<"$2") <(sort <<<"$3") || ((++failures))
}

options="$(from_help | sed 's/^ *//')"
agree docs/kestrel.1 "$options" "$(from_manual)"
names="$(tr ' ' '\n' <<<"$options")"
agree completion/kestrel.bash "$names" "$(from_bash)"
if command -v zsh >/dev/null; then
  agree completion/_kestrel "$names" "$(from_zsh)"
else
  echo "completion/_kestrel was not compared: zsh is not installed"
fi

# kestrelctl: its completions ask the program itself; what the manual lists is compared.
subcommands="$("$programs/kestrelctl" --help | sed '1,/^Subcommands:/d' | awk '/^  [a-z]/ {print $1}')"
agree "docs/kestrelctl.1, subcommands" "$subcommands" \
  "$(sed -n 's/^\.Ss kestrelctl //p' "$source/docs/kestrelctl.1")"
agree "docs/kestrelctl.1, options" \
  "$(for subcommand in "" $subcommands; do "$programs/kestrelctl" $subcommand --help; done |
    awk '/^ +-/ {print $1}' | grep -v help | sort -u)" \
  "$(sed -nE 's/^\.It Fl (.) , Fl (-[a-z-]+).*/-\1,-\2/p; s/^\.It Fl (-[a-z-]+).*/-\1/p' \
    "$source/docs/kestrelctl.1" | sort -u)"
exit $((failures > 0))
