#!/usr/bin/env bash
# The same sources give the same bytes: builds libraries, echo2image and Debian packages a second time in another folder, under
# another user name, home, language, time zone and with other file modes, and compares.
set -euo pipefail
source "$(dirname "$0")/common.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

scripts/package.sh
set_source_date
second=$work/some/other/folder
(
    umask 077
    mkdir -p "$second"
    if git ls-files --error-unmatch CMakeLists.txt >/dev/null 2>&1; then
        git ls-files -z
    else
        find . -path ./build -prune -o -type f -print0
    fi | tar -c --null -T - | tar -x --no-same-permissions -C "$second"
    env -i PATH="$PATH" HOME="$work" USER=somebody LOGNAME=somebody LC_ALL=C.UTF-8 TZ=Asia/Kathmandu \
        SOURCE_DATE_EPOCH="$SOURCE_DATE_EPOCH" "$second/scripts/package.sh" "$work/packages"
)

compared=0
differ=0
# FIRST SECOND
compare() {
    compared=$((compared + 1))
    cmp "$1" "$2" || differ=$((differ + 1))
}
for file in libutils_sse.so libutils_sse.a wider/glibc-hwcaps/x86-64-v{3,4}/libutils_sse.so tools/echo2image; do compare "build/package/$file" "$second/build/package/$file"; done
for package in build/packages/*.deb; do compare "$package" "$work/packages/$(basename "$package")"; done
[ "$(find "$work/packages" -name '*.deb' | wc -l)" -eq $((compared - 5)) ] || differ=$((differ + 1))
echo "$compared files built twice, $differ differ"
[ $differ -eq 0 ]
