#!/usr/bin/env bash
# Every function of the system that the product calls is one that the failure tables make fail, or
# stands here: check_calls.sh TESTS LIBRARY...   (the program with the replacements; the product)
set -euo pipefail

harmless=(
  # of memory, text and arithmetic
  'mem(cpy|set|move|cmp|chr|rchr)' '__mem(cpy|set|move)_chk' bcmp 'str(len|nlen|cmp|ncmp|chr|rchr|str|pbrk|cspn|tol)' '__(isoc99_)?sscanf'
  '(v?s?n?|vf)printf' '__v?s?n?printf_chk' '__vfprintf_chk' localtime_r
  # of what the process has: they cannot fail with the arguments that they get
  __errno_location getenv getpid stdout dirfd 'sig(empty|fill|add|del)set' sigprocmask dlsym
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
unlisted=$(comm -23 - <(awk '/^  /{print $1}' "${0%/*}/calls.table" | sort -u) <<< "$named")
[[ -z $unlisted ]] || { printf 'no row of calls.table:\n%s\n' "$unlisted" >&2; exit 1; }
echo "$(wc -l <<< "$calls") functions of the system, $(wc -l <<< "$named") of them made to fail"
