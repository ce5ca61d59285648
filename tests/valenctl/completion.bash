#!/usr/bin/env bash
# Tests the completion for bash with the program itself.
#   completion.bash DIRECTORY-OF-COMPLETIONS VALENCTL
set -euo pipefail

program=$2
source "$1/valenctl.bash"
valenctl() {
   "$program" "$@"
}

compopt() { :; } # works only while bash itself completes

cd "$(mktemp -d)"
trap 'rm -rf "$PWD"' EXIT
touch some-file

failed=0
# complete_words WORD...: what is offered for the last word
complete_words() {
   COMP_WORDS=(valenctl "$@")
   COMP_CWORD=$#
   COMPREPLY=()
   _valenctl
}
# expect WANTED WORD...
expect() {
   local wanted=$1
   shift
   complete_words "$@"
   if [ "${COMPREPLY[*]}" != "$wanted" ]; then
      echo "valenctl $*: offered \"${COMPREPLY[*]}\", expected \"$wanted\"" >&2
      failed=1
   fi
}
# expect_all WORD...: all that the program offers after these words, and for the commands among it
expect_all() {
   local line
   while IFS= read -r line; do
      line=${line%%$'\t'*}
      complete_words "$@" "$line"
      if [[ " ${COMPREPLY[*]} " != *" $line "* ]]; then
         echo "valenctl $*: \"$line\" is not offered" >&2
         failed=1
      fi
      ((++checked))
   done < <("$program" complete "$@" -)
   while IFS= read -r line; do
      [[ $line != [a-z]* ]] || expect_all "$@" "${line%%$'\t'*}"
   done < <("$program" complete "$@" "")
}

expect 'shutdown show' sh
expect 'messages metrics memory' m
expect 'check' config c
expect '--wait' shutdown --w
expect 'down' wait Vlan7 --until d
expect 'list' messages l
expect '--while-running' messages add radv Vlan7 --w
expect 'some-file' config check som
expect 'some-file' --socket som
expect '' shutdown --vrf V
checked=0
expect_all
if [ "$checked" -lt 100 ]; then
   echo "only $checked options were checked" >&2
   failed=1
fi
exit $failed
