#!/usr/bin/env bash
# Runs the kernel tests on an emulated processor that has SSE2 and nothing younger: any other instruction ends the test.
# Left out are the functions that may use more (the table says which), and tests of what an emulator does not show.
#   scripts/check-old-processors.sh [PRESET]..    release (default): first x86-64 processors; m32: Pentium III with SSE2
set -euo pipefail
source "$(dirname "$0")/common.sh"

scripts/install-packages.sh "${test_packages[@]}" qemu-user
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ulimit -c 0

# The emulator must refuse what it shall refuse, or the tests below prove nothing.
try_emulator() { # option of g++, command of the emulator..
    local option=$1 case status refused=()
    shift
    for case in "SSE2 paddd" "SSE3 haddps" "SSSE3 pabsw" "SSE4.1 pmulld" "SSE4.2 pcmpgtq"; do
        echo "int main() { asm volatile(\"${case#* } %xmm0, %xmm0\"); }" >"$work/try.cpp"
        g++ "$option" -o "$work/try" "$work/try.cpp"
        status=0
        { "$@" "$work/try" || status=$?; } 2>/dev/null
        if [ "${case% *}" = SSE2 ]; then
            [ $status -eq 0 ] || { echo "$*: a program of SSE2 ends with $status, expected 0" >&2; exit 1; }
        else
            [ $status -eq 132 ] || { echo "$*: ${case#* } (${case% *}) ends with $status, expected 132 (SIGILL)" >&2; exit 1; }
            refused+=("${case% *}")
        fi
    done
    echo "$*: refuses ${refused[*]}"
}

for preset in "${@:-release}"; do
    case $preset in
    m32) emulator=(qemu-i386 -cpu "pentium3,+sse2") option=-m32 ;;
    *) emulator=(qemu-x86_64 -cpu "qemu64,-sse3,-cx16,-lahf-lm") option=-m64 ;;
    esac
    [ "$preset" != m32 ] || scripts/install-packages.sh g++-multilib googletest
    try_emulator "$option" "${emulator[@]}"

    build_for_tests "$preset" kernel_tests utils_sse_operations
    may_use_more=$(build/"$preset"/operations/utils_sse_operations |
        python3 -c 'import json, sys; print(*(o["name"] for o in json.load(sys.stdin)["operations"] if o["instruction_set"] != "SSE2"))')
    # The emulator's heap knows no limit, and every 5x5 window takes it long.
    filter="-AlignedMemory.FullHeapGivesNull:*.EveryWindowOfZerosAndOnes"
    for function in $may_use_more; do filter+=":*$function*"; done

    UTILS_SSE_EFFORT=quick "${emulator[@]}" "build/$preset/tests/kernel_tests" --gtest_filter="$filter" \
        >"$work/output" 2>&1 || { tail -n 40 "$work/output" >&2; exit 1; }
    passed=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\.$/\1/p' "$work/output")
    sweeps=$(grep -c '^\[       OK \] Kernels/Sweep' "$work/output") || true
    if [ "${passed:-0}" -lt 150 ] || [ "$sweeps" -lt 90 ]; then
        tail -n 40 "$work/output" >&2
        echo "$preset: ${passed:-no} tests passed, $sweeps of them sweeps; expected 150 and 90 at least" >&2
        exit 1
    fi
    echo "$preset: $passed tests pass without ${may_use_more:-any} on a processor with SSE2 only"
done
