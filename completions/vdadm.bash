# Completes vdadm's subcommands, switches and names in bash. What there is to complete, the program's own help
# tells.

_vdadm() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]} words
  COMPREPLY=()
  if (( COMP_CWORD == 1 )); then
    words=$(vdadm --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z]*\) .*/\1/p')
  elif [[ $before == --type || $COMP_CWORD == 2 && $command =~ ^(check|stamp|create)$ && $word != -* ]]; then
    words='kvs vtg'
  elif [[ $before == --range || $before == --rate || $before == --size || $before == --timeout ]]; then
    return  # only the user knows
  elif [[ $word == -* ]]; then
    words=$(vdadm "$command" --help 2>/dev/null | grep -o -- '--[a-z-]*')
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _vdadm vdadm
