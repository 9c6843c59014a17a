#!/usr/bin/env bash
# Serves stamped files and loop devices with the plugin and lets clients that others wrote use them: what
# goes in comes out, checksums hold under a random load, and block 0 is as it was, also after the server was
# killed in the middle of it.
#   clients.sh PLUGIN VDPREP SECONDS_OF_LOAD [PLACE...]     places: file, 512, 4096 (devices with such sectors)
set -euo pipefail
plugin=$1 vdprep=$2 seconds=$3
shift 3
places=("$@")
(( $# )) || places=(file 512 4096)
export work
work=$(mktemp -d)
device='' server=''
clean() {
  [[ -z $server ]] || kill -9 "$server" 2>/dev/null || true
  [[ -z $device ]] || losetup -d "$device"
  rm -rf "$work"
}
trap clean EXIT
stop() { kill "$server" && wait "$server" && server=; }
export uri="nbd+unix:///?socket=$work/socket"

# serve ARGUMENT...: a server in the background, ready for clients.
serve() {
  rm -f "$work"/{socket,pid}
  nbdkit -f -U "$work/socket" -P "$work/pid" --threads 16 "$plugin" "$@" 2>> "$work/log" &
  server=$!
  for (( tries = 0; tries < 100; ++tries )); do
    [[ ! -s $work/pid ]] || return 0
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
  done
  cat "$work/log" >&2
  return 1
}

# set_up PLACE: target becomes a stamped registry file or device of 64 MiB.
set_up() {
  rm -f "$work/disk"
  truncate -s 64M "$work/disk"
  target=$work/disk
  if [[ $1 != file ]]; then
    device=$(losetup --find --show --sector-size "$1" "$work/disk")
    target=$device
  fi
  "$vdprep" kvs "$target" > /dev/null
}
tear_down() {
  [[ -z $device ]] || losetup -d "$device"
  device=
}
block0() { dd if="$target" bs=4096 count=1 iflag=direct status=none; }

random_load() {
  fio --name=load --ioengine=nbd --uri="$uri" --size=60M --iodepth=32 --bsrange=4k-1M --blockalign=4k \
    --rw=randwrite --verify_state_save=0 "$@" > "$work/fio" 2>&1
}

use() {
  nbdcopy "$work/source" "$uri"
  nbdcopy --flush "$uri" "$work/copy"
  cmp "$work/source" "$work/copy"
  qemu-img convert -n -f raw -O raw "$work/other" "$uri"
  qemu-img convert -f raw -O raw "$uri" "$work/copy"
  qemu-img compare -q -f raw -F raw "$work/other" "$uri"
  cmp "$work/other" "$work/copy"
  random_load --verify=crc32c --verify_fatal=1 || { cat "$work/fio" >&2; return 1; }
}

size=$((64 * 1024 * 1024 - 4096))
head -c $size /dev/urandom > "$work/source"
head -c $size /dev/urandom > "$work/other"
for place in "${places[@]}"; do
  for queue in sync async; do
    set_up "$place"
    block0 > "$work/block0"
    serve "$target" queue=$queue direct=true
    use
    random_load --time_based --runtime=$((seconds + 10)) &
    load=$!
    sleep "$seconds"
    kill -9 "$server"
    { wait "$server"; } 2> /dev/null || true
    ! wait "$load" || { echo "the load outlived its server" >&2; exit 1; }
    cmp "$work/block0" <(block0)
    serve "$target" queue=$queue direct=true
    nbdcopy "$work/source" "$uri"
    stop
    cmp "$work/block0" <(block0)
    cmp <(tail -c +4097 "$target") "$work/source"
    tear_down
    printf '%-5s %-5s copied, converted, verified, killed: block 0 as it was\n' "$place" "$queue"
  done
done
