#!/usr/bin/env bash
# Main job: build, register the module and the storage-root server in the build tree's Wine
# prefix, then an sdmctl session: values written into the registry and into the per-user database
# category (through the server, on its embedded default: SQLite) and read back by other processes,
# a dump and a load, the status; then the demo clients, and the host's sqlite3 shows the rows in
# the file.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
ensure_packages
ensure_tools
build_all
run() { "$BUILD_DIR/wine-run.sh" "$@"; }
register_all
sdmctl() {
  echo "\$ sdmctl $*" >&2
  bash "$ROOT/scripts/sdmctl" "$@"
}
sdmctl --app Suite set Users/Alice/Window Width 1280 --type i4 -c user
sdmctl --app Suite set Users/Alice/Window Title $'Report \xe2\x80\x93 Q4 \xf0\x9f\x93\x88' -c user
sdmctl --app Suite set Users/Alice/Profile Theme dark -c userdb
sdmctl --app Suite get Users/Alice/Window Width -c all
sdmctl --app Suite list Users/Alice/Window -c user --json
sdmctl --app Suite tree Users
backup="$BUILD_DIR/demo-backup.json"
sdmctl --app Suite dump Users -c user >"$backup"
echo "(the dump: $(wc -c <"$backup") bytes in $backup)"
sdmctl --app Suite load "$(winpath "$backup")" -c userdb
sdmctl --app Suite get Users/Alice/Window Width -c userdb --type i4 --json
sdmctl --app Suite status
echo
run "$BUILD_DIR/bin/sdm_demo.exe"
echo
greeting="Hello from the demo, $(date -u '+%Y-%m-%d %H:%M:%S UTC')"
run "$BUILD_DIR/bin/sdm_rootdemo.exe" write "$greeting"
run "$BUILD_DIR/bin/sdm_rootdemo.exe" read
db="$BUILD_DIR/wineprefix/drive_c/users/$(whoami)/AppData/Local/WQSessionDataMng/sessiondata.db"
echo "The row in $db, as the host's sqlite3 reads it:"
sqlite3 -separator ' | ' "$db" \
  "SELECT k.key_text, v.name, v.value FROM sdm_values v JOIN sdm_keys k USING (scope, key_norm)
   WHERE k.key_norm LIKE '%/suite/app/demo/greeting' OR k.key_norm LIKE '%/suite/users/alice/%';"
echo "integrity_check: $(sqlite3 "$db" 'PRAGMA integrity_check;')"
