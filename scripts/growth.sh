#!/usr/bin/env bash
# Measures how time and memory grow with a job, some three minutes: docs/performance.md says what its rows mean.
#   scripts/growth.sh [SVG]      draws the curves into a file, docs/growth.svg if none is given
set -euo pipefail
cd "$(dirname "$0")/.."
svg=${1:-docs/growth.svg}
scripts/install-deps.sh build bench >&2
cmake --preset bench >&2
cmake --build --preset bench >&2
# files lie in memory where the system offers that, so that no disk is measured
folder=$(mktemp -d -p "$([ -d /dev/shm ] && echo /dev/shm || echo "${TMPDIR:-/tmp}")")
trap 'rm -rf "$folder"' EXIT

# a process each: memory that one job gives back may stay with its process
for ending in .vndlp .ctb .vndlpv4; do
  build/bench/bench/growth curve "$folder/curve$ending" | grep '^\.' >>"$folder/curve.csv"
  rm "$folder/curve$ending"
done
python3 scripts/growth_plot.py "$folder/curve.csv" >"$svg"
echo "curves: $svg"

build/bench/bench/growth job "$folder/job" 15120 6230 1000
echo
echo '| 1000 layers of 15120 x 6230 | s | processors | peak memory, MB | file, MB |'
echo '|---|--:|--:|--:|--:|'
for ending in .vndlp .ctb .vndlpv4; do
  /usr/bin/time -v -o "$folder/time" build/bench/tools/vndlp convert "$folder/job" "$folder/out$ending" \
    >"$folder/log" 2>&1 || { cat "$folder/log" >&2; exit 1; }
  value() { sed -n "s/.*$1[^:]*: *//p" "$folder/time"; }
  seconds=$(value 'Elapsed (wall clock) time (h:mm:ss or m:ss)' | awk -F: '{ s = 0; for (i = 1; i <= NF; ++i) s = 60 * s + $i; print s }')
  awk -v ending="$ending" -v seconds="$seconds" -v cpu="$(value 'Percent of CPU this job got')" \
    -v memory="$(value 'Maximum resident set size')" -v bytes="$(stat -c %s "$folder/out$ending")" \
    'BEGIN { printf "| to `%s` | %.1f | %.2f | %.0f | %.0f |\n", ending, seconds, cpu / 100, memory * 1024 / 1e6, bytes / 1e6 }'
  rm "$folder/out$ending"
done
