#!/usr/bin/env bash
# A shared library exports what its map lists, under one version, and the map lists what the public headers
# declare.
#   exports.sh C_COMPILER ROOM LIBRARY      ROOM: sysl or skgfr
set -euo pipefail
compiler=$1 room=$2 library=$3
cd "$(dirname "$0")/../.."
version=${room^^}_1

listed=$(sed -n 's/^    \([a-z_0-9A-Z]*\);$/\1/p' "$room/$room.map")
# The compiler's own list of prototypes has no variables.
declared=$(
  cat "$room"/*.h | sed -n 's/^extern const [a-z]* \([a-z]*\)\[\];$/\1/p'
  for header in "$room"/*.h; do
    "$compiler" -D_GNU_SOURCE -I. -x c -fsyntax-only -aux-info /dev/stdout - <<< "#include \"$header\""
  done | grep -oP "^/\* (\./)?$room/[^*]*\*/ extern [^(]*?\K\w+(?= \()"
)
exported=$(nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }')

compare() { diff <(sort -u <<< "$2") <(sort -u <<< "$3") || { echo "$room: $1" >&2; exit 1; }; }
compare 'the map against the headers' "$listed" "$declared"
compare 'the map against the library' "$(sed "s/\$/@@$version/" <<< "$listed")" "$exported"
echo "$room: $(wc -l <<< "$listed") names"
