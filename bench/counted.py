#!/usr/bin/env python3
"""How near kernels come to what counting their instructions allows.

usage: counted.py PROGRAM TIMES.json [docs/performance.md]     writes the table
       counted.py PROGRAM --show CASE                          prints the machine code of a case with how often it runs

PROGRAM is utils_sse_counted, TIMES.json what it wrote with --benchmark_out (scripts/benchmark.sh does all of it). Each case runs once under valgrind
(callgrind), which counts every executed instruction of the kernel, its tails and the C library's functions it calls
included. What the counts add up to stands in `PORTS` below for one kind of core; other kinds need figures of their own.
Only what one instruction waits for is not in the counts: chains of additions, whose order is the contract, are in `CHAINS`.
"""
import argparse
import collections
import concurrent.futures
import functools
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from itertools import combinations

# Kernels of the table, and in how many elements (outputs, pixels, candidates) figures are given.
KERNELS = re.compile(
    r"E\w*?Detect|FilterTheEnvelop|Envelope|SumFloats|FDotProduct|DotProduct|ColorLowPass|SumAbsDiff|SumProduct|"
    r"Normalized|Correlation$|CorrelationF$|Centroid|MaskAverage|Filter2x2|MedianFilter|ExtremumFilter|MaxAbsoluteValue|Upsample|"
    r"InterpRFHarm|AutoCorrelate|IIRPerform|MixingClutter|ATan2|FFTmagnitude|Transpose|Distance|FineCorrelation|RoughCorrelation")

# --- the core: Golden Cove and its Xeons, 128-bit instructions ---
# Micro-operations and the ports that execute them; measured instruction by instruction, alone and mixed.
ISSUE, LOADS, STORES = 6, 3, 2  # a cycle
ALU, SHIFT, JUMP = "016A5", "06", "06"
VECTOR, MULTIPLY, SHUFFLE, FLOAT_ADD = "015", "01", "15", "15"
PORTS = [
    (r"(add|sub|addsub)(ps|ss|pd|sd)", [FLOAT_ADD]),
    (r"(mul|min|max)(ps|ss|pd|sd)|cmp\w*(ps|ss|pd|sd)|v?f(n?m)(add|sub)\w+", [MULTIPLY]),
    (r"cvt(dq2ps|t?ps2dq)|round\w+", [MULTIPLY]),
    (r"cvt(ps2pd|ss2sd|dq2pd)|cvt(pd2ps|sd2ss|t?pd2dq)|cvtsi2s[sd]", ["5", MULTIPLY]),
    (r"cvtt?s[sd]2si", [MULTIPLY, MULTIPLY]),
    (r"u?comis[sd]|movmskp[sd]|pmovmskb", ["0"]),
    (r"(andn?|or|xor)p[sd]|p(andn?|or|xor)[dq]?", [VECTOR]),
    (r"p(add|sub)[bwdq]|movss|movsd|blend\w+|pblend\w+", [VECTOR]),
    (r"p(add|sub)u?s[bw]|p(min|max)[us][bwd]|pcmp(eq|gt)[bwd]|pavg[bw]|pabs[bwd]", [MULTIPLY]),
    (r"pmadd\w+|pmul(l|h|hu)w|pmuludq|pmuldq", [MULTIPLY]),
    (r"pmulld", [MULTIPLY, MULTIPLY]),
    (r"psadbw|pack\w+|unpck[lh]p[sd]|mov(hl|lh)ps", ["5"]),
    (r"ps[rl][al][wdq](?=_by_register)", [MULTIPLY, SHUFFLE]),
    (r"ps[rl][al][wdq]", [MULTIPLY]),
    (r"pshuf\w+|punpck\w+|shufp[sd]|ps[rl]ldq|palignr|pmov[sz]x\w+|movddup|mov(sl|sh)dup|insertps|\w*broadcast\w*|vpermil\w+", [SHUFFLE]),
    (r"(div|sqrt)(ps|ss|pd|sd)", ["0"]),
]
DIVIDER = {"divps": 3, "divss": 3, "sqrtps": 3, "sqrtss": 3, "divpd": 4, "divsd": 4, "sqrtpd": 4.5, "sqrtsd": 4.5}
PORTS = [(re.compile(pattern), ports) for pattern, ports in PORTS]
FUSES = ("cmp", "test", "add", "sub", "and", "inc", "dec")  # with a jump that follows

# Additions of one chain for each element: the kernel's order of summation is part of its contract.
CHAINS = {"SumFloats": 1 / 4, "FDotProduct (one pair)": 1 / 4, "FDotProduct (two pairs)": 1 / 4, "DotProduct": 1 / 8, "ColorLowPass": 1 / 4,
          "Envelope": 1 / 4, "EnvelopeSum": 1 / 4, "SumAbsDiff (floats)": 1 / 4, "CorrelationF": 1 / 8}


class Cost:
    """Of one instruction: micro-operations issued and executed."""

    def __init__(self, issued=1, ports=(), loads=0, stores=0, divider=0, vector=0):
        self.issued, self.ports, self.loads, self.stores, self.divider, self.vector = issued, ports, loads, stores, divider, vector


class Unknown(Exception):
    pass


def cost(text, fused_with_next):
    mnemonic, _, operands = text.partition(" ")
    operands = [o.strip() for o in re.sub(r"<.*|#.*", "", operands).split(",")] if operands.strip() else []
    if mnemonic in ("rep", "lock", "bnd", "notrack", "data16", "cs"):
        return cost(" ".join(text.split()[1:]), fused_with_next) if len(text.split()) > 1 else Cost()
    memory = [i for i, o in enumerate(operands) if "[" in o]
    if mnemonic.startswith(("nop", "endbr", "xchg")) or mnemonic in ("data16", "cs", "vzeroupper"):
        return Cost()
    if mnemonic == "call":
        return Cost(2, ("6",), loads=len(memory), stores=1)
    if mnemonic in ("ret", "retq"):
        return Cost(1, ("6",), loads=1)
    if mnemonic == "jmp":
        return Cost(1, ("6",), loads=len(memory))
    if mnemonic.startswith("j"):
        return Cost(1, (JUMP,))
    if mnemonic == "push":
        return Cost(1, (), stores=1)
    if mnemonic in ("pop", "leave"):
        return Cost(1, (), loads=1)
    base = mnemonic[1:] if mnemonic.startswith("v") and re.search(r"[xyz]mm|\[", text) else mnemonic
    is_vector = bool(re.search(r"[xyz]mm", text))
    if is_vector:
        if base in ("movd", "movq") or re.fullmatch(r"mov([au]p[sd]|dq[au]|[hl]p[sd]|s[sd]|nt\w+)|lddqu", base) and memory:
            if memory == [0]:
                return Cost(1, (), stores=1, vector=0)
            if memory:
                return Cost(1, ("5",) if base in ("movhps", "movhpd") else (SHUFFLE,) if base in ("movlps", "movlpd") else (), loads=1,
                            vector=int(base[:4] in ("movh", "movl")))
            if all("mm" in o for o in operands):
                return Cost(1, (VECTOR,), vector=1)  # movq of two registers clears the upper half
            return Cost(1, ("5",) if "mm" in operands[0] else ("0",), vector=1)
        if re.fullmatch(r"mov([au]p[sd]|dq[au])", base):
            return Cost(1, ())  # renamed away
        if re.fullmatch(r"p?xor(p[sd])?|psub[bwdq]", base) and len(set(operands)) == 1:
            return Cost(1, ())  # zero
        if base.startswith("pinsr"):
            return Cost(1, (SHUFFLE,), loads=1, vector=1) if memory else Cost(2, ("5", SHUFFLE), vector=2)
        if base.startswith("pextr"):
            return Cost(2, ("0", SHUFFLE), stores=int(bool(memory)), vector=2)
        key = base + ("_by_register" if re.fullmatch(r"ps[rl][al][wdq]", base) and "mm" in operands[-1] else "")
        for pattern, ports in PORTS:
            if pattern.match(key) and (pattern.match(key).group() == key or key.endswith("_by_register")):
                ports = list(ports)
                if memory and base.startswith("cvt") and len(ports) > 1 and base != "cvtdq2pd":
                    ports = ports[1:] if base.startswith(("cvtps2pd", "cvtss2sd", "cvtsi2")) else ports
                return Cost(len(ports), tuple(ports), loads=int(bool(memory)), divider=DIVIDER.get(base, 0), vector=len(ports))
        raise Unknown(text)
    if mnemonic.startswith("mov"):
        if memory == [0]:
            return Cost(1, (), stores=1)
        if memory:
            return Cost(1, (), loads=1)
        if re.match(r"mov[sz]|movabs", mnemonic) or not re.match(r"[re]?[a-d]x|r\d|[re]?[sd]i|[re]?[sb]p", operands[1]):
            return Cost(1, (ALU,))
        return Cost(1, ())  # renamed away
    if mnemonic == "xor" and len(set(operands)) == 1:
        return Cost(1, ())
    if mnemonic == "lea":
        return Cost(1, (ALU,))
    if mnemonic in ("shl", "shr", "sar", "sal", "rol", "ror", "bt", "bts", "btr", "shrx", "shlx", "sarx", "rorx") or mnemonic.startswith(("set", "cmov")):
        ports = (SHIFT,)
    elif mnemonic in ("imul", "bsf", "bsr", "tzcnt", "lzcnt", "popcnt", "mul", "mulx", "shld", "shrd"):
        ports = ("1",)
    elif mnemonic in ("idiv", "div"):
        return Cost(4, ("1", "1", "1", "1"), loads=len(memory), divider=6)
    elif mnemonic in ("add", "sub", "and", "or", "xor", "cmp", "test", "inc", "dec", "neg", "not", "adc", "sbb", "cdqe", "cdq", "cqo", "cwde", "andn"):
        ports = (ALU,)
    elif mnemonic in ("movs", "stos", "leave") or mnemonic.startswith(("stos", "movs")):
        return Cost(4, (ALU,), loads=1, stores=1)
    else:
        raise Unknown(text)
    if fused_with_next:
        return Cost(0, (), loads=len(memory))
    changes_memory = memory == [0] and mnemonic not in ("cmp", "test")
    return Cost(2 if changes_memory else 1, ports, loads=len(memory), stores=int(changes_memory))


@functools.lru_cache(maxsize=None)
def code(path):
    """{address: (instruction, its cost or why there is none)}"""
    listing = subprocess.run(["objdump", "-d", "--no-show-raw-insn", "-M", "intel", path], capture_output=True, text=True, check=True).stdout
    lines = [(int(address, 16), text.strip()) for address, text in re.findall(r"^ *([0-9a-f]+):\t(.*)$", listing, re.M)]
    result = {}
    for i, (address, text) in enumerate(lines):
        after = lines[i + 1][1] if i + 1 < len(lines) else ""
        fuses = text.split(" ")[0] in FUSES and re.match(r"j(?!mp)", after) is not None
        try:
            result[address] = (text, cost(re.sub(r" +", " ", text), fuses))
        except Unknown:
            result[address] = (text, None)
    return result


def executed(program, case):
    """{(file, address): how often} of the kernel, and the number of elements."""
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "counts")
        run = subprocess.run(["valgrind", "-q", "--tool=callgrind", "--dump-instr=yes", "--collect-atstart=no", "--toggle-collect=utils_sse_counted_call",
                              "--compress-strings=no", "--compress-pos=no", f"--callgrind-out-file={out}", program, "--once", case],
                             capture_output=True, text=True)
        if run.returncode != 0:
            sys.exit(f"counted.py: '{case}' under valgrind: exit code {run.returncode}\n{run.stderr}")
        counts, file, called = collections.Counter(), None, False
        with open(out) as lines:
            for line in lines:
                if line.startswith("ob="):
                    file = line[3:].strip()
                elif line.startswith("calls="):
                    called = True  # the next line has what the called function took
                elif line.startswith("0x"):
                    if not called and re.search(r"/lib(utils_sse|m|c)[.-]", file):
                        address, *_, count = line.split()
                        counts[file, int(address, 16)] += int(count)
                    called = False
        return counts, float(run.stdout)


Counted = collections.namedtuple("Counted", "vector loads stores issued limit bound own")


def count(program, case, addition):
    """What the case takes for each element."""
    counts, elements = executed(program, case)
    total = collections.Counter()
    ports = collections.Counter()
    unknown = collections.Counter()
    for (file, address), times in counts.items():
        text, c = code(file).get(address, ("(not in the file)", None))
        if c is None:
            unknown[text] += times
            c = Cost()
        for name in ("issued", "loads", "stores", "divider", "vector"):
            total[name] += getattr(c, name) * times
        for p in c.ports:
            ports["".join(sorted(p))] += times
        if "libutils_sse" in file:
            total["own"] += c.issued * times
    if sum(unknown.values()) > 0.005 * total["issued"]:
        print(f"counted.py: {case}: not known: {dict(unknown.most_common(5))}", file=sys.stderr)
    limits = {"issue": total["issued"] / ISSUE, "loads": total["loads"] / LOADS, "stores": total["stores"] / STORES, "divisions": total["divider"]}
    for size in range(1, 6):
        for some in combinations("015" + "6A", size):
            inside = sum(n for p, n in ports.items() if set(p) <= set(some))
            if inside:
                limits["port" + "s" * (size > 1) + " " + " ".join(some).replace("A", "10")] = inside / size
    if case in CHAINS:
        limits["chain of additions"] = CHAINS[case] * addition * elements
    bound = max(limits, key=lambda name: (round(limits[name], 3), -len(name)))
    return Counted(*(total[name] / elements for name in ("vector", "loads", "stores", "issued")), limits[bound] / elements, bound,
                   total["own"] / total["issued"])


def show(program, case):
    counts, elements = executed(program, case)
    last = None
    for (file, address), times in sorted(counts.items()):
        if last and (file != last[0] or address > last[1] + 64):
            print()
        text, c = code(file)[address]
        ports = "?" if c is None else " ".join(c.ports) + (" load" if c.loads else "") + (" store" if c.stores else "")
        print(f"{os.path.basename(file)} {address:8x} {times / elements:10.4f}  {text:60} {ports}")
        last = (file, address)


def figure(x):
    return f"{x:,.0f}" if x >= 100 else f"{x:.1f}" if x >= 10 else f"{x:.2f}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("times", nargs="?")
    parser.add_argument("document", nargs="?")
    parser.add_argument("--show", metavar="CASE")
    arguments = parser.parse_args()
    for tool in ("valgrind", "objdump"):
        if not shutil.which(tool):
            sys.exit(f"counted.py: {tool} is not installed")
    if arguments.show:
        return show(arguments.program, arguments.show)
    with open(arguments.times) as file:
        result = json.load(file)
    times, elements = {}, {}
    for run in result["benchmarks"]:
        if run["run_type"] == "iteration":
            name = run["name"].rsplit("/L1", 1)[0]
            times.setdefault(name, []).append(run["cpu_time"] / run["elements"])
    clock = min(times.pop("(clock)"))
    addition = min(times.pop("(float addition)")) / clock
    order = subprocess.run([arguments.program, "--benchmark_list_tests"], capture_output=True, text=True, check=True).stdout
    cases = [name for name in (line.rsplit("/L1", 1)[0] for line in order.splitlines()) if name in times and KERNELS.match(name)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        counted = dict(zip(cases, pool.map(lambda case: count(arguments.program, case, addition), cases)))
    lines = [f"Clock {1 / clock:.2f} GHz, an addition of floats {addition:.1f} cycles after the one before. Figures for one element.", "",
             "| kernel | vector | loads | stores | all | limit, cycles | by | measured | ratio |", "|---|---:|---:|---:|---:|---:|---|---:|---:|"]
    for case in cases:
        c, cycles = counted[case], min(times[case]) / clock
        lines.append(f"| {case} | " + " | ".join(figure(x) for x in (c.vector, c.loads, c.stores, c.issued, c.limit)) +
                     f" | {c.bound} | {figure(cycles)} | {cycles / c.limit:.2f} |")
    if not arguments.document:
        print("\n".join(lines))
        return None
    with open(arguments.document) as file:
        text = file.read()
    begin, end = "<!-- begin: counted -->", "<!-- end: counted -->"
    if begin not in text or end not in text:
        sys.exit(f"{arguments.document}: the lines '{begin}' and '{end}' are expected")
    head, rest = text.split(begin, 1)
    with open(arguments.document, "w") as file:
        file.write(head + begin + "\n" + "\n".join(lines) + "\n" + end + rest.split(end, 1)[1])
    return None


if __name__ == "__main__":
    main()
