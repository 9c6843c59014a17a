#!/usr/bin/env bash
# Runs every example of a document, that is every block with lines that begin with "$ ", and compares what
# is printed with what stands there.
#   run.sh BUILD_FOLDER DOCUMENT...      Markdown, or a manual page
#
# A document's blocks share /tmp/demo, which is another folder here; each has a shell of its own, in a folder
# where build/release is the build and ./client the document's C program.
set -euo pipefail
shopt -s nullglob
build=$(cd "$1" && pwd)
shift
cd "$(dirname "$0")/../.."
work=$(mktemp -d -p /var/tmp)
trap 'rm -rf "$work"' EXIT
export PATH=$build/tool:$build/admin:$PATH LC_ALL=C
# nbdkit knows what it is asked for only once it is installed.
export plugin=$build/integrations/nbdkit/nbdkit-skgfr-plugin.so
# shellcheck disable=SC2317  # examples call it
nbdkit() { command nbdkit "${@/#skgfr/$plugin}"; }
unset TARVEX_HOME TARVEX_SID TARVEX_PATH

# Each block of a document as a file in a folder.
split_document() {
  awk -v folder="$2" '
    /^\.EX$/ { on = 1; roff = 1; ++blocks; next }
    /^\.EE$/ { on = 0; next }
    /^```/ { on = on ? 0 : $0 == "```" ? 1 : 2; ++blocks; next }
    on == 1 { if (roff) { gsub(/\\-/, "-"); gsub(/\\e/, "\\") } print > sprintf("%s/%03d", folder, blocks) }' "$1"
}
transcript() {
  local line
  while IFS= read -r line; do
    [[ $line == '$ '* ]] || continue
    printf '%s\n' "$line"
    eval "${line#\$ }" 2>&1 || true
  done < "$1"
}

status=0 examples=0
for document in "$@"; do
  place=$work/${document##*/}
  mkdir -p "$place"/{demo,here/build,blocks}
  ln -s "$build" "$place/here/build/release"
  awk '/^```c$/ { on = 1; next } /^```/ { on = 0 } on' "$document" > "$place/client.c"
  [[ ! -s $place/client.c ]] || cc -std=gnu11 -D_GNU_SOURCE -I. -o "$place/here/client" "$place/client.c" \
    "$build/skgfr/libskgfr.a" "$build/sysl/libsysl.a"
  split_document "$document" "$place/blocks"
  for block in "$place"/blocks/*; do
    grep -q '^\$ ' "$block" || continue
    sed -i "s|/tmp/demo|$place/demo|g" "$block"
    (cd "$place/here" && transcript "$block") > "$work/printed"
    examples=$((examples + $(grep -c '^\$ ' "$block")))
    diff "$block" "$work/printed" > "$work/difference" ||
      { printf '%s prints otherwise:\n' "$document"; cat "$work/difference"; status=1; }
  done
done
(( examples > 0 )) || { echo "no examples" >&2; exit 1; }
echo "$examples examples in $# documents"
exit $status
