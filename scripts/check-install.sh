#!/usr/bin/env bash
# Installs the library, shared and static, and uses it as a stranger would: find_package, pkg-config, and a C++98 host.
set -euo pipefail
source "$(dirname "$0")/common.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for shared in ON OFF; do
    prefix=$work/prefix-$shared
    cmake -S . -B "$work/build-$shared" -G Ninja --log-level=WARNING -DBUILD_SHARED_LIBS=$shared \
        -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_TOOLS=OFF -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
    cmake --build "$work/build-$shared" --target install >/dev/null

    cmake -S tests/consumer -B "$work/consumer-$shared" -G Ninja --log-level=WARNING -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
    cmake --build "$work/consumer-$shared" >/dev/null
    "$work/consumer-$shared/consumer"
    echo "find_package, BUILD_SHARED_LIBS=$shared: ok"

    libdir=$(dirname "$(find "$prefix" -name utils_sse.pc)")/..
    flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs utils_sse)
    # shellcheck disable=SC2086  # flags are words
    g++ -std=c++98 -pedantic-errors -Wall -Werror tests/consumer/main.cpp $flags -o "$work/plain-$shared"
    LD_LIBRARY_PATH=$libdir "$work/plain-$shared"
    echo "pkg-config and g++ -std=c++98, BUILD_SHARED_LIBS=$shared: ok"
done
