#!/usr/bin/env bash
# Scripts refuse bad arguments before they install or build anything: usage.sh SCRIPTS_FOLDER
#
# Whatever they would start is replaced by something that says so.
set -euo pipefail
scripts=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for command in apt-get dpkg dpkg-query sudo cmake ctest valgrind clang-format-14; do
  printf '#!/bin/sh\necho started %s\nexit 1\n' "$command" > "$work/$command"
done
chmod +x "$work"/*

failed=0
while read -r script bad; do
  while IFS= read -r -d '|' arguments; do
    status=0
    # shellcheck disable=SC2086  # a list of words
    said=$(PATH=$work:$PATH "$scripts/$script" $arguments 2>&1) || status=$?
    (( status == 2 )) && [[ $said == "usage: $script"* && $said != *started* ]] && continue
    printf '%s %s: %s, %s\n' "$script" "$arguments" "$status" "$said" >&2
    failed=1
  done <<< "$bad|"
done << 'ROWS'
test nothing|base|release asan
fuzz |now|0|5 nothing
soak |soon|1 seed|1 2 3
bench one two|(
bench-picture |one two
run vtg|VTG file|kvs file more
memcheck all
analyze README.md|nothing.cpp
lint skgfr
setup nothing|run test
server now|1 2
abi reject
package all
dump-header |one two
ROWS

# A good argument gets as far as the installation, or the rows above prove nothing.
for good in 'test asan' 'fuzz 5 names' 'soak 1 2' 'bench async' 'run' lint memcheck 'setup run'; do
  # shellcheck disable=SC2086
  said=$(PATH=$work:$PATH "$scripts"/$good 2>&1) || true
  [[ $said == *started* ]] || { printf '%s: %s\n' "$good" "$said" >&2; failed=1; }
done
exit $failed
