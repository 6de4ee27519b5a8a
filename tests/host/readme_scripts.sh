#!/usr/bin/env bash
# The README shows the scripts that the tests run, exactly: each file given must stand in it.
#   readme_scripts.sh README FILE...
set -u
readme="$(cat "$1")"
shift
rc=0
for file in "$@"; do
  if [[ "$readme" != *"$(cat "$file")"* ]]; then
    echo "readme_scripts: the README does not show $file as it is" >&2
    rc=1
  fi
done
exit $rc
