#!/usr/bin/env bash
# Builds utils_sse and echo2image, makes ultrasound pictures and says where they are.
#   scripts/demo.sh [FOLDER]    FOLDER for the pictures, default: pictures
set -euo pipefail
folder=$(realpath -m "${1:-"$(dirname "$0")/../pictures"}")
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${tool_packages[@]}"
configure_and_build release -DUTILS_SSE_BUILD_TESTS=OFF -DUTILS_SSE_BUILD_BENCHMARKS=OFF
build/release/tools/echo2image demo -o "$folder"
echo "Pictures are in $folder"
