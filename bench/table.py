#!/usr/bin/env python3
"""Turns the JSON of utils_sse_bench, utils_sse_tasks, utils_sse_chains and chains.py into the tables of docs/performance.md.

usage: table.py docs/performance.md [RESULT.json...] [--tasks TASKS.json] [--chains CHAINS.json...] [--readme README.md]

Replaces what stands between the lines `<!-- begin: measured -->` and `<!-- end: measured -->`, with tasks and chains also
between those that say `tasks` and `chains`. Times are medians of processor time over the repetitions of one interleaved run; ratios are time of the
competitor over time of utils_sse.
"""
import argparse
import json
import os
import platform
import re
import statistics
import subprocess
import sys

SIZES = ["1", "7", "23", "64", "128", "L1", "L2", "memory"]
COMPETITORS = ["gcc", "clang"]  # at the same instruction set
NATIVE = ["gcc_native", "clang_native"]  # with everything the machine has
WIDER = ["v3", "v4"]  # builds of the library
# Bound by a chain of dependent additions whose order is the contract.
ORDERED_SUMS = ("SumFloats", "FDotProduct", "Envelope", "EnvelopeSum", "DotProduct", "ColorLowPass", "SumAbsDiff (floats)")
PLAIN = ["gcc", "clang", "gcc_native", "clang_native"]  # of the tasks
# Of the README: one task of each kind.
SUMMARY = ["RF to envelope, 192 x 3,120 samples, 32 taps, decimation 4", "RF lines times four, 192 x 3,120", "Median 3x3 of bytes, 512 x 512",
           "Median 5x5 of bytes, 512 x 512", "Persistence, 12 and 4 sixteenths, 512 x 512", "Transposition, 512 x 512",
           "Autocorrelation, 100,000 ensembles of 12", "Clutter filter, 100,000 ensembles of 12", "Fine search of a 33 x 32 block, 121 candidates",
           "NormalizedCovariance of 2,048 samples"]
NONE = "–"  # for sizes that an operation does not come near, or where it would compute for seconds
NOISE = 0.95  # a ratio above this is not called a loss


def read(paths, parts=2):
    """{(operation, size): {candidate: median time}}, {(operation, size): the library's run}, context, median spread,
    {(loop, size, width): bytes per nanosecond}"""
    results = []
    for path in paths:
        with open(path) as file:
            results.append(json.load(file))
    times, counters, bytes_of = {}, {}, {}
    for run in (run for result in results for run in result["benchmarks"]):
        if run["run_type"] != "iteration":
            continue
        *key, candidate = run["name"].rsplit("/", parts)
        times.setdefault(tuple(key), {}).setdefault(candidate, []).append(run["cpu_time"])
        if candidate == "utils_sse":
            counters[tuple(key)] = run
        elif run["name"].startswith("("):
            bytes_of[tuple(key)] = run["bytes"]
    bandwidth = {}
    for (loop, size), group in ((key, group) for key, group in times.items() if key[0].startswith("(") and len(key) == 2):
        for width, t in group.items():
            bandwidth[loop.strip("()"), size, width] = bytes_of[loop, size] / statistics.median(t)
    times = {key: group for key, group in times.items() if "utils_sse" in group}
    medians = {key: {name: statistics.median(t) for name, t in group.items()} for key, group in times.items()}
    spread = statistics.median((max(t) - min(t)) / statistics.median(t) / 2 for group in times.values() for t in group.values())
    return medians, counters, results[0]["context"], spread, bandwidth


def operations_of(medians):
    return list(dict.fromkeys(operation for operation, _ in sorted(medians, key=lambda key: order.index(key[0]))))


def ratio_text(ratio):
    text = f"{ratio:.2f}" if ratio < 10 else f"{ratio:.0f}"
    return f"**{text}**" if ratio < NOISE else text


def ratios(group, names):
    if not any(name in group for name in names):
        return NONE
    return " / ".join(ratio_text(group[name] / group["utils_sse"]) if name in group else NONE for name in names)


def relative(group, name):
    return f"{group[name] / group['utils_sse']:.2f}" if group and name in group else NONE


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "|".join(["---"] + ["---:"] * (len(header) - 1)) + "|"]
    return lines + ["| " + " | ".join(row) + " |" for row in rows]


def compiler(command):
    try:
        return subprocess.run([command, "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    except (OSError, subprocess.CalledProcessError):
        return None


def processor():
    try:
        with open("/proc/cpuinfo") as file:
            return re.search(r"model name\s*: (.*)", file.read()).group(1)
    except (OSError, AttributeError):
        return platform.processor()


def best(group, names):
    times = [group[name] for name in names if name in group]
    return min(times) if times else None


def picked(group):
    """The build that the loader takes on this machine."""
    return next((group[name] for name in reversed(WIDER) if name in group), group["utils_sse"])


def lost_rows(medians, names, own):
    """{row: ratio} of the rows where the best of the names (a function of the row's candidates) is there; and of those the lost ones."""
    ratios = {key: best(group, names(group)) / own(group) for key, group in medians.items() if best(group, names(group))}
    return ratios, {key: ratio for key, ratio in ratios.items() if ratio < NOISE}


def counts_text(ratios, lost):
    return f"ahead or level in {len(ratios) - len(lost)} of {len(ratios)} rows ({100 * (len(ratios) - len(lost)) / max(1, len(ratios)):.1f} %)"


def lost_text(lost, operations):
    """Lost rows (operation, size) in the order of the operations."""
    by_operation = {}
    for (operation, size), ratio in sorted(lost.items(), key=lambda item: (operations.index(item[0][0]), SIZES.index(item[0][1]) if item[0][1] in SIZES else 0)):
        by_operation.setdefault(operation, []).append(f"{size} ({ratio:.2f})")
    return "; ".join(f"{operation} at {', '.join(sizes)}" for operation, sizes in by_operation.items()) or "none"


def is_ordered_sum(operation):
    return operation in ORDERED_SUMS or operation.split(" (")[0] in ORDERED_SUMS


def measured(medians, counters, context, spread, bandwidth, operations, own_sizes):
    caches = ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KB" for c in context["caches"] if c["type"] != "Instruction")
    compilers = "; ".join(c for c in (compiler("g++"), compiler("clang++")) if c)
    widest = next((name for name in reversed(WIDER) if any(name in group for group in medians.values())), None)
    lines = [
        f"Machine: {processor()}, {caches}; {compilers}; {context['date'][:10]}. Median half-spread of a candidate's",
        f"repetitions: {100 * spread:.0f} %. A row is one operation at one size; a ratio of {NOISE} and more counts as not lost.",
        "",
    ]
    everything = operations + own_sizes
    ratios_of, lost = lost_rows(medians, lambda group: COMPETITORS, lambda group: group["utils_sse"])
    lines += [f"- The standard build (128 bits, SSE2) against the better plain loop for SSE4.1: {counts_text(ratios_of, lost)}.", f"  Lost: {lost_text(lost, everything)}."]
    if widest:
        ratios_of, lost = lost_rows(medians, lambda group: NATIVE + COMPETITORS, picked)
        without_sums = [{key: ratio for key, ratio in rows.items() if not is_ordered_sum(key[0])} for rows in (ratios_of, lost)]
        sums = {key: ratio for key, ratio in lost.items() if is_ordered_sum(key[0])}
        lines += [f"- The build that the loader picks here (x86-64-{widest}) against the best plain loop of any width (`-march=native`): {counts_text(ratios_of, lost)};",
                  f"  without sums of floats, whose order is the contract, {counts_text(*without_sums)}.",
                  f"  Lost: {lost_text(without_sums[1], everything)}. Lost by ordered sums: {lost_text(sums, everything)}."]
    lines += [
        "",
        "### Plain loop over the standard build",
        "",
        f"Time of the plain loop ({' / '.join(COMPETITORS)}, `-O3 -msse4.1 -fno-math-errno`) divided by the time of the kernel; rows below 1 are lost.",
        "",
    ]
    lines += table(["operation"] + SIZES, [[operation] + [ratios(medians.get((operation, size), {}), COMPETITORS) for size in SIZES] for operation in operations])
    own = {operation: sorted((size for o, size in medians if o == operation), key=int) for operation in own_sizes}
    names = [name for name in COMPETITORS + NATIVE + WIDER if any(name in group for group in medians.values())]
    lines += [""] + table(["operation", "length"] + names + ["nanoseconds"], [
        [operation, size] + [ratio_text(medians[operation, size][name] / medians[operation, size]["utils_sse"]) for name in names] +
        [f"{medians[operation, size]['utils_sse']:.1f}"] for operation in own for size in own[operation]]) if own else []
    if widest:
        lines += ["", "### Wider builds", "", f"Time of the standard build divided by that of the builds for x86-64-v3 (256 bits) / x86-64-v4 (512 bits).", ""]
        gains = lambda group: " / ".join(f"{group['utils_sse'] / group[name]:.2f}" if name in group else NONE for name in WIDER) if group else NONE
        lines += table(["operation"] + SIZES, [[operation] + [gains(medians.get((operation, size))) for size in SIZES] for operation in operations])
        lines += ["", "### Plain loop for this machine over the build that the loader picks", "",
                  f"Time of the plain loop ({' / '.join(NATIVE)}: `-O3 -march=native`, 512 bits where the compiler likes) divided by that of x86-64-{widest}.", ""]
        cell = lambda group: " / ".join(ratio_text(group[name] / picked(group)) if name in group else NONE for name in NATIVE) if group else NONE
        lines += table(["operation"] + SIZES, [[operation] + [cell(medians.get((operation, size))) for size in SIZES] for operation in operations])
    lines += ["", "### Absolute figures and bandwidth", "", "Nanoseconds per call at short lengths; nanoseconds per element beyond, and gigabytes per second (each byte read or written counted once) with",
              "their share of what a loop that only copies (of kernels that only read: reads) reaches with 128-bit registers in the same run.", ""]
    if bandwidth:
        lines += table(["bytes per nanosecond", "L1", "L2", "memory"], [
            [f"{loop}, {width} bits"] + [f"{bandwidth[loop, size, width]:.0f}" if (loop, size, width) in bandwidth else NONE for size in ("L1", "L2", "memory")]
            for loop in ("read", "write", "copy") for width in ("128", "256", "512") if (loop, "L1", width) in bandwidth]) + [""]
    rows = []
    for operation in operations:
        row = [operation]
        for size in SIZES:
            if (operation, size) not in medians:
                row.append(NONE)
                continue
            time, run = medians[operation, size]["utils_sse"], counters[operation, size]
            limit = bandwidth.get(("copy" if run.get("writes", 1) else "read", size, "128"))
            share = f"; {100 * run['bytes'] / time / limit:.0f} %" if limit else ""
            row.append(f"{time:.1f}" if size.isdigit() else f"{time / run['elements']:.3f}; {run['bytes'] / time:.1f}{share}")
        rows.append(row)
    lines += table(["operation"] + SIZES, rows)
    other = next((name for name in ("with_prefetch", "without_prefetch") if any(name in g for g in medians.values())), None)
    if other:
        lines += ["", f"### Prefetch", "", f"Time {other.replace('_', ' ')} divided by the time of the library as it is built by default.", ""]
        lines += table(["operation"] + SIZES, [[operation] + [relative(medians.get((operation, size)), other) for size in SIZES] for operation in operations])
    return lines


def others_of(group):
    """Other libraries, which choose their code by the processor; what stands in parentheses is a yardstick and not the same work."""
    return [name for name in group if name not in PLAIN + WIDER + ["utils_sse"] and not name.startswith("(")]


def task_tables(path):
    """Whole pieces of work: plain loops for SSE4.1 over the standard build, everybody else over the build that the loader picks."""
    medians, counters, _, spread, _ = read([path], parts=1)
    rows = []
    for task, group in sorted(medians.items(), key=lambda item: counters[item[0]]["family_index"]):
        own, run = group["utils_sse"], counters[task]
        unit = lambda time: run["units"] * 1e6 / time
        over_picked = lambda names: [f"{name} {ratio_text(group[name] / picked(group))}" for name in names]
        yardsticks = [name for name in group if name.startswith("(")]
        rows.append([task[0], f"{1e9 / unit(own):,.{0 if unit(own) <= 1e7 else 1}f}", f"{unit(own):,.0f} {run['label']}s", f"{unit(picked(group)):,.0f}",
                     " / ".join(f"{own / group[name]:.2f}" for name in WIDER if name in group),
                     " / ".join(ratio_text(group[name] / own) for name in PLAIN[:2] if name in group),
                     " / ".join(ratio_text(group[name] / picked(group)) for name in PLAIN[2:] if name in group),
                     ", ".join(over_picked(others_of(group) + yardsticks))])
    header = ["task", "ns per unit", "per second", "per second, loader's pick", "v3 / v4", "plain, SSE4.1", "plain, this machine", "other libraries"]
    standard = lost_rows(medians, lambda group: PLAIN[:2], lambda group: group["utils_sse"])
    wide = lost_rows(medians, lambda group: PLAIN + others_of(group), picked)
    names = lambda lost: "; ".join(f"{task} ({ratio:.2f})" for (task,), ratio in lost.items()) or "none"
    return [f"Median half-spread of a contender's repetitions: {100 * spread:.0f} %.", "",
            f"- The standard build against the better plain loop for SSE4.1: {counts_text(*standard)}. Lost: {names(standard[1])}.",
            f"- The build that the loader picks here against every plain loop and library: {counts_text(*wide)}. Lost: {names(wide[1])}.",
            ""] + table(header, rows)


def summary(path):
    """A small table for the README."""
    medians, counters, _, _, _ = read([path], parts=1)
    rows = []
    for task in SUMMARY:
        group, run = medians[task,], counters[task,]
        ratio = lambda names, own: ratio_text(best(group, names) / own) if best(group, names) else ""
        peer = min(others_of(group), key=group.get, default=None)
        rows.append([task, f"{run['units'] * 1e6 / group['utils_sse']:,.0f} {run['label']}s", f"{run['units'] * 1e6 / picked(group):,.0f}",
                     ratio(PLAIN[:2], group["utils_sse"]), ratio(PLAIN, picked(group)),
                     f"{peer} {ratio_text(group[peer] / picked(group))}" if peer else ""])
    return table(["", "per second, 128 bits", "loader's pick", "best plain loop, SSE4.1", "best plain loop, any width", "other library"], rows)


def rate(times):
    value = 1 / statistics.median(times)
    return f"{value:,.0f}" if value >= 100 else f"{value:.1f}"


def shares(run):
    total = sum(run["seconds_of_stages"])
    return ", ".join(f"{name} {100 * seconds / total:.0f} %" for name, seconds in zip(run["stages"], run["seconds_of_stages"]))


def chain_tables(paths):
    """Whole chains: frames per second, shares of the stages, and how the pictures of others differ."""
    results = []
    for path in paths:
        with open(path) as file:
            results.append(json.load(file))
    chains = {}
    for run in (run for result in results for run in result["chains"]):
        chains.setdefault(run["chain"], {})[run["candidate"]] = run
    versions = {name: result[name] for result in results for name in ("opencv", "python", "numpy", "scipy") if result.get(name)}
    printed = {"opencv": "OpenCV", "python": "Python", "numpy": "NumPy", "scipy": "SciPy"}
    all_runs = [run for group in chains.values() for run in group.values()]
    spread = lambda key: 100 * statistics.median((max(run[key]) - min(run[key])) / statistics.median(run[key]) / 2 for run in all_runs)
    python = lambda group: [name for name in group if name.startswith(("NumPy", "SciPy"))]
    own = ["utils_sse", "v3", "v4"]

    def cell(group, names, compared=True):
        there = [name for name in names if name in group]
        if not there:
            return NONE
        best = group[min(there, key=lambda name: statistics.median(group[name]["one_core"]))]
        text = f"{rate(best['one_core'])} / {rate(best['two_threads'])}"
        ratio = statistics.median(best["one_core"]) / statistics.median(group["utils_sse"]["one_core"])
        if not compared:
            return text
        return f"{text} ({f'{ratio:.2f}' if best['candidate'] in own else ratio_text(ratio)})" # a build of ours that is faster is no loss

    lines = [
        f"Machine: {processor()}; {'; '.join(c for c in (compiler('g++'), compiler('clang++')) if c)}; "
        f"{', '.join(f'{printed[name]} {version}' for name, version in versions.items())}. Median half-spread of the repetitions: "
        f"{spread('one_core'):.0f} % on one core, {spread('two_threads'):.0f} % on two threads.",
        "",
        "Frames per second on one core (processor time) / on two threads (wall clock); in parentheses the time on one core over that of `utils_sse`. Of several candidates in a column the fastest.",
        "",
    ]
    lines += table(["chain", *own, "plain, SSE4.1", "plain, this machine", "OpenCV", "NumPy and SciPy"], [
        [name, cell(group, own[:1], False), cell(group, own[1:2]), cell(group, own[2:]), cell(group, PLAIN[:2]), cell(group, PLAIN[2:]),
         cell(group, ["OpenCV"]), cell(group, python(group))] for name, group in chains.items()])
    lines += ["", "Where the time goes, on one core:", ""]
    lines += table(["chain", "candidate", "milliseconds", "stages"], [
        [name, candidate, f"{1e3 * statistics.median(group[candidate]['one_core']):.2f}", shares(group[candidate])]
        for name, group in chains.items() for candidate in ("utils_sse", "OpenCV", *python(group)) if candidate in group])
    lines += ["", "Pictures that are not the library's bit for bit:", ""]
    lines += table(["chain", "candidate", "difference"], [
        [name, candidate, run.get("difference") or f"{100 * run['differing']:.2g} % of the bytes differ, most by {run['levels']} levels at most"]
        for name, group in chains.items() for candidate, run in group.items() if run.get("difference") or run["differing"] > 0])
    return lines


def replace_between(path, begin, end, lines):
    with open(path) as file:
        text = file.read()
    if begin not in text or end not in text:
        sys.exit(f"{path}: the lines '{begin}' and '{end}' are expected")
    head, rest = text.split(begin, 1)
    with open(path, "w") as file:
        file.write(head + begin + "\n" + "\n".join(lines) + "\n" + end + rest.split(end, 1)[1])


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("document")
    parser.add_argument("results", nargs="*")
    parser.add_argument("--tasks")
    parser.add_argument("--chains", nargs="+")
    parser.add_argument("--readme")
    arguments = parser.parse_args()
    if arguments.results:
        medians, counters, context, spread, bandwidth = read(arguments.results)
        with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../operations/table.inc")) as file:
            order = [name + (f" ({overload})" if overload else "") for name, overload in re.findall(r'^OPERATION\((\w+), "([^"]*)"', file.read(), re.M)]
        # Operations that work with few lengths are timed with those and have a table of their own.
        own_sizes = [operation for operation in operations_of(medians) if not any((operation, size) in medians for size in ("L1", "L2"))]
        operations = [operation for operation in operations_of(medians) if operation not in own_sizes]
        SIZES = [size for size in SIZES if any((operation, size) in medians for operation in operations)]
        replace_between(arguments.document, "<!-- begin: measured -->", "<!-- end: measured -->", measured(medians, counters, context, spread, bandwidth, operations, own_sizes))
    if arguments.tasks:
        replace_between(arguments.document, "<!-- begin: tasks -->", "<!-- end: tasks -->", task_tables(arguments.tasks))
    if arguments.chains:
        replace_between(arguments.document, "<!-- begin: chains -->", "<!-- end: chains -->", chain_tables(arguments.chains))
    if arguments.tasks and arguments.readme:
        replace_between(arguments.readme, "<!-- begin: speed -->", "<!-- end: speed -->", summary(arguments.tasks))
