# Completes vdprep's arguments in bash: the type, then the file. Relative names are those of the home
# directory's dbs, where vdprep looks for them.

_vdprep() {
  local word=${COMP_WORDS[COMP_CWORD]} place=.
  COMPREPLY=()
  case $COMP_CWORD in
    1) mapfile -t COMPREPLY < <(compgen -W 'kvs vtg' -- "$word") ;;
    2)
      compopt -o filenames
      [[ $word == [/~]* ]] || place=${TARVEX_HOME-}/dbs
      mapfile -t COMPREPLY < <(cd "$place" 2>/dev/null && compgen -f -- "$word")
      ;;
  esac
}

complete -F _vdprep vdprep
