#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
#
# completion_test.sh bash|zsh <source directory> <directory of the programs>
#
# Types command lines into a shell on a pseudo-terminal, with Tab and Enter, and looks at the words that
# the programs are started with. Station names are hostile: a name that the shell obeys leaves a file.
# options_agree_test.sh checks the list of options. Ends with 77 when the shell is not there.
set -uo pipefail

shell="$1"
completion="$2/completion"
programs="$3"
command -v "$shell" script >/dev/null || {
  echo "$shell or script is not installed"
  exit 77
}
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
mkdir bin
touch "my blocks.txt" my-other.txt

hostile=('aa";touch p5;"' 'bb$(touch p5)' 'cc`touch p5`' "dd';touch p5;'" 'ee!!' "ff'n'" 'gg\' 'hh & 1'
  'ii:b=c@d' 'jj #~*?[x]{1}')
audio='"ComponentList": [{"comp_ID": 2}]' services="" id=0
for name in "${hostile[@]}" 'Radio 1' '-kk'; do
  name="${name//\\/\\\\}"
  services+="{\"Label\": \"${name//\"/\\\"}\", \"SICharset\": 15, \"ServId\": $((++id)), $audio}, "
done
printf '{"ensembleList": [{"EnsemleNo": 1, "DigitalServiceList": {"ServiceList": [%s {"Label": "Radio Silent"}]}}]}' \
  "$services" >ensemblescan_1_X.json

# kestrelctl as it is, except for what would need a receiver; that and kestrel print their arguments.
cat >bin/kestrel <<'END'
#!/bin/sh
printf '[%s]' "$@" >>said; echo >>said
END
cat >bin/kestrelctl <<END
#!/bin/bash
case "\$*" in
  *--help | "stations --json"*) exec "$programs/kestrelctl" "\$@" ;;
  *) exec kestrel "\$@" ;;
esac
END
chmod +x bin/kestrel bin/kestrelctl
cat >bashrc <<END
PS1='> ' HISTFILE=
bind 'set bell-style none' 'set enable-bracketed-paste off'
source "$completion/kestrel.bash"
source "$completion/kestrelctl.bash"
END
cat >.zshrc <<END
PS1='> ' fpath=("$completion" \$fpath)
autoload -Uz compinit && compinit -u -D
unsetopt beep
END
case "$shell" in
  bash) start="exec bash --noprofile --rcfile bashrc -i" ;;
  zsh) start="exec zsh -d -i" ;;
esac
export KESTREL_STATE="$scratch" ZDOTDIR="$scratch" LC_ALL=C.UTF-8 TERM=dumb PATH="$scratch/bin:$PATH"
export SHELL=/bin/sh # `script` starts the command with it; elsewhere it may be unset.
coproc script --quiet --flush --return --command "$start" /dev/null
exec 3>&"${COPROC[1]}" 4<&"${COPROC[0]}"
cat <&4 >typescript &

# expect <keys> <words that a program is started with>: the keys, Enter, and some time.
expect() {
  local before got="" try
  before="$(cat said 2>/dev/null | wc -l)"
  printf '%s\r' "$1" >&3
  for ((try = 0; try < 200; ++try)); do
    got="$(tail -n "+$((before + 1))" said 2>/dev/null)"
    [ -z "$got" ] || break
    sleep 0.05
  done
  [ "$got" = "$2" ] && return
  printf '%s\n  expected %s\n  got      %s\n' "$1" "$2" "$got"
  cat typescript
  exit 1
}
tab=$'\t'

expect "kestrel -b F$tab" "[-b][F]"
expect "kestrel --frequency_l${tab}my-$tab" "[--frequency_list=my-other.txt]"
expect "kestrel --pl$tab" "[--play]"
expect "kestrelctl frequ$tab" "[frequencies]"
expect "kestrelctl stations --so$tab si$tab" "[stations][--sort][signal]"
expect "kestrelctl report -o my-${tab}" "[report][-o][my-other.txt]"
expect "kestrelctl report ens$tab" "[report][ensemblescan_1_X.json]"
expect "kestrelctl play rad$tab" "[play][Radio 1]"
expect "kestrelctl play --volume 5 radio ${tab}" "[play][--volume][5][radio][1]"
expect "kestrelctl preset set 3 rad$tab" "[preset][set][3][Radio 1]"
for name in "${hostile[@]}"; do
  expect "kestrelctl play ${name:0:2}$tab" "[play][$name]"
  expect "kestrelctl play '${name:0:2}$tab" "[play][$name]"
done
# What double quotes cannot hold bash does not offer, and zsh writes otherwise.
for name in 'aa";touch p5;"' 'bb$(touch p5)' 'cc`touch p5`' 'ee!!' 'gg\'; do
  case "$shell" in
    bash) expect "kestrelctl play \"${name:0:2}$tab\"" "[play][${name:0:2}]" ;;
    zsh) expect "kestrelctl play \"${name:0:2}$tab" "[play][$name]" ;;
  esac
done
expect "kestrelctl play \"hh$tab" '[play][hh & 1]'
expect "kestrelctl play \"ii$tab" '[play][ii:b=c@d]'
printf 'exit\r' >&3
wait "$COPROC_PID"
[ ! -e p5 ] || {
  echo "A name was obeyed"
  exit 1
}
