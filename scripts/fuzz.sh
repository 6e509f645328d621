#!/usr/bin/env bash
# Fuzzes one target: scripts/fuzz.sh TARGET SECONDS
# TARGET is the name of a file fuzz/TARGET_fuzz.cpp. The inputs found so far are kept in build/fuzz/corpus/, findings in
# build/fuzz/findings/; a finding goes into fuzz/regressions/TARGET_fuzz/, which ctest replays.
set -euo pipefail
cd "$(dirname "$0")/.."

target=${1:?usage: scripts/fuzz.sh TARGET SECONDS}_fuzz
seconds=${2:?usage: scripts/fuzz.sh TARGET SECONDS}
build=build/fuzz
[ -f "fuzz/$target.cpp" ] || { echo "no such target: $1" >&2; exit 2; }

scripts/install-deps.sh build fuzz
[ -f $build/build.ninja ] || cmake --preset fuzz
cmake --build $build --target "$target" make_seeds
[ -d $build/seeds ] || $build/fuzz/make_seeds $build/seeds

mkdir -p "$build/corpus/$target" "$build/findings"
inputs=("$build/corpus/$target" "$build/seeds/$target")
[ -d "fuzz/regressions/$target" ] && inputs+=("fuzz/regressions/$target")
# the targets count their processor time and memory themselves; these limits are for what hangs or escapes that
exec "$build/fuzz/$target" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=2048 -max_len=8192 \
  -dict=fuzz/slice.dict -print_final_stats=1 -artifact_prefix="$build/findings/$target-" "${inputs[@]}"
