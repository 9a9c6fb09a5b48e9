#!/usr/bin/env python3
"""No kernel needs more than SSE2, but for the ones named here: scans the disassembly of built libraries.

usage: check-instructions.py BUILD_FOLDER|LIBRARY...

Of a build folder the library is scanned and every object it was linked from: of an inline function that several objects
have the linker keeps one, and another program may get another one of them.
Before that the scan is tried on a function with an instruction it has to find.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ALLOWED = {"CUtils_SSE::DemodulateColorNew": "SSE4.1"}
ALLOWED_NAMESPACE = "simd::sse41::"  # inline code of these, under names that no other code has

# Vector instructions younger than SSE2, and scalar ones younger than the first x86-64 processors. pextrw and pinsrw are as
# old as SSE2, but with a destination in memory pextrw is SSE4.1. tzcnt is left out: older processors read it as bsf, and
# compilers use it where both mean the same.
NEWER = re.compile(
    r"""v[a-z0-9]+                                                                     # AVX and later
      | addsubp[sd] | h(add|sub)p[sd] | lddqu | movddup | movs[hl]dup                  # SSE3
      | pabs[bwd] | palignr | ph(add|sub)\w+ | pmaddubsw | pmulhrsw | pshufb | psign[bwd]  # SSSE3
      | p?blend\w+ | dpp[sd] | (extract|insert)ps | movntdqa | mpsadbw | packusdw | pcmpeqq | p(extr|insr)[bdq]
      | phminposuw | pm(ax|in)(sb|sd|ud|uw) | pmov[sz]x\w+ | pmuldq | pmulld | ptest | round[ps][sd]  # SSE4.1
      | pcmpgtq | pcmp[ei]str\w | crc32\w? | popcnt | lzcnt                            # SSE4.2 and its companions
      | andn | bextr | bls(i|r|msk) | bzhi | mulx | pdep | pext | rorx | sarx | shlx | shrx | movbe | adcx | adox
    """,
    re.X,
)


def disassembly(path):
    return subprocess.run(["objdump", "-d", "-C", "--no-show-raw-insn", path], capture_output=True, text=True, check=True).stdout


def scan(path):
    """Number of functions seen, and [(function, instruction)] beyond SSE2."""
    functions, found, name = 0, [], ""
    for line in disassembly(path).splitlines():
        if start := re.match(r"[0-9a-f]+ <(.*)>:$", line):
            name = start[1]
            functions += 1
        elif instruction := re.match(r"\s*[0-9a-f]+:\s+(\S+)\s*(.*)", line):
            mnemonic, operands = instruction.groups()
            if NEWER.fullmatch(mnemonic) or (mnemonic == "pextrw" and operands.endswith(")")):
                found.append((name, f"{mnemonic} {operands}"))
    return functions, found


def finds_newer_instructions():
    source = "#include <immintrin.h>\n__m128i largest(__m128i x, __m128i y) { return _mm_max_epi32(x, y); }\n"
    with tempfile.NamedTemporaryFile(suffix=".o") as made:
        subprocess.run(["g++", "-x", "c++", "-O2", "-msse4.1", "-c", "-", "-o", made.name], input=source, text=True, check=True)
        return len(scan(made.name)[1]) == 1


def is_allowed(function):
    return function.split("(")[0] in ALLOWED or ALLOWED_NAMESPACE in function


def check(path):
    """Number of functions and of faults, which are printed."""
    functions, found = scan(path)
    beyond = [(name, text) for name, text in found if not is_allowed(name)]
    for name, text in beyond:
        print(f"{path}: {name}: {text}: beyond SSE2", file=sys.stderr)
    return functions, len(beyond)


def library_of(folder):
    for name in ("libutils_sse.so", "libutils_sse.a", "utils_sse.dll"):
        if (folder / name).exists():
            return folder / name
    sys.exit(f"{folder}: no libutils_sse.so, libutils_sse.a or utils_sse.dll")


def check_library(library):
    kernels = disassembly(library).count("<CUtils_SSE::")
    if kernels < 50:
        sys.exit(f"{library}: {kernels} places of CUtils_SSE, expected its kernels")
    functions, beyond = check(library)
    print(f"{library}: {functions} functions, {beyond} instructions beyond SSE2 outside {', '.join(ALLOWED)}")
    return beyond


def check_objects(folder):
    """The objects of the library's target, which must be those of all its sources."""
    objects = sorted(folder.glob("CMakeFiles/utils_sse.dir/**/*.o*"))
    sources = {path.name for path in (pathlib.Path(__file__).parent.parent / "src").rglob("*.cpp") if "windows" not in path.name}
    if missing := sources - {path.stem for path in objects}:
        sys.exit(f"{folder}/CMakeFiles/utils_sse.dir: no objects of {', '.join(sorted(missing))}")
    counts = [check(path) for path in objects]
    functions, beyond = (sum(column) for column in zip(*counts))
    print(f"{folder}: {len(objects)} objects with {functions} functions, {beyond} instructions beyond SSE2")
    return beyond


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    if not finds_newer_instructions():
        sys.exit("check-instructions.py: pmaxsd was not found in a function that has it")
    faults = 0
    for argument in map(pathlib.Path, sys.argv[1:]):
        if argument.is_dir():
            faults += check_library(library_of(argument)) + check_objects(argument)
        else:
            faults += check_library(argument)
    sys.exit(faults != 0)
