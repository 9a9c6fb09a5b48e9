#!/usr/bin/env bash
# Builds the library with prefetch hints on and with flags that a careless user or package builder might set globally, and runs
# the kernel tests with it: the target's own flags must win, and loading the library must leave the floating-point control
# register alone. With everything this machine has, kernels use its widest registers.
#   scripts/check-flags.sh [COMPILER]    default: g++
set -euo pipefail
source "$(dirname "$0")/common.sh"

compiler=${1:-g++}
flags="-Ofast -ffast-math -funroll-loops"
grep -qw fma /proc/cpuinfo && flags+=" -march=native"
folder=build/flags-$compiler
cmake -S . -B "$folder" -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="$flags" -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_TOOLS=OFF -DUTILS_SSE_WIDER=OFF -DUTILS_SSE_PREFETCH=ON >/dev/null
cmake --build "$folder" --target utils_sse
build_for_tests release kernel_tests
with=(/lib64/ld-linux-x86-64.so.2 --library-path "$folder")
"${with[@]}" --list build/release/tests/kernel_tests | grep -q " $folder/libutils_sse.so.1 " ||
    { echo "the loader does not take the library in $folder" >&2; exit 1; }
"${with[@]}" build/release/tests/kernel_tests --gtest_brief=1
