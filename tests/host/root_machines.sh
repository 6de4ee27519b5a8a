#!/usr/bin/env bash
# Two machines on one PostgreSQL database: makes (once) two Wine prefixes of their own, registers
# the module and the storage-root server in each, starts the agent of RootMachines in machine B and
# runs the coordinator in machine A (each machine's server runs in its prefix's own Wine server).
#   root_machines.sh <build dir>     (WQ_TEST_PG names the test cluster's database)
set -euo pipefail
BUILD_DIR="$(cd "$1" && pwd)"
DIR="$BUILD_DIR/host-tests/root-machines"
rm -rf "$DIR" && mkdir -p "$DIR"
winpath() { echo "Z:$1" | tr '/' '\\'; }
export WQSDM_MACHINES_DIR="$(winpath "$DIR")"
TEST_EXE="$BUILD_DIR/bin/test_root_machines.exe"

prefix_of() { echo "$BUILD_DIR/wineprefix-machine-$1"; }
machine() {
  local name="$1"
  shift
  WQ_WINEPREFIX="$(prefix_of "$name")" WINEDEBUG=-all "$BUILD_DIR/wine-run.sh" "$@"
}
prepare() {
  machine "$1" regsvr32 /s "$(winpath "$BUILD_DIR/bin/WQSessionDataMng64.dll")"
  machine "$1" "$(winpath "$BUILD_DIR/bin/WQSessionDataRoot64.exe")" /RegServer
}
stop_machines() {
  for name in a b; do
    WINEPREFIX="$(prefix_of "$name")" /usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
  done
}
trap stop_machines EXIT

prepare a &
prepare b
wait
machine b "$TEST_EXE" --gtest_filter=RootMachines.ChildProcessAgent >"$DIR/agent.log" 2>&1 &
agent=$!
rc=0
machine a "$TEST_EXE" --gtest_filter=RootMachines.TwoServersOnOneDatabaseNeverServeAStaleValue || rc=$?
wait "$agent" || { echo "machine B's agent failed:"; cat "$DIR/agent.log"; rc=1; }
exit $rc
