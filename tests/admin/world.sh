# What the situations of the tables are made with; read by bash before each of their commands.
export PATH=$TOOLS:$PATH:/usr/sbin:/sbin LC_ALL=C VDADM_STATE=$PWD/state
unset TARVEX_HOME TARVEX_SID TARVEX_PATH NO_COLOR

# loop LINK FILE [OPTION...]: a loop device over FILE, by a link of that name.
loop() {
  local link=$1 file=$2 device
  shift 2
  device=$(losetup --show -f "$@" "$file") && ln -s "$device" "$link"
}

# stamp TYPE FILE: with vdprep, silently.
stamp() { vdprep "$1" "$(realpath "$2")" > /dev/null; }

# physical_volume LINK: makes one without the kernel's part of it.
physical_volume() {
  DM_DISABLE_UDEV=1 pvcreate -qqff --config 'devices{obtain_device_list_from_udev=0 use_devicesfile=0
    external_device_info_source="none"} activation{udev_sync=0 udev_rules=0 monitoring=0}' "$(readlink "$1")"
}

# flip FILE OFFSET [BIT]: turns over one bit of a byte.
flip() {
  local byte
  byte=$(od -An -tu1 -j "$2" -N 1 "$1")
  printf "\\x$(printf %02x $((byte ^ (1 << ${3:-0}))))" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# put FILE OFFSET HEX...: writes bytes.
put() {
  local file=$1 at=$2
  shift 2
  printf "$(printf '\\x%s' "$@")" | dd of="$file" bs=1 seek="$at" conv=notrunc status=none
}

# in_background COMMAND...: runs until the situation ends.
in_background() {
  "$@" > /dev/null 2>&1 < /dev/null &
  echo $! >> pids
}

# wait_for COMMAND...: until it works, ten seconds at most.
wait_for() {
  local left=200
  until "$@" > /dev/null 2>&1; do (( left-- )) || return 1; sleep 0.05; done
}

# silent_disk LINK: a loop device over a file system in user space that has stopped answering.
silent_disk() {
  mkdir m
  in_background silent_disk_server m -f
  wait_for test -e m/disk
  loop "$1" m/disk
  kill -STOP "$(tail -n 1 pids)"
}

# sick_disk PARTS BYTES: m/disk, parts of which cannot be read, as silent_disk_server takes them.
sick_disk() {
  mkdir m
  SICK=$1 SIZE=$2 in_background silent_disk_server m -f
  wait_for test -e m/disk
}

# lines_as_array: JSON documents, one a line, as one.
lines_as_array() { sed '1s/^/[/; $!s/$/,/; $s/$/]/'; }

# without_libaio COMMAND...: where the library for asynchronous requests cannot be loaded.
without_libaio() {
  unshare -m bash -c 'for file in /{,usr/}lib/*/libaio.so.1*; do mount --bind /dev/null "$(realpath "$file")"; done
    "$@"' - "$@"
}

clean_up() {
  local id device place
  if [[ -e pids ]]; then while read -r id; do kill -CONT "$id"; done < pids; fi 2> /dev/null
  for place in $(swapon --show=NAME --noheadings); do
    for device in *; do [[ $(realpath "$device") != "$place" ]] || swapoff "$place"; done
  done
  while read -r place; do umount -l "$place"; done < <(findmnt -rno TARGET | grep "^$PWD/" | grep -v "^$PWD/m\$" || true)
  for device in *; do
    [[ -L $device && $(readlink "$device") == /dev/loop* ]] || continue
    delpart "$(readlink "$device")" 1 2> /dev/null
    losetup -d "$(readlink "$device")"
  done
  ! mountpoint -q m || umount -l m
  if [[ -e pids ]]; then while read -r id; do kill -KILL "$id"; done < pids; fi 2> /dev/null
  return 0
}

# complete_line WORD...: what the completion offers for the last word.
complete_line() {
  source "$(dirname "${BASH_SOURCE[0]}")/../../completions/vdadm.bash"
  compopt() { :; }
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
  _vdadm
  printf '%s\n' "${COMPREPLY[@]}"
}

# predict NAME [COMMAND...]: for both types, what check foretells beside how vdprep ends; COMMAND runs both.
predict() {
  local name=$1 type told ended literal
  shift
  for type in vtg kvs; do
    told=$("$@" vdadm check --json "$type" "$name" | sed -n 's/.*"vdprep_status": \([0-9a-z]*\),/\1/p')
    literal=$(realpath -m "$name" | sed 's/[@?$\\]/\\&/g')
    "$@" vdprep "$type" "$literal" > said
    ended=$?
    (( told == ended )) || { echo "$type $name: told $told, ended $ended"; cat said; }
    echo -n "$ended "
  done
  echo
}

# kill_anywhere LEAST CHECK COMMAND...: the command killed at each of its calls that change something, in a world
# that "fresh" makes; CHECK must hold after each kill, and so many there must be. (Situations with it first ask
# whether vdadm can be traced: one that looks for its own leaks cannot.)
kill_anywhere() {
  local least=$1 check=$2 kills=0 call count
  shift 2
  for call in write pwrite64 fsync linkat ftruncate fallocate; do
    for (( count = 1; count < 40; ++count, ++kills )); do
      fresh
      strace -f -qq -o /dev/null -e trace=$call -e inject=$call:signal=KILL:when=$count "$@" > said 2>&1 &
      ! wait $! 2> /dev/null || break
      "$check" || { echo "killed at $call $count: $(cat said)"; return 1; }
    done
  done
  echo "$kills kills"
  (( kills >= least ))
}

# kept NAME: each backup in the state folder is whole, and is of NAME.
kept() {
  local file
  for file in state/*; do
    [[ -e $file ]] || continue
    ! vdadm verify --against "$file" "$1" 2>&1 | grep -q 'is no backup' || return 1
  done
}

# run_document: every command of the guide, in its order, with the status that the guide gives.
run_document() {
  local line status wanted
  while read -r line; do
    wanted=$(sed -n 's/.*# status \([0-9]\)$/\1/p' <<< "$line")
    status=0
    eval "$line" > said 2>&1 || status=$?
    (( status == ${wanted:-0} )) || { echo "$line: status $status: $(cat said)"; return 1; }
    echo "$line"
  done < <(awk '/^```$/ { on = !on } on && sub(/^\$ /, "")' "$(dirname "${BASH_SOURCE[0]}")/../../docs/administration.md")
}
