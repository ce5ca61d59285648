# Completion for bash: valenctl itself lists what may come next.

_valenctl() {
   local current=${COMP_WORDS[COMP_CWORD]} line
   COMPREPLY=()
   while IFS= read -r line; do
      if [[ $line == $'\t'* ]]; then
         mapfile -t COMPREPLY < <(compgen -f -- "$current")
         compopt -o filenames 2>/dev/null
         return
      fi
      COMPREPLY+=("$(printf %q "${line%%$'\t'*}")")
   done < <(valenctl complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}

complete -F _valenctl valenctl
