#!/usr/bin/env bash
# Measures every kernel beside the plain loop and writes the tables of docs/performance.md and README.md.
#   scripts/benchmark.sh [--quick]    --quick: a minute, few repetitions, prints where the raw result is and writes nothing
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${tool_packages[@]}" libbenchmark-dev clang python3
configure_and_build release -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_BENCHMARKS=ON
result=build/release/bench/result.json
run=(build/release/bench/utils_sse_bench --benchmark_enable_random_interleaving=true
     --benchmark_out="$result" --benchmark_out_format=json)
if [ "${1:-}" = --quick ]; then
    "${run[@]}" --benchmark_repetitions=2 --benchmark_min_time=0.005 --benchmark_filter='/(7|23|128|L1|L2)/'
    echo "raw result: $result"
else
    "${run[@]}" --benchmark_repetitions=9 --benchmark_min_time=0.005 --benchmark_display_aggregates_only=true >/dev/null
    python3 bench/table.py "$result" docs/performance.md --readme README.md
fi
