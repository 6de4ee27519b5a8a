#!/usr/bin/env bash
# The SQLite file of the per-user database category, checked from outside: a client writes
# through the server (RootEndToEnd.ChildProcessWriterForTheHostCheck), the server ends, and the
# host's sqlite3 finds the rows and an intact file.
#   root_file_check.sh <build dir>
set -euo pipefail
BUILD_DIR="$(cd "$1" && pwd)"
DIR="$BUILD_DIR/host-tests/root-file"
rm -rf "$DIR" && mkdir -p "$DIR"
export WQSDM_HOST_CHECK_DB="Z:$(echo "$DIR/sessiondata.db" | tr '/' '\\')"
"$BUILD_DIR/wine-run.sh" "$BUILD_DIR/bin/test_root_server.exe" \
  --gtest_filter=RootEndToEnd.ChildProcessWriterForTheHostCheck

db="$DIR/sessiondata.db"
integrity="$(sqlite3 "$db" 'PRAGMA integrity_check;')"
rows="$(sqlite3 -separator '|' "$db" \
  "SELECT substr(k.key_text, instr(k.key_text, ']>')), v.name, v.value FROM sdm_values v
   JOIN sdm_keys k USING (scope, key_norm) ORDER BY k.key_norm;")"
owner="$(sqlite3 "$db" "SELECT DISTINCT substr(key_text, 1, 7) FROM sdm_keys WHERE parent_norm = '';")"
echo "host sqlite3: integrity_check=$integrity"
echo "$rows"
expected=$']>/suite/app/window|left|10\n]>/suite/app/window/toolbar|visible|yes'
[ "$integrity" = "ok" ] && [ "$rows" = "$expected" ] && [ "$owner" = "<[user:" ]
