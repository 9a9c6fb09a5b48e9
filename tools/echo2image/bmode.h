// From echoes to a grey picture: the chain that `bmode` and `demo` run, built on the kernels of utils_sse.
#pragma once

#include "recording.h"

#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

// Time spent per stage, for --timing: name, seconds, lines. Stages appear in the order of their first use.
class StageTimes
{
public:
    struct Stage
    {
        std::string name;
        double seconds = 0;
        std::int64_t lines = 0;
    };
    void add(const std::string& name, double seconds, std::int64_t lines);
    const std::vector<Stage>& stages() const { return stages_; }

private:
    std::vector<Stage> stages_;
};

// What the low-pass of the detector looks like. Zero means: chosen from sampling rate and bandwidth.
struct DetectorOptions
{
    int taps = 0;
    int decimation = 0;
    double bandwidth = 0; // Hz, two-sided
};

// Envelope of one frame: [line][sample] in units of the recording's samples.
struct EnvelopeFrame
{
    std::int64_t lines = 0;
    std::int64_t samples = 0;       // per line, after decimation
    double sample_spacing = 0;      // metres, after decimation
    double first_sample_offset = 0; // metres from the recording's first sample to this frame's first sample
    std::vector<float> values;
};

// A detector for one recording: designs taps and carrier tables once, then turns frames into envelopes.
class EnvelopeDetector
{
public:
    EnvelopeDetector(const Description& description, const DetectorOptions& options); // throws BadInput
    // RF through DemodulateNew and EnvelopDetectGen; I/Q through EnvelopDetectGen with one tap.
    EnvelopeFrame detect(const std::vector<std::int16_t>& frame, StageTimes* times = nullptr) const;

    int taps() const { return static_cast<int>(taps_.size()); }
    int decimation() const { return decimation_; }

private:
    Description description_;
    std::vector<float> taps_;
    int decimation_ = 1;
    double bandwidth_ = 0;
};

// 8-bit lines: 0 is dynamic_range dB (or more) below the reference, 255 the reference (or more). Rounding is stated in
// docs/echo2image.md. Uses FScaleArray and FloatToByte with a table.
std::vector<std::uint8_t> compress(const EnvelopeFrame& envelope, float reference, double dynamic_range,
                                   StageTimes* times = nullptr);

struct GreyImage
{
    int width = 0;
    int height = 0;
    double pixel_size = 0;            // metres per pixel, both ways; 0 when unknown
    std::vector<std::uint8_t> pixels; // [row][column]
};

// Scan conversion: the lookup is computed once per geometry and holds integers only, so a picture has the same bytes on
// every machine.
class ScanConverter
{
public:
    // Samples per line, spacing and first-sample offset are those of the (decimated) lines that convert() will get.
    // width is the picture's width in pixels, 0 for a fitting one.
    ScanConverter(const Geometry& geometry, std::int64_t lines, std::int64_t samples, double sample_spacing,
                  double first_sample_offset, int width); // throws BadInput
    GreyImage convert(const std::vector<std::uint8_t>& lines, StageTimes* times = nullptr) const;
    // Pixel (column, row), with fractions, of a point in metres: lateral position and depth. For checks against truth.
    void pixel_of(double lateral, double depth, double& column, double& row) const;

private:
    struct Entry
    {
        std::uint32_t line;   // Q16 line index
        std::uint32_t sample; // Q16 sample index; line and sample are all ones outside the field of view
    };
    std::int64_t lines_ = 0;
    std::int64_t samples_ = 0;
    int width_ = 0;
    int height_ = 0;
    double pixel_size_ = 0;
    double left_ = 0; // metres at the left edge of column 0
    double top_ = 0;  // metres at the upper edge of row 0
    std::vector<Entry> lookup_;
};

} // namespace echo2image
