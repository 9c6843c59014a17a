#!/usr/bin/env bash
# The changelogs begin with the version of the project: version.sh VERSION
set -euo pipefail
cd "$(dirname "$0")/../.."
for told in "$(sed -n 's/^## \[\(.*\)\].*/\1/p' CHANGELOG.md | head -n 1)" "$(sed -n '1s/.*(\(.*\)).*/\1/p' debian/changelog)"; do
  [[ $told == "$1" ]] || { echo "a changelog says $told, not $1" >&2; exit 1; }
done
