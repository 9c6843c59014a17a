#!/usr/bin/env bash
# How the program is built to limit what a fault that nobody found can do:
#   hardening.sh PROGRAM [fact...]: one of those below that this build need not show
set -euo pipefail
program=$1
shift
elf=$(readelf --wide --file-header --program-headers --dynamic --dyn-syms "$program")
failed=0
while IFS=: read -r fact pattern; do
  [[ " $* " == *" ${fact// /-} "* ]] && continue
  grep -Eq -- "$pattern" <<< "$elf" || { echo "not so: it $fact ($pattern)" >&2; failed=1; }
done << 'FACTS'
runs at any address:FLAGS_1.* PIE
is started by the dynamic linker:^ *INTERP
makes the tables of the linker read-only:^ *GNU_RELRO
binds every import before that:FLAGS.*NOW
runs nothing on the stack:GNU_STACK .* RW +0x
watches its stack frames:UND __stack_chk_fail
lets the C library check buffers:UND __[a-z]+_chk(@|$)
FACTS

needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<< "$elf")
[[ " $* " == *' needs-only-the-C-library '* || $needed == libc.so.[0-9]* && $needed != *$'\n'* ]] ||
  { echo "needs more than the C library: $needed" >&2; failed=1; }
exit $failed
