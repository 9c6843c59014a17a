#!/usr/bin/env bash
# The sizes of records in docs/abi.md are those that a C compiler sees.
#   sizes.sh C_COMPILER C_FLAGS POINTER_SIZE
set -euo pipefail
compiler=$1 flags=$2 pointer=$3
cd "$(dirname "$0")/../.."
rows=$(sed -n 's/^| `\([a-z0-9_]*\)` | \([0-9]*\) | \([0-9]*\) |$/\1 \2 \3/p' docs/abi.md)
# shellcheck disable=SC2086  # flags are a list
{
  printf '#include "%s"\n' skgfr/client.h tool/vdprep.h
  awk -v p="$pointer" '{ printf "_Static_assert(sizeof(%s) == %s, \"%s\");\n", $1, p == 8 ? $2 : $3, $1 }' <<< "$rows"
} | "$compiler" $flags -D_GNU_SOURCE -I. -std=gnu11 -x c -fsyntax-only -
# Every record is in the table.
diff <(cut -d' ' -f1 <<< "$rows" | sort) \
  <(cat sysl/*.h skgfr/*.h | sed -n 's/^typedef struct \([a-z0-9_]*\) {$/\1/p' | sort)
