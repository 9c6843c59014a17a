#!/usr/bin/env bash
# What dump-header says of good headers and of bad ones: dump_header.sh SCRIPTS_FOLDER VDPREP
set -euo pipefail
dump=$1/dump-header vdprep=$2
work=$(mktemp -d -p /var/tmp)
device=
trap 'rm -rf "$work"; [[ -z $device ]] || losetup --detach "$device"' EXIT
failed=0

# says STATUS TEXT PATH: its status, and a line that ends like this.
says() {
  local said status=0
  said=$("$dump" "$3" 2>&1) || status=$?
  if (( status != $1 )) || ! grep -q -- "$2\$" <<< "$said"; then
    printf 'expected %s "%s", found %s\n%s\n' "$1" "$2" "$status" "$said" >&2
    failed=1
  fi
}
# damaged OFFSET BYTES STATUS TEXT: of a voting file with other bytes there
damaged() {
  cp "$work/voting" "$work/damaged"
  printf '%b' "$2" | dd of="$work/damaged" bs=1 seek="$1" conv=notrunc status=none
  says "$3" "$4" "$work/damaged"
}

truncate -s 10240 "$work/voting" "$work/registry" "$work/blank"
"$vdprep" vtg "$work/voting" > /dev/null
"$vdprep" kvs "$work/registry" > /dev/null
says 0 'blocks behind block 0 *19' "$work/voting"
says 0 '0xd9d5 stored, 0xd9d5 computed' "$work/voting"
says 0 'block size *4096' "$work/registry"
says 0 'valid, and all other bytes are 0' "$work/registry"
says 1 'not valid: no magic number' "$work/blank"
says 1 'not valid: 0 bytes are no block' /dev/null
says 2 'No such file or directory' "$work/none"

damaged 16 '\0\0' 1 'valid, but no check value is kept'
damaged 16 '\1\1' 1 'valid, but the check value does not fit'
damaged 1 '\2' 1 'valid, but the format byte should be 0x22'
damaged 510 '\1' 1 'valid, but 1 words should be 0, the first at byte 510'
damaged 512 '\1' 0 'valid, and all other bytes are 0'
damaged 20 '\377\377\377\377' 1 'not valid: 4294967295 is no block size'
damaged 20 '\0\100\0\0' 1 'not valid: cut off after 10240 bytes'
damaged 28 '\172\173\174\175' 1 'not valid: in the other byte order'
damaged 12 '\135\134\133\132\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0' 1 'not valid: in the layout from before version 10'

truncate -s 16384 "$work/disk"
if device=$(losetup --find --show --sector-size 4096 "$work/disk" 2> /dev/null); then
  "$vdprep" kvs "$device" > /dev/null
  says 0 'blocks behind block 0 *3' "$device"
else
  device=
  echo "losetup is refused: not seen on a device" >&2
fi
exit $failed
