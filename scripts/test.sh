#!/usr/bin/env bash
# Test job: build, then run every test under Wine with ctest (its summary closes the output).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
ensure_packages
build_all
# Create the Wine prefix before the tests start, so no test pays for it.
"$BUILD_DIR/wine-run.sh" cmd /c exit >/dev/null 2>&1 || true
cd "$BUILD_DIR"
ctest -j "$(nproc)" --output-on-failure --timeout 300
