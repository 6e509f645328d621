#!/usr/bin/env bash
# Builds the benchmarks, runs them and prints their table: docs/performance.md says what its rows mean.
#   scripts/bench.sh [--benchmark_filter=REGEX and other options of Google Benchmark]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build bench >&2
cmake --preset bench >&2
cmake --build --preset bench >&2
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
for program in layer_bench file_bench beads_bench; do
  build/bench/bench/$program --benchmark_out="$results/$program.json" --benchmark_out_format=json "$@" >&2
done
python3 scripts/bench_table.py "$results"/{layer,file,beads}_bench.json
