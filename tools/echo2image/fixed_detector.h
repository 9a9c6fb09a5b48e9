// The envelope detectors with 16-bit taps: which there are, and the tap tables they take.
#pragma once

#include <utils_sse.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace echo2image {

struct FixedDetector
{
    const char* name;
    int taps;
    int decimation;
    void(UTILS_SSE_CALL* detect)(const short* in_phase, const short* quadrature, float* envelope, const short* taps, int lines,
                                 int stride, int envelope_stride, int count, int ignored_taps, int ignored_decimation);
};

// In the order of their work per sample, least first.
const std::array<FixedDetector, 4>& fixed_detectors();
// Null when there is none of this length and decimation.
const FixedDetector* find_fixed_detector(int taps, int decimation);

// Samples behind a line's last window that must be readable.
constexpr int fixed_detector_overread = 4;

// Memory at 16-byte boundaries, zeroed: carriers and tap tables need it.
std::shared_ptr<std::int16_t> aligned_samples(std::int64_t count);

// Taps in the layout of the detector, as large as they may be: the sum of their magnitudes is at most 65536, so that sums of
// products stay within 32 bits whatever the samples. `gain` is what they make of a constant.
struct TapTable
{
    std::shared_ptr<const std::int16_t> taps;
    double gain = 1;
};
TapTable tap_table(const FixedDetector& detector, const std::vector<float>& response); // at most detector.taps, the rest is 0

} // namespace echo2image
