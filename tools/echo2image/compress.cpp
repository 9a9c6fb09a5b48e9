#include "bad_input.h"
#include "bmode.h"
#include "portable_math.h"

#include <utils_sse.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace echo2image {

namespace {

constexpr int full_scale = 32767;             // index of the reference
constexpr std::int64_t byte_block = 16;       // FloatToByte truncates what remains behind the last whole block
constexpr std::int64_t block_samples = 16384; // lines are worked on in blocks of about this size
constexpr std::int64_t smoothing_block = 16;  // FilterTheEnvelopSSE wraps bright pixels behind the last whole block
constexpr std::int64_t fewest_smoothed = 5;   // lines
constexpr double largest_scale = 1e30;        // an envelope times this is still finite

// FloatToByte's table: the curve in its lower half. Envelopes are never negative, so of the upper half only the index of
// -32768 is met, by values beyond the 32-bit range, and those are white.
std::vector<std::uint8_t> logarithmic_table(double dynamic_range)
{
    std::vector<std::uint8_t> table(65536, 0);
    const double decibels = 20 / portable::log(10.0);
    const double log_full_scale = portable::log(double{full_scale});
    for (int index = 1; index <= full_scale; ++index) {
        const double level = decibels * (portable::log(double(index)) - log_full_scale); // dB below the reference
        const double grey = 255 * (1 + level / dynamic_range);
        table[static_cast<std::size_t>(index)] = static_cast<std::uint8_t>(std::floor(std::clamp(grey, 0.0, 255.0) + 0.5));
    }
    table[32768] = 255;
    return table;
}

} // namespace

void check_dynamic_range(double dynamic_range)
{
    if (!(dynamic_range >= least_dynamic_range && dynamic_range <= greatest_dynamic_range))
        throw BadInput("the dynamic range must lie between " + std::to_string(int(least_dynamic_range)) + " and " +
                       std::to_string(int(greatest_dynamic_range)) + " dB, found " + std::to_string(dynamic_range));
}

std::vector<std::uint8_t> compress(const EnvelopeFrame& envelope, float reference, double dynamic_range, StageTimes* times)
{
    if (!std::isfinite(reference) || reference <= 0)
        throw BadInput("the reference must be a positive number, found " + std::to_string(reference));
    check_dynamic_range(dynamic_range);

    const std::vector<std::uint8_t> table = logarithmic_table(dynamic_range);
    const float scale = static_cast<float>(std::min(full_scale / double{reference}, largest_scale));

    const std::int64_t padded = (envelope.samples + byte_block - 1) / byte_block * byte_block;
    const std::int64_t block = std::clamp<std::int64_t>(block_samples / std::max<std::int64_t>(1, padded), 1,
                                                        std::max<std::int64_t>(1, envelope.lines));
    std::vector<float> scaled(static_cast<std::size_t>(block * padded));
    std::vector<std::uint8_t> bytes(scaled.size());
    std::vector<std::uint8_t> grey(envelope.values.size());
    for (std::int64_t first = 0; first < envelope.lines; first += block) {
        const std::int64_t lines = std::min(block, envelope.lines - first);
        const StageTimer timer(times, "compress", lines);
        for (std::int64_t line = 0; line < lines; ++line)
            CUtils_SSE::FScaleArray(scaled.data() + line * padded, envelope.values.data() + (first + line) * envelope.samples,
                                    scale, static_cast<int>(envelope.samples));
        CUtils_SSE::FloatToByte(bytes.data(), scaled.data(), table.data(), static_cast<int>(lines * padded));
        for (std::int64_t line = 0; line < lines; ++line)
            std::copy_n(bytes.data() + line * padded, envelope.samples, grey.data() + (first + line) * envelope.samples);
    }
    return grey;
}

std::vector<std::uint8_t> smooth(const std::vector<std::uint8_t>& grey, std::int64_t lines, StageTimes* times)
{
    if (lines < fewest_smoothed || grey.empty())
        return grey;
    const StageTimer timer(times, "smooth", lines);
    const std::int64_t samples = static_cast<std::int64_t>(grey.size()) / lines;
    const std::int64_t padded = (samples + smoothing_block - 1) / smoothing_block * smoothing_block;
    std::vector<std::uint8_t> from(static_cast<std::size_t>(lines * padded));
    std::vector<std::uint8_t> to(from.size());
    for (std::int64_t line = 0; line < lines; ++line)
        std::copy_n(grey.data() + line * samples, samples, from.data() + line * padded);
    CUtils_SSE::FilterTheEnvelopSSE(to.data(), from.data(), nullptr, static_cast<int>(lines), static_cast<int>(padded), 0);
    std::vector<std::uint8_t> result(grey.size());
    for (std::int64_t line = 0; line < lines; ++line)
        std::copy_n(to.data() + line * padded, samples, result.data() + line * samples);
    return result;
}

} // namespace echo2image
