#!/usr/bin/env bash
# What the plugin refuses and what it says: parameters that make no sense, files it cannot serve, requests
# that do not fit, a file that shrinks under it; that a flush and a durable write are what they are called;
# and that no connection keeps anything of the system.
#   answers.sh PLUGIN VDPREP
# shellcheck disable=SC2016  # what stands in single quotes is for the server's shell, or a name
set -euo pipefail
plugin=$1 vdprep=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
serve() { nbdkit -U - "$@" 2>> "$work/log"; }

# refused TEXT ARGUMENT...: no server starts, and the reason is told.
refused() {
  local reason=$1 said
  shift
  if said=$(nbdkit -U - "$plugin" "$@" --run true 2>&1); then
    echo "served: $*" >&2
    exit 1
  fi
  [[ $said == *"$reason"* ]] || { printf '%s\nexpected: %s\n' "$said" "$reason" >&2; exit 1; }
}
truncate -s 1M "$work"/{blank,'od@d $name'}
truncate -s 10240 "$work/disk"
"$vdprep" kvs "$work/disk" > /dev/null
refused 'file=FILE is missing' header=false
refused 'unknown parameter' "$work/disk" size=1M
refused 'queue: sync or async' "$work/disk" queue=both
refused 'blocksize is for header=false' "$work/disk" blocksize=512
refused 'a multiple of 512' "$work/blank" header=false blocksize=100
refused 'powers of two' "$work/blank" header=false blocksize=1536
refused 'no header: code 27047' "$work/blank"
refused 'No such file' "$work/none"
# Block numbers have 32 bits: no part of a file is served as if it were all.
truncate -s 2T "$work/large"
refused 'more blocks of 512 bytes than' "$work/large" header=false

for queue in sync async; do
  # Names are taken literally; what a client does is nothing that the file layer is asked to translate.
  serve "$plugin" "$work/od@d \$name" header=false queue=$queue direct=true \
    --run "nbdinfo --size \$uri" | grep -qx 1048576
  # 10240 bytes were extended to 12288: two blocks behind the header.
  serve "$plugin" "$work/disk" queue=$queue direct=true --run "FILE=$work/disk /usr/bin/python3 -m nbd -u \$uri -c - < $here/answers.py"
  truncate -s 12288 "$work/disk"
  serve -r "$plugin" "$work/disk" queue=$queue direct=true --run 'nbdinfo --is readonly $uri'

  # The server must live to see the connection end: each context gives its room in the kernel back.
  strace -f -qq -o "$work/trace" -e trace=openat,pwrite64,io_submit,fdatasync,io_setup,io_destroy \
    nbdkit -U - "$plugin" "$work/disk" queue=$queue direct=true --run "
      qemu-io -f raw -c 'write -f 0 4k' -c flush \$uri > /dev/null
      for try in \$(seq 100); do
        [ \$(grep -c 'io_destroy.*= 0' $work/trace) = 2 ] && exit 0
        sleep 0.1
      done
      exit 1"
  (( $(grep -c 'io_setup.*= 0' "$work/trace") == 2 ))
  durable=$(awk '/disk".*O_DSYNC/ { print $NF }' "$work/trace")
  grep -qE "pwrite64\($durable,.* = 4096|io_submit.*aio_fildes=$durable," "$work/trace"
  grep -q 'fdatasync(.*= 0' "$work/trace"
done

# Requests for which the kernel has no room go again, until it has.
head -c 1M /dev/urandom > "$work/image"
strace -f -qq -o "$work/trace" -e trace=io_submit -e inject=io_submit:error=EAGAIN:when=4..12 \
  nbdkit -t 1 -U - "$plugin" "$work/blank" header=false queue=async direct=true --run "nbdcopy --connections=1 $work/image \$uri"
cmp "$work/image" "$work/blank"
(( $(grep -c EAGAIN "$work/trace") == 9 ))
echo 'refusals, errors, flushes and the end of a connection are as told'
