#!/usr/bin/env bash
# Two machines of opposite byte orders exchange files both ways: what one wrote the other must read.
#   exchange.sh NATIVE_PROGRAM EMULATOR... FOREIGN_PROGRAM
set -euo pipefail
native=$1
foreign=("${@:2}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work"/{native,foreign}

"$native" write "$work/native"
"${foreign[@]}" write "$work/foreign"
"$native" read "$work/foreign"
"${foreign[@]}" read "$work/native"
