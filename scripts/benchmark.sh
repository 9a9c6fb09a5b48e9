#!/usr/bin/env bash
# Measures every kernel beside the plain loop, whole frames beside other libraries where they are installed, and whole chains from
# echoes to pixels beside OpenCV and NumPy, and writes the tables of docs/performance.md and README.md.
#   scripts/benchmark.sh [--quick | --chains]
#     --quick   a minute, few repetitions, prints where the raw results are and writes nothing
#     --chains  the chains alone, with their tables
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${tool_packages[@]}" libbenchmark-dev clang libopencv-dev libopenblas0-pthread libfftw3-dev valgrind binutils python3 \
    python3-numpy python3-scipy
configure_and_build release -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_BENCHMARKS=ON
measure() { # name of the result, program, further options
    "build/release/bench/$2" --benchmark_enable_random_interleaving=true --benchmark_out="build/release/bench/$1.json" \
        --benchmark_out_format=json --benchmark_min_time=0.005 "${@:3}"
}
measure_chains() { # name of the result, then options of both programs
    inputs=$(mktemp -d)
    trap 'rm -rf "$inputs"' EXIT
    build/release/bench/utils_sse_chains --inputs "$inputs" --out "build/release/bench/$1.json" "${@:2}"
    # Debian's interpreter, which has its packages.
    /usr/bin/python3 bench/chains.py "$inputs" "build/release/bench/$1-python.json" "${@:2}"
}
tabulate_chains() { python3 bench/table.py docs/performance.md --chains build/release/bench/chains{,-python}.json; }
case "${1:-}" in
--quick)
    measure quick utils_sse_bench --benchmark_repetitions=2 --benchmark_filter='/(7|23|128|L1|L2)/'
    measure_chains quick-chains --repetitions 2 --seconds 0.02
    echo "raw results: build/release/bench/quick.json, quick-chains.json, quick-chains-python.json"
    ;;
--chains)
    measure_chains chains --repetitions 9 --seconds 0.1
    tabulate_chains
    ;;
"")
    measure tasks utils_sse_tasks --benchmark_repetitions=7 >/dev/null
    # Where the system happens to load code and arrays changes calls of a few nanoseconds by half: several processes.
    caches=()
    for process in 1 2 3 4 5 6 7 8 9 10; do
        measure caches-$process utils_sse_bench --benchmark_repetitions=1 --benchmark_filter='-/memory/' >/dev/null
        caches+=("build/release/bench/caches-$process.json")
    done
    measure memory utils_sse_bench --benchmark_repetitions=3 --benchmark_filter='/memory/' >/dev/null
    measure_chains chains --repetitions 9 --seconds 0.1
    python3 bench/table.py docs/performance.md "${caches[@]}" build/release/bench/memory.json \
        --tasks build/release/bench/tasks.json --readme README.md
    measure counted utils_sse_counted --benchmark_repetitions=9 >/dev/null
    python3 bench/counted.py build/release/bench/utils_sse_counted build/release/bench/counted.json docs/performance.md
    tabulate_chains
    ;;
*)
    echo "usage: scripts/benchmark.sh [--quick | --chains]" >&2
    exit 2
    ;;
esac
