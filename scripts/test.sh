#!/usr/bin/env bash
# Test job: build, then run every test under Wine with ctest (its summary closes the output).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
ensure_packages
build_all
# Create the Wine prefix before the tests start, so no test pays for it, and keep one Wine
# server running for the whole run (it is stopped again afterwards).
"$BUILD_DIR/wine-run.sh" cmd /c exit >/dev/null 2>&1 || true
export WINEPREFIX="$BUILD_DIR/wineprefix"
/usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
/usr/lib/wine/wineserver64 -w >/dev/null 2>&1 || true
(exec /usr/lib/wine/wineserver64 -p </dev/null >/dev/null 2>&1) || true
cd "$BUILD_DIR"
rc=0
ctest -j "$(nproc)" --output-on-failure --timeout 300 || rc=$?
/usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
exit $rc
