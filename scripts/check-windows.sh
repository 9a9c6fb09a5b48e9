#!/usr/bin/env bash
# Windows, cross-built with MinGW: the 64-bit library and tool run under Wine (tests, demo with the pictures of Linux byte for
# byte, hosts that link and that load by name); of the 32-bit DLL the exports and imports are looked at.
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${tool_packages[@]}" python3 googletest wine64 g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix \
    libz-mingw-w64-dev
scripts/windows-libraries.sh

work=$(mktemp -d)
export WINEPREFIX=$work/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
wine() { /usr/lib/wine/wine64 "$@"; }
stop() {
    /usr/lib/wine/wineserver -k || true
    rm -rf "$work"
}
trap stop EXIT
die() {
    echo "$*" >&2
    exit 1
}
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)

wine cmd /c exit & # makes the prefix while the compiler works
prefix_made=$!

# The library as released, for a stranger's project: shared and static.
for build in mingw64-ON mingw64-OFF mingw32-ON; do
    cmake --preset "${build%-*}" -B "$work/$build" --log-level=WARNING -DBUILD_SHARED_LIBS="${build#*-}" -DUTILS_SSE_BUILD_TESTS=OFF \
        -DUTILS_SSE_BUILD_TOOLS=OFF -DCMAKE_INSTALL_PREFIX="$work/$build/prefix" >/dev/null
    cmake --build "$work/$build" --target install >/dev/null
    toolchain=$(sed -n 's/^CMAKE_TOOLCHAIN_FILE:[A-Z]*=//p' "$work/$build/CMakeCache.txt")
    cmake -S tests/consumer -B "$work/$build/consumer" -G Ninja --log-level=WARNING --toolchain "$toolchain" \
        -Dutils_sse_DIR="$work/$build/prefix/lib/cmake/utils_sse" >/dev/null
    cmake --build "$work/$build/consumer" >/dev/null
done

# Everything around it, compiled soon rather than well, with the released DLL.
folder=build/windows-tests
cmake --preset mingw64 -B $folder --log-level=WARNING -DCMAKE_CXX_FLAGS_RELEASE=-O1 >/dev/null
cmake --build $folder
cp "$work/mingw64-ON/prefix/bin/utils_sse.dll" $folder/
wait $prefix_made

# test_under_wine NAME LEAST: all tests of one program pass, and there are at least so many.
test_under_wine() {
    local log=$work/$1.log passed
    if wine $folder/"$1.exe" --gtest_brief=1 >"$log" 2>&1; then
        passed=$(tr -d '\r' <"$log" | sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\.$/\1/p')
        [ "${passed:-0}" -ge "$2" ] && echo "$1.exe: $passed tests passed" && return
        echo "$1.exe: ${passed:-no} tests passed, expected at least $2" >&2
    fi
    cat "$log" >&2
    return 1
}
test_under_wine kernel_tests 210 & kernel=$!
test_under_wine tool_tests 25 & tool=$!
test_under_wine signal_tests 60
wait $kernel
wait $tool

wine "$work/mingw64-OFF/consumer/consumer.exe" || die "a host that links the static library: exit code $?"
WINEPATH=$work/mingw64-ON/prefix/bin wine "$work/mingw64-ON/consumer/consumer.exe" || die "a host that links the DLL: exit code $?"
wine $folder/load_by_name.exe $folder/utils_sse.dll || die "a host that loads the DLL: exit code $?"
wine $folder/rf_to_pixels.exe >/dev/null || die "the example of the documentation: exit code $?"
echo "hosts: static, import library, by name, the documentation's example: ok"

scripts/demo.sh "$work/pictures" >/dev/null
wine $folder/echo2image.exe demo -o "$work/pictures.windows" >/dev/null
diff -r "$work/pictures" "$work/pictures.windows"
for picture in "$work"/pictures/*.png; do wine $folder/echo2image.exe verify "$picture" >/dev/null; done
echo "echo2image.exe: $(ls "$work/pictures.windows" | wc -l) pictures with the bytes of Linux, and verified"
[ "$(wine $folder/echo2image.exe --version | tr -d '\r')" = "echo2image $version" ] || die "echo2image.exe: not version $version"

# check_imports FILE TARGET: needs nothing but what every Windows has, and ours.
check_imports() {
    local found strange
    found=$("$2-objdump" -p "$1" | sed -n 's/^\tDLL Name: //p')
    strange=$(grep -vxE 'KERNEL32\.dll|msvcrt\.dll|utils_sse\.dll' <<<"$found" || true)
    [ -n "$found" ] && [ -z "$strange" ] || die "$1: imports ${found//$'\n'/, }; expected system DLLs and utils_sse.dll"
    echo "$(basename "$1") ($2): imports ${found//$'\n'/, }"
}
check_imports $folder/echo2image.exe x86_64-w64-mingw32
for build in mingw64-ON:x86_64 mingw32-ON:i686; do
    dll=$work/${build%:*}/prefix/bin/utils_sse.dll
    target=${build#*:}-w64-mingw32
    check_imports "$dll" "$target"
    python3 tests/exports.py --header include/utils_sse.h --table /usr/lib/wine/wine64 $folder/utils_sse_operations.exe \
        --library "$dll" --objdump "$target-objdump"
    strings -el "$dll" | grep -qx "$version" || die "$dll: its version resource does not say $version"
done
if strings "$work/mingw64-OFF/prefix/lib/libutils_sse.a" | grep -e '-export:'; then
    die "the static library exports these as if it were a DLL"
fi
