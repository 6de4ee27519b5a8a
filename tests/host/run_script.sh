#!/usr/bin/env bash
# Runs a script through Wine's cscript as a user would and checks it: exit code 0 and, when an
# expected file is given, exactly that output (line ends of Windows taken away); without one, the
# last line "ok". (Wine 8's cscript ends a script at a run-time error without a message and with
# exit code 0, so a script that stops early must not pass.)
#   run_script.sh BUILD_DIR WINDOWS_PATH_OF_SCRIPT [EXPECTED_FILE]
set -u
build="$1" script="$2" expected="${3:-}"
raw="$(mktemp)"
"$build/wine-run.sh" cscript //nologo "$script" >"$raw" 2>&1
rc=$?
# The scripts keep their registry data under HKCU\Software\ScriptTests.
"$build/wine-run.sh" reg delete 'HKCU\Software\ScriptTests' /f >/dev/null 2>&1
out="$(tr -d '\r' <"$raw")"
rm -f "$raw"
printf '%s\n' "$out"
if [ "$rc" -ne 0 ]; then
  echo "run_script: cscript ended with $rc" >&2
  exit 1
fi
if [ -z "$expected" ] && [ "$(printf '%s\n' "$out" | tail -1)" != "ok" ]; then
  echo "run_script: the script did not end with ok (a run-time error stops it silently)" >&2
  exit 1
fi
if [ -n "$expected" ] && [ "$out" != "$(cat "$expected")" ]; then
  echo "run_script: the output differs from $expected:" >&2
  diff <(printf '%s\n' "$out") "$expected" >&2
  exit 1
fi
exit 0
