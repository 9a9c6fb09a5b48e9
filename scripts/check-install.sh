#!/usr/bin/env bash
# Installs the library, moves the folder, and links it as strangers do: find_package, pkg-config, a plain compiler in C++98, and the
# sources as part of another project; the dynamic library, the static one, and both side by side.
set -euo pipefail
source "$(dirname "$0")/common.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

scripts/install-packages.sh g++ cmake ninja-build pkg-config binutils
version=$(project_version)
source=$PWD
tried=0
passed() { tried=$((tried + 1)) && echo "ok: $1"; }
failed() { echo "failed: $1" >&2 && exit 1; }

build_library
for kind in both shared static; do
    cmake --install build/library --prefix "$work/first" >/dev/null
    mv "$work/first" "$work/$kind"
done
rm "$work"/shared/lib/{libutils_sse.a,cmake/utils_sse/utils_sse-static*}
rm "$work"/static/lib/{libutils_sse.so*,cmake/utils_sse/utils_sse-shared*}

# PROGRAM KIND: runs, and needs the dynamic library or does not.
runs() {
    LD_LIBRARY_PATH=$prefix/lib "$1" || failed "$1 gives a wrong result"
    readelf -d "$1" >"$work/needs"
    case $2 in
    shared) grep -qF '[libutils_sse.so.'"${version%%.*}]" "$work/needs" || failed "$1 is not linked with libutils_sse.so.${version%%.*}" ;;
    static) ! grep -q libutils_sse "$work/needs" || failed "$1 needs the dynamic library" ;;
    esac
}

# Configures the consumer with the options given; its messages are in $work/log.
configure() {
    rm -rf "$work/build"
    cmake -S tests/consumer -B "$work/build" -G Ninja --log-level=WARNING "$@" >"$work/log" 2>&1
}

# PREFIX KIND [COMPONENT]
finds() {
    prefix=$work/$1
    configure -DCMAKE_PREFIX_PATH="$prefix" -DUTILS_SSE_VERSION="$version" -DUTILS_SSE_KIND="${3:-}" || failed "$(cat "$work/log")"
    cmake --build "$work/build" >/dev/null
    runs "$work/build/consumer" "$2"
    passed "find_package, installed: $1, component: ${3:-not given}"
}
finds both shared
finds both static static
finds shared shared
finds static static

# REASON PREFIX OPTION: the package is there and must be refused.
refuses() {
    ! configure -DCMAKE_PREFIX_PATH="$work/$2" "$3" || failed "find_package accepts $3"
    grep -qF "$1" "$work/log" || failed "find_package refuses $3, but does not say: $1 $(cat "$work/log")"
    passed "find_package refuses $3"
}
refuses "version: $version" both -DUTILS_SSE_VERSION=$((${version%%.*} + 1))
refuses "version: $version" both -DUTILS_SSE_VERSION="${version%%.*}.99"
refuses "no library of utils_sse of this kind" shared -DUTILS_SSE_KIND=static

strict=(-std=c++98 -pedantic-errors -Wall -Werror tests/consumer/main.cpp -o "$work/plain")
for kind in shared static; do
    prefix=$work/$kind
    export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
    [ "$(pkg-config --modversion utils_sse)" = "$version" ] || failed "pkg-config tells another version than $version"
    # shellcheck disable=SC2046  # flags are words
    g++ "${strict[@]}" $(pkg-config --cflags --libs utils_sse)
    runs "$work/plain" $kind
    passed "pkg-config, $kind"
    g++ "${strict[@]}" -I "$prefix/include" -L "$prefix/lib" -lutils_sse
    runs "$work/plain" $kind
    passed "g++ -std=c++98 -lutils_sse, $kind"
done
prefix=$work/both
# shellcheck disable=SC2046
PKG_CONFIG_PATH=$prefix/lib/pkgconfig g++ -static "${strict[@]}" $(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --static --cflags --libs utils_sse)
runs "$work/plain" static
passed "pkg-config --static, g++ -static, both installed"

configure -DUTILS_SSE_SOURCE="$source" -DBUILD_SHARED_LIBS=OFF || failed "$(cat "$work/log")"
cmake --build "$work/build" >/dev/null
runs "$work/build/consumer" static
passed "sources as a part of another project (FetchContent), static"
configure -DUTILS_SSE_SOURCE="$source" || failed "$(cat "$work/log")"
passed "sources as a part of another project change nothing in it"

if [ -x build/release/tools/echo2image ]; then
    cmake --install build/release --prefix "$work/first" >/dev/null
    mv "$work/first" "$work/tool"
    [ "$("$work/tool/bin/echo2image" --version)" = "echo2image $version" ] || failed "echo2image tells another version than $version"
    passed "echo2image in a moved folder finds its library and tells its version"
else
    echo "not tried: echo2image in a moved folder (it is not built in build/release)"
fi
[ "$(grep -m 1 '^## ' CHANGELOG.md | cut -d ' ' -f 2)" = "$version" ] ||
    failed "CHANGELOG.md does not begin with $version"
echo "$tried ways, version $version everywhere"
