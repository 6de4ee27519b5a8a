#!/usr/bin/env bash
# Test job: build with GCC and with clang, start a throwaway PostgreSQL cluster on 127.0.0.1 (tmux
# drives sdmctl's shell at a terminal), run
# every test of the GCC build under Wine with ctest, every benchmark in its quick mode (with the
# report rendered from it), then the unit tests of the clang build (the second ctest's summary
# closes the output), and stop and remove the cluster.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$(dirname "${BASH_SOURCE[0]}")/postgres.sh"
ensure_packages
ensure_tools
ensure_packages "${CLANG_PACKAGES[@]}" "${PG_PACKAGES[@]}" tmux python3-matplotlib
build_all
build_all_clang
trap pg_cluster_stop EXIT
pg_cluster_start
# Create the Wine prefix before the tests start, so no test pays for it, and keep one Wine
# server running for the whole run (it is stopped again afterwards).
"$BUILD_DIR/wine-run.sh" cmd /c exit >/dev/null 2>&1 || true
export WINEPREFIX="$BUILD_DIR/wineprefix"
/usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
/usr/lib/wine/wineserver64 -w >/dev/null 2>&1 || true
(exec /usr/lib/wine/wineserver64 -p </dev/null >/dev/null 2>&1) || true
rc=0
(cd "$BUILD_DIR" && ctest -j "$(nproc)" --output-on-failure --timeout 300) || rc=$?
echo "Every benchmark in its quick mode, and the report rendered from it (figures not judged):"
bench_run --quick "$BUILD_DIR/bench/performance.md" >"$BUILD_DIR/bench-quick.log" 2>&1 || {
  rc=1
  cat "$BUILD_DIR/bench-quick.log"
}
tail -1 "$BUILD_DIR/bench-quick.log"
echo "Unit tests of the clang build:"
(cd "$CLANG_BUILD_DIR" && ctest -L unit -j "$(nproc)" --output-on-failure --timeout 300) || rc=$?
/usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
exit $rc
