#!/usr/bin/env bash
# The system calls of the flow are as few as they were: system_calls.sh PROGRAM
#
# Left out are the start of the process, the loading of libaio, memory and output.
set -euo pipefail
program=$1
work=$(mktemp -d -p /var/tmp)
device=
trap '[[ -z $device ]] || losetup --detach "$device"; rm -rf "$work"' EXIT
skip() { echo "skipped: $1"; exit 77; }
strace -o "$work/trace" true || skip 'strace does not work here'
truncate -s 16384 "$work/disk"
device=$(losetup --find --show "$work/disk" 2> /dev/null) || skip 'losetup is refused'

failed=0
while read -r calls type name size; do
  rm -f "$work/file"
  truncate -s "$size" "$work/file"
  [[ $name == device ]] && name=$device || name=$work/$name
  strace -o "$work/trace" "$program" "$type" "$name" > /dev/null
  # Between the first call of the layer, or of libaio, and the search for that library.
  made=$(sed -n '/^\(getpid\|io_setup\)(/,/ld\.so\.cache/p' "$work/trace" |
    grep -vE '^(brk|mmap2?|munmap|mprotect|getrandom|exit_group)\(|\(1,|ld\.so\.cache|^[^a-z]')
  (( $(wc -l <<< "$made") == calls )) && continue
  printf '%s calls expected of %s on %s\n%s\n' "$calls" "$type" "$name" "$made" >&2
  failed=1
done << 'ROWS'
26 vtg file 16384
26 kvs file 16384
40 kvs file 10240
28 vtg device 0
28 kvs device 0
ROWS
exit $failed
