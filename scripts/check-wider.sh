#!/usr/bin/env bash
# The builds for wider registers, of those that this machine can run: the loader takes each of them when it is the widest it
# may take, the kernel tests pass with it, and random calls give the same bits as with the standard build.
#   SOAK_CALLS (200000): how many calls
set -euo pipefail
source "$(dirname "$0")/common.sh"

folder=build/release
loader=/lib64/ld-linux-x86-64.so.2
log=$(mktemp)
trap 'rm -f "$log"' EXIT

build_for_tests release kernel_tests soak utils_sse_v3 utils_sse_v4
tried=0
for level in x86-64-v3 x86-64-v4; do
    library=$folder/wider/glibc-hwcaps/$level/libutils_sse.so.1
    python3 tests/exports.py --header include/utils_sse.h --library "$(realpath $library)"
    if ! $loader --help | grep -q "$level (supported"; then
        echo "$level: built; NOT RUN, since this machine cannot"
        continue
    fi
    with=("$loader" --library-path "$folder/wider" --glibc-hwcaps-mask "$level")
    "${with[@]}" --list $folder/tests/kernel_tests | grep -q "/glibc-hwcaps/$level/libutils_sse.so.1 " ||
        { echo "the loader does not take $library" >&2; exit 1; }
    "${with[@]}" $folder/tests/kernel_tests --gtest_brief=1 >"$log" || { tail -n 40 "$log" >&2; exit 1; }
    passed=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\.$/\1/p' "$log")
    [ "${passed:-0}" -ge 200 ] || { echo "$level: ${passed:-no} tests passed, expected 200 at least" >&2; exit 1; }
    echo "$level: $passed kernel tests passed"
    $folder/tests/kernels/soak --calls "${SOAK_CALLS:-200000}" --against $library
    tried=$((tried + 1))
done
echo "$tried wider builds run"
