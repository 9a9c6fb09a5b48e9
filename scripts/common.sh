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

# The library alone, both kinds, with debug information: build/library.
build_library() {
    cmake -S . -B build/library -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_FLAGS=-g \
        -DUTILS_SSE_STATIC_TOO=ON -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_TOOLS=OFF >/dev/null
    cmake --build build/library
}

project_version() { sed -n 's/^project(utils_sse VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt; }
