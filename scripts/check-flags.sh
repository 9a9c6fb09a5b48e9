#!/usr/bin/env bash
# Builds the library and the kernel tests with prefetch hints on and with flags that a careless user or package builder might
# set globally, and runs the tests: the target's own flags must win, and loading the library must leave the floating-point
# control register alone. With everything this machine has, kernels use its widest registers.
#   scripts/check-flags.sh [COMPILER]    default: g++
set -euo pipefail
source "$(dirname "$0")/common.sh"

compiler=${1:-g++}
flags="-Ofast -ffast-math -funroll-loops"
grep -qw fma /proc/cpuinfo && flags+=" -march=native"
folder=build/flags-$compiler
cmake -S . -B "$folder" -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="$flags" -DUTILS_SSE_BUILD_TOOLS=OFF -DUTILS_SSE_WIDER=OFF -DUTILS_SSE_PREFETCH=ON >/dev/null
cmake --build "$folder" --target kernel_tests
"$folder/tests/kernel_tests" --gtest_brief=1
