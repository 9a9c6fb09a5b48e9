#!/usr/bin/env bash
# Builds utils_sse with everything around it and runs every test.
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${test_packages[@]}"
configure_and_build release -DUTILS_SSE_BUILD_TESTS=ON -DUTILS_SSE_BUILD_BENCHMARKS=OFF
ctest --preset release -j "$(nproc)" "$@"
