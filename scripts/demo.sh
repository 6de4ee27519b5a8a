#!/usr/bin/env bash
# Main job: build, register the DLL in the build tree's Wine prefix and run the demo client.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
ensure_packages
build_all
"$BUILD_DIR/wine-run.sh" regsvr32 /s "$(winpath "$BUILD_DIR/bin/WQSessionDataMng64.dll")"
echo "Registered $BUILD_DIR/bin/WQSessionDataMng64.dll"
"$BUILD_DIR/wine-run.sh" "$BUILD_DIR/bin/sdm_demo.exe"
