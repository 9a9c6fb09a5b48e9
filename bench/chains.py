#!/usr/bin/env python3
"""The chains of utils_sse_chains as they are written with NumPy and SciPy.

usage: chains.py INPUTS RESULT.json [--repetitions N] [--seconds S] [--only TEXT]

INPUTS is what `utils_sse_chains --inputs INPUTS` wrote: the same echoes, and the library's pictures. Every picture made here is
compared with the library's before it is timed; a chain that is off by more than stated ends the run. Matrix products run on one
thread; two threads work on a half of the lines each.
"""
import argparse
import concurrent.futures
import json
import os
import random
import sys
import time

for variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS"):
    os.environ[variable] = "1"  # read when NumPy is loaded

import numpy
import scipy
import scipy.fft
import scipy.ndimage
import scipy.signal

FILL = 255


class Frame:
    """The inputs of a chain, and the library's picture of them."""

    def __init__(self, folder, name):
        self.read = lambda array: numpy.load(os.path.join(folder, f"{name}-{array}.npy"))
        self.picture = self.read("picture")
        self.numbers = self.read("numbers")


class Stages:
    """Adds up the seconds between its calls."""

    def __init__(self):
        self.seconds = {}

    def start(self):
        self.before = time.perf_counter()

    def done(self, name):
        now = time.perf_counter()
        self.seconds[name] = self.seconds.get(name, 0) + now - self.before
        self.before = now


# --- RF to grey ---


def pixels_of(grey):
    packed = numpy.empty(grey.shape + (4,), numpy.uint8)
    packed[..., :3] = grey[..., None]
    packed[..., 3] = FILL
    return packed


def compressed(envelope, reference, dynamic_range):
    with numpy.errstate(divide="ignore"):
        grey = 20 * numpy.log10(envelope * numpy.float32(1 / reference))
    grey *= numpy.float32(255 / dynamic_range)
    grey += 255
    return numpy.rint(numpy.clip(grey, 0, 255, out=grey), out=grey).astype(numpy.uint8)


def rf_chain(detect):
    def make(frame, rows):
        rf = frame.read("rf")[rows]
        taps = frame.read("taps") / 32768
        carrier, reference, dynamic_range = frame.numbers
        envelope_of = detect(rf, taps, carrier)

        def run(stages):
            stages.start()
            envelope = envelope_of()
            stages.done("mixing and envelope")
            grey = compressed(envelope, reference, dynamic_range)
            stages.done("compression")
            grey = scipy.signal.medfilt2d(grey, 3)  # faster than ndimage.median_filter
            stages.done("median 3x3")
            packed = pixels_of(grey)
            stages.done("pixels")
            return packed[1:-1, 1:-1]

        return run

    return make


def mixing(rf, taps, carrier):
    """Mixing and a low-pass that computes every fourth output alone (polyphase)."""
    count = (rf.shape[1] - len(taps)) // 4 + 1
    wave = (32767 / 32768 * numpy.exp(-1j * carrier * numpy.arange(rf.shape[1]))).astype(numpy.complex64)
    mixed = numpy.zeros((rf.shape[0], rf.shape[1] + 1), numpy.complex64)  # a zero in front: windows begin where the library's do
    reversed_taps = taps[::-1].astype(numpy.float32)

    def envelope():
        numpy.multiply(rf, wave, out=mixed[:, 1:])
        return numpy.abs(scipy.signal.upfirdn(reversed_taps, mixed, down=4, axis=1)[:, len(taps) // 4 : len(taps) // 4 + count])

    return envelope


def analytic(rf, taps, carrier):
    """The magnitude of the analytic signal in the middle of the library's windows. It has no low-pass, so it sees all noise."""
    count = (rf.shape[1] - len(taps)) // 4 + 1
    length = scipy.fft.next_fast_len(rf.shape[1])
    first = len(taps) // 2

    def envelope():
        signal = scipy.signal.hilbert(rf.astype(numpy.float32), N=length, axis=1)
        return numpy.abs(signal[:, first : first + 4 * count : 4]) * numpy.float32(0.5)

    return envelope


# --- ensembles to colour ---


def colour(frame, rows):
    i, q = (frame.read(name)[rows] for name in "iq")
    lines, samples, firings = i.shape
    i, q = i.reshape(-1, firings), q.reshape(-1, firings)
    matrix = frame.read("matrix")
    palette = numpy.empty((65536, 4), numpy.uint8)
    for channel, name in enumerate(("blue", "green", "red")):
        palette[:, channel] = frame.read(name)
    palette[:, 3] = FILL
    least_power, steps, mixed, fastest = frame.numbers
    least_r0 = firings * (10 ** (least_power / 10) - 1)
    numbers = numpy.arange(firings, dtype=numpy.float32)

    def dot(a, b):
        return numpy.einsum("pk,pk->p", a, b)

    def lag_one(a, b):
        real = dot(a[:, :-1], a[:, 1:]) + dot(b[:, :-1], b[:, 1:])
        return real, dot(a[:, :-1], b[:, 1:]) - dot(b[:, :-1], a[:, 1:])

    def run(stages):
        stages.start()
        a, b = i.astype(numpy.float32), q.astype(numpy.float32)
        stages.done("floats")
        if mixed:
            around = [scipy.ndimage.uniform_filter(part.reshape(lines, samples), (5, 9), mode="constant") for part in lag_one(a, b)]
            clutter = numpy.arctan2(around[1], around[0])
            clutter[numpy.abs(clutter) > fastest] = 0
            angle = clutter.reshape(-1, 1) * numbers
            cosine, sine = numpy.cos(angle), numpy.sin(angle)
            a, b = cosine * a + sine * b, cosine * b - sine * a
            stages.done("mixing")
        a, b = a @ matrix.T, b @ matrix.T
        if mixed:
            a, b = cosine * a - sine * b, cosine * b + sine * a
        stages.done("clutter filter")
        real, imaginary = lag_one(a, b)
        power = dot(a, a) + dot(b, b)
        stages.done("autocorrelation")
        index = numpy.rint(numpy.arctan2(imaginary, real) * numpy.float32(steps)).astype(numpy.int16)
        index[power < least_r0] = 0
        packed = palette[index.view(numpy.uint16)]
        stages.done("phase to pixels")
        return packed

    return run


# --- cine filter ---


def cine_chain(median_of_five):
    def make(frame, rows):
        frames = numpy.ascontiguousarray(frame.read("frames")[:, rows])
        shown_weight = int(frame.numbers[0])
        state = {"frame": 0, "shown": numpy.zeros(frames.shape[1:], numpy.uint16)}

        def run(stages):
            stages.start()
            last = [frames[(state["frame"] + k - 4) % len(frames)] for k in range(5)]
            state["frame"] += 1
            median = median_of_five(last)
            stages.done("median of five")
            shown = state["shown"]
            shown *= numpy.uint16(shown_weight)
            shown += median.astype(numpy.uint16) * numpy.uint16(16 - shown_weight)
            shown >>= 4
            stages.done("persistence")
            result = scipy.signal.medfilt2d(shown.astype(numpy.uint8), 3)
            stages.done("median 3x3")
            return result[1:-1, 1:-1]

        return run

    return make


def by_median(frames):
    return numpy.median(frames, axis=0).astype(numpy.uint8)


def by_minima(frames):
    a, b, c, d, e = frames
    low = numpy.maximum(numpy.minimum(a, b), numpy.minimum(c, d))
    high = numpy.minimum(numpy.maximum(a, b), numpy.maximum(c, d))
    return numpy.maximum(numpy.minimum(low, high), numpy.minimum(numpy.maximum(low, high), e))


# --- comparison and measurement ---


def same_picture(levels, share):
    """All bytes within so many levels, but for a share."""

    def agrees(expected, found):
        off = numpy.abs(expected.astype(int) - found.astype(int))
        beyond = numpy.mean(off > levels)
        return beyond <= share, f"{100 * beyond:.2g} % of the bytes off by more than {levels}"

    return agrees


def alike(least):
    """Grey pictures that correlate; the fourth byte of a pixel carries nothing."""

    def agrees(expected, found):
        grey = [picture.reshape(-1, 4)[:, 0].astype(float) for picture in (expected, found)]
        correlation = numpy.corrcoef(grey)[0, 1]
        return correlation >= least, f"pictures correlate by {correlation:.4f}"

    return agrees


RF = [("SciPy, mixing", rf_chain(mixing), same_picture(3, 0.001), 1), ("SciPy, analytic signal", rf_chain(analytic), alike(0.95), 1)]
CINE = [("NumPy, SciPy", cine_chain(by_median), same_picture(0, 0), 1),
        ("NumPy, SciPy, median by minima", cine_chain(by_minima), same_picture(0, 0), 1)]
# Name, files, candidates: name, maker, comparison, lines that a thread needs of the other's.
CHAINS = [
    ("RF to grey, 256 x 1,552", "rf256", RF),
    ("RF to grey, 192 x 3,120", "rf192", RF),
    ("Colour, 100,000 ensembles of 12", "colour100k", [("NumPy", colour, same_picture(4, 0.01), 0)]),
    ("Colour, 200 x 800, ensembles of 12", "colour200", [("NumPy", colour, same_picture(4, 0.01), 0)]),
    ("Colour, 200 x 800, ensembles of 12, clutter mixed to rest", "mixed200", [("NumPy, SciPy", colour, same_picture(4, 0.03), 2)]),
    ("Colour, 88 x 510, ensembles of 16", "colour88", [("NumPy", colour, same_picture(4, 0.01), 0)]),
    ("Cine filter, 512 x 512", "cine", CINE),
]
COMPARED_FRAMES = 9  # as in utils_sse_chains


def lines_of(frame, name):
    array = "rf" if name.startswith("rf") else "frames" if name == "cine" else "i"
    shape = frame.read(array).shape
    return shape[1] if array == "frames" else shape[0]


class Candidate:
    def __init__(self, chain, files, frame, name, maker, agrees, overlap):
        self.chain, self.name = chain, name
        whole = maker(frame, slice(None))
        for _ in range(COMPARED_FRAMES if files == "cine" else 1):
            picture = whole(Stages())
        right, self.difference = agrees(frame.picture, numpy.ravel(picture))
        if not right:
            sys.exit(f"chains.py: '{chain}' by {name}: {self.difference}; that is not the library's picture")
        lines = lines_of(frame, files)
        self.whole = whole
        self.halves = [maker(frame, slice(0, lines // 2 + overlap)), maker(frame, slice(lines // 2 - overlap, lines))]
        self.stages, self.one_core, self.two_threads, self.frames = Stages(), [], [], 0

    def measure(self, seconds, pool):
        start = time.perf_counter()
        self.whole(Stages())
        count = max(1, int(seconds / (time.perf_counter() - start)))
        start = time.process_time()  # as in utils_sse_chains: of the processor on one core, wall clock on two threads
        for _ in range(count):
            self.whole(self.stages)
        self.one_core.append((time.process_time() - start) / count)
        self.frames += count
        start = time.perf_counter()
        for _ in range(count):
            list(pool.map(lambda half: half(Stages()), self.halves))
        self.two_threads.append((time.perf_counter() - start) / count)

    def result(self):
        names = list(self.stages.seconds)
        return {"chain": self.chain, "candidate": self.name, "difference": self.difference, "stages": names,
                "seconds_of_stages": [self.stages.seconds[name] / self.frames for name in names],
                "one_core": self.one_core, "two_threads": self.two_threads}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("inputs")
    parser.add_argument("result")
    parser.add_argument("--repetitions", type=int, default=7)
    parser.add_argument("--seconds", type=float, default=0.1)
    parser.add_argument("--only", default="")
    arguments = parser.parse_args()
    results = []
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for chain, files, rows in CHAINS:
            if arguments.only not in chain:
                continue
            frame = Frame(arguments.inputs, files)
            candidates = [Candidate(chain, files, frame, *row) for row in rows]
            for _ in range(arguments.repetitions):
                for candidate in random.sample(candidates, len(candidates)):
                    candidate.measure(arguments.seconds, pool)
            results += [candidate.result() for candidate in candidates]
            print(chain)
            for candidate in candidates:
                rates = [1 / sorted(times)[len(times) // 2] for times in (candidate.one_core, candidate.two_threads)]
                print(f"  {candidate.name:31} {rates[0]:8.1f} frames per s, on two threads {rates[1]:8.1f}; {candidate.difference}", flush=True)
    with open(arguments.result, "w") as file:
        json.dump({"numpy": numpy.__version__, "scipy": scipy.__version__, "python": sys.version.split()[0], "chains": results}, file, indent=1)


if __name__ == "__main__":
    main()
