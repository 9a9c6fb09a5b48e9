#include "fixed_detector.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace echo2image {

namespace {

constexpr double largest_magnitude_sum = 65536; // times 32767: just below 2^31
constexpr double largest_tap = 32767;
constexpr double unit_gain = 32768; // Q15

// Decimation 4: groups of four taps, each group twice. Decimation 8: as they are.
std::int64_t table_size(const FixedDetector& detector)
{
    return detector.decimation == 4 ? 2 * detector.taps : detector.taps;
}

void put(std::int16_t* table, const FixedDetector& detector, int k, std::int16_t tap)
{
    if (detector.decimation == 4) {
        std::int16_t* const group = table + k / 4 * 8;
        group[k % 4] = tap;
        group[k % 4 + 4] = tap;
    } else {
        table[k] = tap;
    }
}

} // namespace

const std::array<FixedDetector, 4>& fixed_detectors()
{
    static const std::array<FixedDetector, 4> detectors = {{
        {"EnvelopDetectGenSSE4", 12, 4, CUtils_SSE::EnvelopDetectGenSSE4},
        {"EnvelopDetectGenSSED8F4", 32, 8, CUtils_SSE::EnvelopDetectGenSSED8F4},
        {"EnvelopDetectGenSSED4F4", 16, 4, CUtils_SSE::EnvelopDetectGenSSED4F4},
        {"EnvelopDetectGenSSED4F8", 32, 4, CUtils_SSE::EnvelopDetectGenSSED4F8},
    }};
    return detectors;
}

const FixedDetector* find_fixed_detector(int taps, int decimation)
{
    const auto& all = fixed_detectors();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& d) { return d.taps == taps && d.decimation == decimation; });
    return found != all.end() ? &*found : nullptr;
}

std::shared_ptr<std::int16_t> aligned_samples(std::int64_t count)
{
    void* memory = CUtils_SSE::aligned_malloc(static_cast<unsigned int>(count) * sizeof(std::int16_t), 16);
    if (memory == nullptr)
        throw std::bad_alloc();
    auto* samples = static_cast<std::int16_t*>(memory);
    std::fill_n(samples, count, std::int16_t{0});
    return {samples, [](void* block) { CUtils_SSE::aligned_free(block); }};
}

TapTable tap_table(const FixedDetector& detector, const std::vector<float>& response)
{
    double magnitude_sum = 0;
    double largest = 0;
    for (const float tap : response) {
        magnitude_sum += std::fabs(tap);
        largest = std::max<double>(largest, std::fabs(tap));
    }
    // Rounding adds at most half a step per tap.
    const double room = largest_magnitude_sum - 0.5 * static_cast<double>(response.size());
    const double scale = std::min(room / magnitude_sum, largest_tap / largest);
    const std::shared_ptr<std::int16_t> table = aligned_samples(table_size(detector));
    int sum = 0;
    int k = 0;
    for (const float tap : response) {
        const auto rounded = static_cast<std::int16_t>(std::floor(tap * scale + 0.5));
        put(table.get(), detector, k++, rounded);
        sum += rounded;
    }
    return {table, sum / unit_gain};
}

} // namespace echo2image
