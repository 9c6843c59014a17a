#!/usr/bin/env bash
# Every function of the system that the product calls is one that the failure tables make fail, or
# stands here; and every failing place of the product stands in a table.
#   check_calls.sh TESTS LIBRARY...   (the program with the replacements; the product)
set -euo pipefail
here=${0%/*} product=${0%/*}/../..

harmless=(
  # of memory, text and arithmetic
  'mem(cpy|set|move|cmp|chr|rchr)' '__mem(cpy|set|move)_chk' bcmp 'str(len|nlen|cmp|ncmp|chr|rchr|str|pbrk|cspn|tol)' '__(isoc99_)?sscanf'
  '(v?s?n?|vf)printf' '__v?s?n?printf_chk' '__vfprintf_chk' localtime_r clock_gettime
  # of what the process has: they cannot fail with the arguments that they get
  __errno_location getenv getpid stdout dirfd fileno 'sig(empty|fill|add|del)set' sigprocmask dlsym
  # giving back; nothing depends on their results
  free closedir endmntent globfree64 dlclose
  # of the compiler and the linker
  _GLOBAL_OFFSET_TABLE_ '__stack_chk_fail(_local)?' '__u?(div|mod)di3' __dso_handle
  # not there on this system: only its absence is asked for
  aio_waitn
)
pattern=$(IFS='|'; echo "${harmless[*]}")

tests=$1; shift
names() { nm "$2" "${@:3}" 2>/dev/null | awk -v kind="$1" 'NF >= 2 && $(NF-1) ~ kind {print $NF}' | sort -u; }
calls=$(comm -23 <(names '^[Uw]$' "$@") <(names '^[TDBRV]$' "$@"))
[[ $calls == *open64* ]] || { echo "these libraries call nothing" >&2; exit 1; }
unknown=$(comm -23 <(sort -u <<< "$calls") <(names '^T$' "$tests") | grep -vxE "$pattern" || true)
[[ -z $unknown ]] || { printf 'not replaced by tests/support/faults.c, and not harmless:\n%s\n' "$unknown" >&2; exit 1; }

# Under the names that the tables have for them; a pause cannot fail.
named=$(grep -vxE "$pattern|sleep" <<< "$calls" |
        sed -E 's/^__(.*)_(chk|2)$/\1/; s/^(calloc|aligned_alloc)$/malloc/' | sort -u)
unlisted=$(comm -23 - <(awk '/^  /{print $1}' "$here/calls.table" | sort -u) <<< "$named")
[[ -z $unlisted ]] || { printf 'no row of calls.table:\n%s\n' "$unlisted" >&2; exit 1; }
echo "$(wc -l <<< "$calls") functions of the system, $(wc -l <<< "$named") of them made to fail"

# A place is a code and a number, in the first detail word or the second; as many rows as places tell it.
# What no call of the system leads to is in the table of requests.
unreached=$(awk '
  { gsub(/[^0-9A-Za-z_]+/, " ") }
  /constexpr Site / { ++places[$5 " " $6 + 0 (/SiteWord second/ ? " second" : "")]; next }
  {
    for (i = 1; i <= NF; ++i) {
      ++rows[$i " 0"]; ++rows[$i " " $(i + 1)]; ++rows[$i " " $(i + 2) " second"]
    }
  }
  END { for (place in places) if (rows[place] < places[place]) print place }
' "$product"/{sysl,skgfr/base}/error_sites.hpp "$here"/*.table "$here/../skgfr/requests_test.cpp")
[[ -z $unreached ]] || { printf 'failing places in no table:\n%s\n' "$unreached" >&2; exit 1; }
