#!/usr/bin/env bash
# Puts what echo2image needs on 64-bit Windows into build/windows-libraries: static yaml-cpp, libpng and libmd, cross-built from
# Debian's own sources (as released for Debian 12, signatures checked by apt), and CLI11, which is headers only. zlib is a
# package. Does nothing when all is there already, and needs no network then.
set -euo pipefail
source "$(dirname "$0")/common.sh"

prefix=$PWD/build/windows-libraries
[ -e "$prefix/complete" ] && exit 0

scripts/install-packages.sh g++-mingw-w64-x86-64-posix libz-mingw-w64-dev cmake ninja-build make dpkg-dev libcli11-dev
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$prefix"
mkdir -p "$prefix/include" "$prefix/share/cmake"

# A list of sources of our own for apt: the machine's stays as it is.
keys='[signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]'
released="deb-src $keys http://deb.debian.org/debian bookworm main"
repaired="deb-src $keys http://deb.debian.org/debian-security bookworm-security main"
get_sources() {
    rm -rf "$work/sources" "$work/lists"
    mkdir -p "$work/sources" "$work/lists/partial"
    printf '%s\n' "$@" >"$work/sources.list"
    local apt=(apt-get -qq -o APT::Sandbox::User=root -o "Dir::Etc::SourceList=$work/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o "Dir::State::Lists=$work/lists" -o Dir::Cache::pkgcache= -o Dir::Cache::srcpkgcache=)
    "${apt[@]}" update && (cd "$work/sources" && "${apt[@]}" source yaml-cpp libpng1.6 libmd) >"$work/log" 2>&1
}
if ! get_sources "$released" "$repaired" && ! get_sources "$released"; then
    cat "$work/log" >&2
    echo "the sources of yaml-cpp, libpng and libmd cannot be fetched from deb.debian.org" >&2
    exit 1
fi

# cross_build NAME [cmake options]
cross_build() {
    local source=("$work/sources/$1"-*)
    cmake -S "${source[0]}" -B "$work/$1" -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release \
        --toolchain "$PWD/cmake/toolchain-mingw-w64-x86_64.cmake" -DCMAKE_INSTALL_PREFIX="$prefix" "${@:2}" &&
        cmake --build "$work/$1" --target install
}
build_yaml() { cross_build yaml-cpp -DYAML_BUILD_SHARED_LIBS=OFF -DYAML_CPP_BUILD_{TOOLS,TESTS,CONTRIB}=OFF; }
build_png() { cross_build libpng1.6 -DPNG_SHARED=OFF -DPNG_TESTS=OFF; }
build_md() {
    mkdir "$work/libmd" && cd "$work/libmd" &&
        ../sources/libmd-*/configure --host=x86_64-w64-mingw32 CC=x86_64-w64-mingw32-gcc-posix --prefix="$prefix" --disable-shared &&
        make install
}
for what in yaml png md; do
    build_$what >"$work/log.$what" 2>&1 &
    jobs[$!]=$what
done
for job in "${!jobs[@]}"; do
    wait "$job" || { cat "$work/log.${jobs[$job]}" >&2; exit 1; }
done
cp -r /usr/include/CLI "$prefix/include/"
cp -r /usr/share/cmake/CLI11 "$prefix/share/cmake/"
touch "$prefix/complete"
echo "yaml-cpp, libpng, libmd and CLI11 for Windows: in $prefix"
