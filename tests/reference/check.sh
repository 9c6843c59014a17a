#!/usr/bin/env bash
# Every name that the libraries export has a manual page, in which its whole contract arrived, no page has
# anything that mandoc complains about, and the HTML reference is made without a warning.
#   check.sh FOLDER_OF_PAGES DOXYFILE
set -euo pipefail
pages=$1 doxyfile=$2
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

find "$pages" man integrations -name '*.[0-9]' -type f -exec mandoc -Tlint {} +
for name in $(sed -n 's/^    \([a-z_0-9]*\);$/\1/p' ./*/*.map); do
  mandoc "$pages/man3/$name.3" | col -bx > "$work/page"
  grep -qE "^   $name\$" "$work/page" || { echo "$name: no section of its own" >&2; exit 1; }
done

# Words of the headers' comments, in order, are words of the pages: nothing is lost on the way.
words() { tr -cs 'A-Za-z0-9_' '\n' | grep -E '..' ; }
perl -Ireference -MHeader -e '
  for (@ARGV) {
    for (map { @{$_->{items}} } @{Header::read_header($_)->{sections}}) { print "$_->{text}\n" if $_->{name} }
  }' skgfr/skgfr.h skgfr/client.h sysl/sysl.h | words | sort | uniq -c > "$work/said"
find "$pages/man3" -type f -exec cat {} + | sed 's/\\-/-/g; s/\\e/\\/g' | words | sort | uniq -c > "$work/printed"
awk 'NR == FNR { there[$2] = $1; next } there[$2] < $1 { print $2 ": " $1 " times, printed " there[$2] + 0; lost = 1 }
  END { exit lost }' "$work/printed" "$work/said"

[[ -z $doxyfile ]] || { cat "$doxyfile"; echo "OUTPUT_DIRECTORY = $work"; } | doxygen -
