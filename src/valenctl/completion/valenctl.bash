# Completion of valenctl's commands, options and the interfaces' names for bash.

# What the agent answers is completed; without one, nothing is.
_valenctl_interfaces() {
   valenctl --timeout 1 "${socket[@]}" list 2>/dev/null
}

_valenctl() {
   local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
   local commands='shutdown enable status list watch history explain wait messages trace metrics show frame config reload'
   local common='--socket --timeout --json --help'
   local socket=() words=() word i
   for ((i = 1; i < COMP_CWORD; ++i)); do
      word=${COMP_WORDS[i]}
      case $word in
         --socket) socket=(--socket "${COMP_WORDS[++i]}") ;;
         --timeout | --vrf | --device | --until | --lines | --file) ((++i)) ;;
         -*) ;;
         *) words+=("$word") ;;
      esac
   done
   local choices=
   case $previous in
      --socket | --file) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
      --until) choices='ready up down idle' ;;
      --vrf | --device | --timeout | --lines) return ;;
      *)
         case ${words[0]-} in
            '') choices="$commands $common" ;;
            shutdown) choices="--wait --quiet --vrf --device --ready --all $common $(_valenctl_interfaces)" ;;
            enable) choices="--quiet --vrf --device --ready --all $common $(_valenctl_interfaces)" ;;
            list) choices="--vrf $common" ;;
            wait) choices="--until $common $(_valenctl_interfaces)" ;;
            status | watch | history | explain) choices="$common $(_valenctl_interfaces)" ;;
            config) choices="check show $common" ;;
            show) choices="--watch $common config interface l3 model status vrf" ;;
            trace) choices="levels follow dump --lines --file $common" ;;
            messages)
               case ${words[1]-}/${#words[@]} in
                  /*) choices="list add remove $common" ;;
                  list/* | add/3 | remove/3) choices="$common $(_valenctl_interfaces)" ;;
                  *) choices="--while-running $common" ;;
               esac
               ;;
         esac
         ;;
   esac
   mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
}

complete -F _valenctl valenctl
