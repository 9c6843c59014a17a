#!/usr/bin/env bash
# Installs a build as the README says, takes the client that stands there, and builds it outside the tree,
# as the README says and through CMake, static and shared; each must read the blocks of files with and
# without a header. Uninstalling leaves no file.
#   check.sh README BUILD_FOLDER C_COMPILER C_FLAGS
set -euo pipefail
readme=$1 build=$2 compiler=$3 flags=$4
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d -p /var/tmp)
trap 'rm -rf "$work"' EXIT
export PREFIX=$work/prefix

# The README's blocks of one kind, and its one command that begins like this.
blocks() { awk -v fence="\`\`\`$1" '$0 == fence { on = 1; next } /^```/ { on = 0 } on' "$readme"; }
command_of() { blocks '' | grep "^$1" || { echo "the README has no command $1" >&2; exit 1; }; }
mkdir "$work/source"
blocks c > "$work/source/client.c"
install=$(command_of 'cmake --install') compile=$(command_of 'cc client.c')

bash -euc "${install//build\/release/\"$build\"}" > /dev/null
cp "$here/CMakeLists.txt" "$work/source"
# The client's own build says which kind of library it is linked to.
for kind in OFF ON; do
  cmake -G Ninja -S "$work/source" -B "$work/cmake-$kind" -DCMAKE_PREFIX_PATH="$PREFIX" \
    -DBUILD_SHARED_LIBS=$kind -DCMAKE_C_COMPILER="$compiler" -DCMAKE_C_FLAGS="$flags" > /dev/null
  cmake --build "$work/cmake-$kind" > /dev/null
done
cd "$work/source"
bash -euc "cc() { '$compiler' $flags -Wall -Wextra -Werror \"\$@\"; }; $compile"

head -c 10240 /dev/urandom > "$work/registry"
head -c 2048 "$work/registry" > "$work/voting"
head -c 1000 "$work/registry" > "$work/\$un @?\\stamped"
"$PREFIX/bin/vdprep" vtg "$work/voting"
"$PREFIX/bin/vdprep" kvs "$work/registry"

# reads CLIENT FILE FIRST LAST: the file's bytes from one number to the other
reads() {
  "$1" "$2" > "$work/blocks"
  cmp "$work/blocks" <(head -c "$4" "$2" | tail -c +$(($3 + 1)))
}
# client PROGRAM NUMBER: whether it needs so many of our shared libraries, and works.
client() {
  local needed status=0
  needed=$(objdump -p "$1" | grep -c 'NEEDED *libskgfr.so.1' || true)
  (( needed == $2 )) || { echo "$1 needs $needed shared libraries of ours" >&2; exit 1; }
  reads "$1" "$work/voting" 512 2048
  reads "$1" "$work/registry" 4096 12288
  reads "$1" "$work/\$un @?\\stamped" 0 512
  "$1" "$work/none" || status=$?
  (( status == 2 )) || { echo "a file that is not there: $status" >&2; exit 1; }
}
export LD_LIBRARY_PATH=$PREFIX/lib LD_BIND_NOW=1
client "$work/cmake-OFF/client" 0
client "$work/cmake-ON/client" 1
client "$work/source/client" 1

# The C library's own asynchronous I/O is told apart before its names clash with ours.
options=$(PKG_CONFIG_PATH=$PREFIX/lib/pkgconfig pkg-config --cflags skgfr)
# shellcheck disable=SC2086  # both are lists of options
if said=$(printf '#include <aio.h>\n#include <skgfr/skgfr.h>\n' |
          "$compiler" $flags -x c -fsyntax-only - $options 2>&1); then
  echo "<aio.h> and skgfr.h were compiled together" >&2
  exit 1
fi
[[ $said == *'error: '*'"skgfr: not together with <aio.h>'* ]] || { echo "$said" >&2; exit 1; }

cmake --build "$build" --target uninstall > /dev/null
left=$(find "$PREFIX" ! -type d)
[[ -z $left ]] || { printf 'left behind:\n%s\n' "$left" >&2; exit 1; }
