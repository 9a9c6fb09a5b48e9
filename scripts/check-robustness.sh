#!/usr/bin/env bash
# Feeds every fuzz target for FUZZ_SECONDS (60), two at a time; calls all kernels from many threads under the thread
# sanitizer; then SOAK_CALLS (a million) random calls between inaccessible pages. What a target fails on stays in
# build/sanitize/artifacts.
set -euo pipefail
source "$(dirname "$0")/common.sh"
seconds=${FUZZ_SECONDS:-60}
calls=${SOAK_CALLS:-1000000}
artifacts=$PWD/build/sanitize/artifacts
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT

scripts/install-packages.sh "${test_packages[@]}" clang libclang-rt-14-dev zlib1g-dev

configure() { cmake --preset "$@" --log-level=WARNING >/dev/null; }
configure sanitize
cmake --build build/sanitize --target fuzzers
configure tsan
cmake --build build/tsan --target soak
build_for_tests release soak

fuzz() {
    local target=$1 log=$work/$1.log dictionary=() code=0
    [ -f "fuzz/$target.dict" ] && dictionary=(-dict="fuzz/$target.dict")
    mkdir -p "$work/corpus/$target"
    # Short stacks of allocations and a small quarantine: less time and a third of the memory.
    ASAN_OPTIONS=malloc_context_size=3:quarantine_size_mb=16 "build/sanitize/fuzz/fuzz_$target" -seed=1 -max_total_time="$seconds" -max_len=4096 -timeout=5 -rss_limit_mb=1024 \
        -malloc_limit_mb=256 -print_final_stats=1 -artifact_prefix="$artifacts/$target-" "${dictionary[@]}" \
        "$work/corpus/$target" "$work/seeds/$target" >"$log" 2>&1 || code=$?
    if [ $code -ne 0 ]; then
        tail -n 60 "$log"
        echo "fuzz_$target failed; its input is in $artifacts, to repeat: build/sanitize/fuzz/fuzz_$target INPUT"
        return 1
    fi
    awk -v name="$target" '/^stat::number_of_executed_units/ { runs = $2 } /^stat::average_exec_per_sec/ { rate = $2 }
        / cov: / { cov = $0; sub(/.* cov: /, "", cov); sub(/ .*/, "", cov) }
        END { printf "fuzz_%s: %d inputs, %d a second, %d branches reached, nothing wrong\n", name, runs, rate, cov;
              exit runs < 50 }' "$log" || { echo "fuzz_$target: hardly anything was tried"; return 1; }
}

python3 fuzz/seeds.py "$work/seeds"
mkdir -p "$artifacts"
running=()
failed=0
for target in kernels description data_file dicom png recipe; do
    if [ ${#running[@]} -eq 2 ]; then
        for job in "${running[@]}"; do wait "$job" || failed=1; done
        running=()
    fi
    fuzz $target &
    running+=($!)
done
for job in "${running[@]}"; do wait "$job" || failed=1; done
[ $failed -eq 0 ] || exit 1

echo "threads, under the thread sanitizer:"
build/tsan/tests/kernels/soak --threads 8 --calls 20000
echo "between inaccessible pages:"
build/release/tests/kernels/soak --threads 2 --calls "$calls"
