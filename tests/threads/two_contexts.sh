#!/usr/bin/env bash
# Runs two_contexts in a folder of its own. The thread sanitizer needs fixed addresses.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
setarch -R "$1" "$folder"
