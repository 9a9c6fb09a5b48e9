// Envelope of one output: weighted sums of float arrays and their magnitude. The order of the additions is the contract, so
// the sums are bound by their chains of additions; the chains of two or three signals run side by side.
#include "envelope/detection.h"
#include "simd/loops.h"
#include "utils_sse.h"

using namespace detection;
using namespace simd;

namespace {

template <int Signals, class... Streams>
UTILS_SSE_INLINE float envelope_of_sums(const float* const (&x)[Signals], const float* w, int n, Streams... streams)
{
    f32 lanes[Signals];
    repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA { lanes[s] = broadcast<f32>(0.0f); });
    const Rest rest = read_blocks<4, 4>(
        n,
        [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
            const f32 weight = load<f32>(w + i);
            repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA { lanes[s] = lanes[s] + load<f32>(x[s] + i) * weight; });
        },
        streams...);

    // The tail is summed on its own and joins lane 0 before the fold.
    float sum[Signals] = {};
    for_up_to_three(rest, [&](std::ptrdiff_t i) UTILS_SSE_LAMBDA {
        repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA { sum[s] = sum[s] + x[s][i] * w[i]; });
    });
    repeat<Signals>([&](auto s) UTILS_SSE_LAMBDA { sum[s] = fold(add_to_lane_0(lanes[s], sum[s])); });
    return envelope(sum);
}

} // namespace

float CUtils_SSE::Envelope(const float* inI, const float* inQ, const float* w, int n)
{
    return envelope_of_sums({inI, inQ}, w, n, ahead<64>(inI), ahead<64>(inQ), ahead<64>(w));
}

float CUtils_SSE::EnvelopeSum(const float* inI, const float* inQ, const float* inC, const float* w, int n)
{
    return envelope_of_sums({inI, inQ, inC}, w, n, ahead<64>(inI), ahead<64>(inQ), ahead<64>(w));
}
