# Tests the completion for zsh with the program itself, with stand-ins for zsh's own functions.
#   completion.zsh DIRECTORY-OF-COMPLETIONS VALENCTL
program=$2
valenctl() { "$program" "$@" }
typeset -a offered
_describe() { offered=("${(@P)2}") }
_files() { files=1 }

failed=0
# complete_words WORD...: what is offered for the last word
complete_words() {
   local -a words=(valenctl "$@")
   local CURRENT=$#words
   offered=() files=0
   source "$directory/_valenctl"
}
directory=$1
# expect WANTED WORD...
expect() {
   local wanted=$1
   shift
   complete_words "$@"
   if [[ "${(j:,:)offered}" != "$wanted" ]]; then
      print -u2 "valenctl $*: offered \"${(j:,:)offered}\", expected \"$wanted\""
      failed=1
   fi
}

expect 'follow:Show trace lines as they are written' trace f
expect '--quiet:Print errors only' shutdown --q
expect 'ready:,up:,down:,idle:' wait Vlan7 --until ''
expect '--vrf:All interfaces of this VRF' shutdown --vr
complete_words config check ''
if ((!files)); then
   print -u2 'valenctl config check: no files are offered'
   failed=1
fi
exit $failed
