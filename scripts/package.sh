#!/usr/bin/env bash
# Builds the Debian packages libutils-sse<major>, libutils-sse-dev and utils-sse-tools.
#   scripts/package.sh [FOLDER]    FOLDER for the packages, default: build/packages
set -euo pipefail
folder=$(realpath -m "${1:-"$(dirname "$0")/../build/packages"}")
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${tool_packages[@]}" dpkg-dev file
set_source_date
umask 022 # the archive's own header keeps it
configure_and_build package
mkdir -p "$folder"
rm -f "$folder"/*.deb "$folder"/*.deb.sha256
(cd build/package && cpack -G DEB -B "$folder" >cpack.log || { cat cpack.log && exit 1; })
rm -rf "$folder/_CPack_Packages"
ls "$folder"/*.deb
