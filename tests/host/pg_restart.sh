#!/usr/bin/env bash
# The database restart test: RootRestart against a PostgreSQL cluster of its own, which this script
# stops and starts again while the client streams asynchronous writes through the root server.
#   pg_restart.sh <build dir>
HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
source "$HERE/../../scripts/common.sh"
source "$HERE/../../scripts/postgres.sh"
BUILD_DIR="$(cd "$1" && pwd)"
DIR="$BUILD_DIR/host-tests/pg-restart"
rm -rf "$DIR" && mkdir -p "$DIR"
export WQSDM_RESTART_DIR="$(winpath "$DIR")"

trap pg_cluster_stop EXIT
pg_cluster_start >/dev/null
"$BUILD_DIR/wine-run.sh" "$BUILD_DIR/bin/test_root_restart.exe" \
  --gtest_filter=RootRestart.AStreamOfAsynchronousWritesSurvivesADatabaseRestart &
client=$!
for _ in $(seq 1 1200); do
  [ -f "$DIR/streaming" ] && break
  kill -0 "$client" 2>/dev/null || break
  sleep 0.1
done
if [ -f "$DIR/streaming" ]; then
  pg_ctl_run stop -m fast >/dev/null
  echo "database stopped"
  touch "$DIR/stopped"
  sleep 4
  pg_ctl_run start >/dev/null
  echo "database started again"
  touch "$DIR/restarted"
fi
wait "$client"
