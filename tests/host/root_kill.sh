#!/usr/bin/env bash
# The kill test: RootKill.KillTheServerInAStreamOfWrites, then RootKill.ANewServerServesWhatWasAcknowledged,
# each in a Wine server session of its own, then the host's sqlite3 checks the file.
#   root_kill.sh <build dir>
set -euo pipefail
BUILD_DIR="$(cd "$1" && pwd)"
export WINEPREFIX="${WQ_WINEPREFIX:-$BUILD_DIR/wineprefix}"
WINESERVER=/usr/lib/wine/wineserver64
DIR="$BUILD_DIR/host-tests/root-kill"
rm -rf "$DIR" && mkdir -p "$DIR"
export WQSDM_KILL_DIR="Z:$(echo "$DIR" | tr '/' '\\')"

new_session() {
  "$WINESERVER" -k >/dev/null 2>&1 || true
  "$WINESERVER" -w >/dev/null 2>&1 || true
}

run_case() {
  new_session
  "$BUILD_DIR/wine-run.sh" "$BUILD_DIR/bin/test_root_kill.exe" --gtest_filter="RootKill.$1"
}

run_case KillTheServerInAStreamOfWrites
run_case ANewServerServesWhatWasAcknowledged
new_session

integrity="$(sqlite3 "$DIR/kill.db" 'PRAGMA integrity_check;')"
flushed="$(sqlite3 "$DIR/kill.db" "SELECT count(*) FROM sdm_values WHERE key_norm LIKE '%/suite/app/flushed';")"
echo "host sqlite3: integrity_check=$integrity, flushed values=$flushed"
[ "$integrity" = "ok" ] && [ "$flushed" = "200" ]
