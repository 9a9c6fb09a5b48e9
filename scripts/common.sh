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
