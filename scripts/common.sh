# Sourced by the other scripts: where things are, and what they need.
cd "$(dirname "${BASH_SOURCE[0]}")/.."

tool_packages=(g++ cmake ninja-build pkg-config libcli11-dev libyaml-cpp-dev libpng-dev libmd-dev libdcmtk-dev)
test_packages=("${tool_packages[@]}" libgtest-dev python3 binutils)

# configure_and_build PRESET [cmake options]
configure_and_build() {
    local preset=$1
    shift
    cmake --preset "$preset" --log-level=WARNING "$@" >/dev/null
    cmake --build --preset "$preset"
}

# build_for_tests PRESET TARGET..: with tests, even if another script has configured the build without them.
build_for_tests() {
    local preset=$1
    shift
    cmake --preset "$preset" --log-level=WARNING -DUTILS_SSE_BUILD_TESTS=ON -DUTILS_SSE_BUILD_BENCHMARKS=OFF >/dev/null
    cmake --build --preset "$preset" --target "$@"
}

# The library alone, both kinds, with debug information: build/library.
build_library() {
    cmake -S . -B build/library -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_FLAGS=-g \
        -DUTILS_SSE_STATIC_TOO=ON -DUTILS_SSE_WIDER=OFF -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_TOOLS=OFF >/dev/null
    cmake --build build/library
}

project_version() { sed -n 's/^project(utils_sse VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt; }

# The time that packages and their files carry: the last commit's, or of sources without history the changelog's.
set_source_date() {
    if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
        if git ls-files --error-unmatch CMakeLists.txt >/dev/null 2>&1; then
            SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
        else
            local released
            released=$(sed -n '/^## /{s/.*(\(.*\)).*/\1/p;q}' CHANGELOG.md)
            SOURCE_DATE_EPOCH=$(date -ud "$released" +%s 2>/dev/null || stat -c %Y CHANGELOG.md)
        fi
    fi
    export SOURCE_DATE_EPOCH
}
