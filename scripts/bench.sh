#!/usr/bin/env bash
# The performance report: builds, registers, runs every benchmark (the engines against a throwaway
# PostgreSQL cluster on 127.0.0.1), and renders the report with its plots from the run's JSON
# (scripts/benchreport.py, with matplotlib).
#   bash scripts/bench.sh           the full run (about 10 minutes): docs/performance.md and its
#                                   plots in docs/performance/, and the README's headline table
#   bash scripts/bench.sh --quick   a few rounds and small sizes, into build/bench/ (what CI runs,
#                                   so that no benchmark rots; the figures are not judged)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$(dirname "${BASH_SOURCE[0]}")/postgres.sh"
quick=""
report="$ROOT/docs/performance.md"
if [ "${1:-}" = "--quick" ]; then
  quick="--quick"
  report="$BUILD_DIR/bench/performance.md"
fi
ensure_packages
ensure_tools
ensure_packages "${PG_PACKAGES[@]}" python3-matplotlib
build_all
register_all
trap pg_cluster_stop EXIT
pg_cluster_start
bench_run "$quick" "$report"
