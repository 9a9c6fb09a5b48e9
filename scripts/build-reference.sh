#!/usr/bin/env bash
# Makes the reference from the header and the table of operations: build/reference/html/index.html.
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${test_packages[@]}" doxygen
cmake --preset release --log-level=WARNING -DUTILS_SSE_BUILD_DOCS=ON -DUTILS_SSE_BUILD_TESTS=ON -DUTILS_SSE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build --preset release --target reference
rm -rf build/reference
mkdir -p build/reference
cp -r build/release/docs/reference/html build/reference/
pages=$(find build/reference/html -name '*.html' | wc -l)
functions=$(grep -c '<td class="function"><a href="group__' build/reference/html/facts.html)
[ "$functions" -ge 90 ] || { echo "build/reference/html/facts.html: $functions functions, expected 90 at least" >&2; exit 1; }
echo "build/reference/html/index.html: $pages pages, $functions functions in the table of facts"
