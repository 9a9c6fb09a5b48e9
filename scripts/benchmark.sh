#!/usr/bin/env bash
# Measures every kernel beside the plain loop, and whole frames beside other libraries where they are installed, and writes the
# tables of docs/performance.md and README.md.
#   scripts/benchmark.sh [--quick]    --quick: a minute, few repetitions, prints where the raw result is and writes nothing
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${tool_packages[@]}" libbenchmark-dev clang python3 valgrind binutils
configure_and_build release -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_BENCHMARKS=ON
measure() { # name of the result, program, further options
    "build/release/bench/$2" --benchmark_enable_random_interleaving=true --benchmark_out="build/release/bench/$1.json" \
        --benchmark_out_format=json --benchmark_min_time=0.005 "${@:3}"
}
if [ "${1:-}" = --quick ]; then
    measure quick utils_sse_bench --benchmark_repetitions=2 --benchmark_filter='/(7|23|128|L1|L2)/'
    echo "raw result: build/release/bench/quick.json"
else
    measure tasks utils_sse_tasks --benchmark_repetitions=7 >/dev/null
    measure caches utils_sse_bench --benchmark_repetitions=7 --benchmark_filter='-/memory/' >/dev/null
    measure memory utils_sse_bench --benchmark_repetitions=3 --benchmark_filter='/memory/' >/dev/null
    python3 bench/table.py docs/performance.md build/release/bench/{caches,memory}.json \
        --tasks build/release/bench/tasks.json --readme README.md
    measure counted utils_sse_counted --benchmark_repetitions=9 >/dev/null
    python3 bench/counted.py build/release/bench/utils_sse_counted build/release/bench/counted.json docs/performance.md
fi
