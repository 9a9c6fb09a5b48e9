#!/usr/bin/env bash
# The binary interface: both libraries hold the functions of the header and no other symbol, and the dynamic one agrees with
# the record in abi/ in every name, argument type and result type.
#   scripts/check-abi.sh [--update]    --update: write the record anew
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh g++ cmake ninja-build python3 binutils abigail-tools
build_library
library=build/library/libutils_sse.so
python3 tests/exports.py --header include/utils_sse.h --library $library --archive build/library/libutils_sse.a

version=$(project_version)
record=abi/libutils_sse.so.${version%%.*}.abi
if [ "${1:-}" = --update ]; then
    mkdir -p abi
    abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs \
        --no-parameter-names --no-elf-needed --no-write-default-sizes --type-id-style hash --out-file "$record" $library
    echo "$record is written; git diff shows what changed"
fi
[ -f "$record" ] || { echo "there is no record $record; scripts/check-abi.sh --update writes one"; exit 1; }
if ! abidiff --headers-dir2 include --no-added-syms --drop-private-types "$record" $library; then
    echo "programs that are linked with version ${version%%.*} would break: this needs a new major version, and a new record" \
        "(scripts/check-abi.sh --update)"
    exit 1
fi
if ! abidiff --headers-dir2 include --drop-private-types "$record" $library; then
    echo "there is more than in $record. When this is meant, it is a new minor version: scripts/check-abi.sh --update"
    exit 1
fi
echo "the interface is the recorded one: $(grep -c '<elf-symbol ' "$record") functions"
