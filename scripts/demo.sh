#!/usr/bin/env bash
# Main job: build, register the module and the storage-root server in the build tree's Wine
# prefix, run the demo client of the module, then the per-user database category through the
# server on its embedded default (SQLite): one process writes, the server ends, another process
# reads, and the host's sqlite3 shows the row in the file.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
ensure_packages
ensure_tools
build_all
run() { "$BUILD_DIR/wine-run.sh" "$@"; }
run regsvr32 /s "$(winpath "$BUILD_DIR/bin/WQSessionDataMng64.dll")"
echo "Registered $BUILD_DIR/bin/WQSessionDataMng64.dll"
run "$(winpath "$BUILD_DIR/bin/WQSessionDataRoot64.exe")" /RegServer
echo "Registered $BUILD_DIR/bin/WQSessionDataRoot64.exe (and WQSessionDataRoot64.dll beside it)"
run "$BUILD_DIR/bin/sdm_demo.exe"
echo
greeting="Hello from the demo, $(date -u '+%Y-%m-%d %H:%M:%S UTC')"
run "$BUILD_DIR/bin/sdm_rootdemo.exe" write "$greeting"
run "$BUILD_DIR/bin/sdm_rootdemo.exe" read
db="$BUILD_DIR/wineprefix/drive_c/users/$(whoami)/AppData/Local/WQSessionDataMng/sessiondata.db"
echo "The row in $db, as the host's sqlite3 reads it:"
sqlite3 -separator ' | ' "$db" \
  "SELECT k.key_text, v.name, v.value FROM sdm_values v JOIN sdm_keys k USING (scope, key_norm)
   WHERE k.key_norm LIKE '%/suite/app/demo/greeting';"
echo "integrity_check: $(sqlite3 "$db" 'PRAGMA integrity_check;')"
