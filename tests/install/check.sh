#!/usr/bin/env bash
# Installs a build under a prefix of its own and builds the C client against it outside the tree, through
# CMake and through pkg-config; both must identify a stamped file, and refuse another.
#   check.sh BUILD_FOLDER C_COMPILER C_FLAGS
set -euo pipefail
build=$1 compiler=$2 flags=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" > /dev/null
truncate -s 1M "$work/stamped"
truncate -s 1M "$work/blank"
"$work/prefix/bin/vdprep" vtg "$work/stamped"

cmake -G Ninja -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_C_COMPILER="$compiler" -DCMAKE_C_FLAGS="$flags" > /dev/null
cmake --build "$work/cmake" > /dev/null
pc=$(dirname "$(find "$work/prefix" -name skgfr.pc)")
options=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs skgfr)
# shellcheck disable=SC2086  # both are lists of options
"$compiler" $flags -std=c11 -o "$work/client" "$here/client.c" $options

for client in "$work/cmake/client" "$work/client"; do
  "$client" "$work/stamped"
  if "$client" "$work/blank"; then
    echo "an unstamped file was identified" >&2
    exit 1
  fi
done
