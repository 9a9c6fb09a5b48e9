// From echoes to a grey picture: the chain that `bmode` and `demo` run, built on the kernels of utils_sse.
#pragma once

#include "fixed_detector.h"
#include "recording.h"
#include "stage_times.h"

#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

// Which of the library's detectors works on RF.
enum class DetectorKind
{
    automatic, // fixed where one fits, else general
    general,   // EnvelopDetectGen: any odd number of taps, any decimation
    fixed,     // taps of 16 bits; 12, 16 or 32 at decimation 4, or 32 at decimation 8; several times faster
};

// What the detector's low-pass looks like. Zero means: chosen from sampling rate and bandwidth.
struct DetectorOptions
{
    int taps = 0;         // general: odd
    int decimation = 0;   // samples from one output to the next
    double bandwidth = 0; // Hz, two-sided, -6 dB
    DetectorKind kind = DetectorKind::automatic;
};

// Envelope of one frame: [line][sample] in units of the recording's samples.
struct EnvelopeFrame
{
    std::int64_t lines = 0;
    std::int64_t samples = 0;       // per line, after decimation
    double sample_spacing = 0;      // metres, after decimation
    double first_sample_offset = 0; // metres from the recording's first sample to this frame's first sample
    std::vector<float> values;
    std::vector<std::uint8_t> clipped; // [line][sample]: 255 where echoes were clipped, else 0; empty when that is unknown
};

// A detector for one recording: designs the taps once, then turns frames into envelopes.
class EnvelopeDetector
{
public:
    EnvelopeDetector(const Description& description, const DetectorOptions& options); // throws BadInput
    // RF through DemodulateNew and the detector; I/Q through EnvelopDetectGen with one tap.
    EnvelopeFrame detect(const std::vector<std::int16_t>& frame, StageTimes* times = nullptr) const;

    DetectorKind kind() const { return fixed_ != nullptr ? DetectorKind::fixed : DetectorKind::general; }
    const char* name() const; // the function's
    int taps() const { return fixed_ != nullptr ? fixed_->taps : static_cast<int>(taps_.size()); }
    int decimation() const { return decimation_; }
    double bandwidth() const { return bandwidth_; } // Hz; 0 for I/Q, which are not filtered
    std::int64_t samples() const;                   // per line of an envelope
    double sample_spacing() const { return description_.sample_spacing * decimation_; }

private:
    void detect_rf(const std::vector<std::int16_t>& frame, EnvelopeFrame& envelope, StageTimes* times) const;
    void detect_iq(const std::vector<std::int16_t>& frame, EnvelopeFrame& envelope, StageTimes* times) const;

    Description description_;
    std::vector<float> taps_;              // sum 2: mixing halves the amplitude
    const FixedDetector* fixed_ = nullptr; // null: the general one
    TapTable table_;                       // of the fixed one
    int decimation_ = 1;
    double bandwidth_ = 0;
    int padded_ = 0;                              // RF: samples of a line with silence around it, whole blocks of 8
    std::shared_ptr<const std::int16_t> carrier_; // RF: padded_ entries of the cosine, then padded_ of the negative sine
};

// Range of --dynamic-range: the curve's table has 15 bits, and 20 log10(32767) is 90.3.
constexpr double least_dynamic_range = 1;
constexpr double greatest_dynamic_range = 90;
void check_dynamic_range(double dynamic_range); // throws BadInput

// 8-bit lines: 0 is dynamic_range dB (or more) below the reference, 255 the reference (or more). Rounding is stated in
// docs/echo2image.md. Uses FScaleArray and FloatToByte with a table. Throws BadInput for a reference that is not positive
// and finite and a dynamic range outside the limits above.
std::vector<std::uint8_t> compress(const EnvelopeFrame& envelope, float reference, double dynamic_range,
                                   StageTimes* times = nullptr);

// Smooths 8-bit lines, [line][sample], across the lines with (-1, 6, 22, 6, -1) / 32; the two lines at either edge stay as
// they are. Uses FilterTheEnvelopSSE.
std::vector<std::uint8_t> smooth(const std::vector<std::uint8_t>& grey, std::int64_t lines, StageTimes* times = nullptr);

struct GreyImage
{
    int width = 0;
    int height = 0;
    double pixel_size = 0;            // metres per pixel, both ways; 0 when unknown
    std::vector<std::uint8_t> pixels; // [row][column]
    std::vector<std::uint8_t> marks;  // [row][column]: not 0 where a pixel is shown in colour; empty when none is
};

// Scan conversion: the lookup is computed once per geometry and holds integers only, so a picture has the same bytes on
// every machine. A line owns the space half-way to its neighbours, a sample likewise; what no line owns is black.
class ScanConverter
{
public:
    // Samples per line, spacing and first-sample offset are those of the (decimated) lines that convert() will get.
    // width is the picture's width in pixels, 0 for a fitting one.
    ScanConverter(const Geometry& geometry, std::int64_t lines, std::int64_t samples, double sample_spacing,
                  double first_sample_offset, int width); // throws BadInput
    // `lines` is [line][sample]; for pictures [row][column].
    GreyImage convert(const std::vector<std::uint8_t>& lines, StageTimes* times = nullptr) const;
    // Numbers instead of grey values, [line][sample]; interpolated likewise, 0 outside the field of view.
    std::vector<float> convert(const std::vector<float>& lines) const;
    // Pixel (column, row) of a point in metres, lateral position and depth; whole numbers are middles of pixels. Depth
    // counts from the surface; of a sector from its apex, of a curved array from the first sample straight ahead.
    void pixel_of(double lateral, double depth, double& column, double& row) const;
    int width() const { return width_; }
    bool size_known() const { return size_known_; } // whether a pixel's size in metres is known

private:
    struct Entry
    {
        std::uint32_t line;   // Q16 line index
        std::uint32_t sample; // Q16 sample index; line and sample are all ones outside the field of view
    };
    void choose_grid(double left, double right, double top, double bottom, double natural_pixel, int width);
    void prepare_parallel(const Geometry& geometry, double sample_spacing, double first_sample_offset, int width);
    void prepare_fan(const Geometry& geometry, double sample_spacing, double first_sample_offset, int width);
    GreyImage look_up(const std::vector<std::uint8_t>& lines) const;
    void look_up_row(int row, Entry* entries) const;

    std::int64_t lines_ = 0;
    std::int64_t samples_ = 0;
    std::int64_t averaged_samples_ = 1; // odd; pixels larger than samples show the mean of those they cover
    std::size_t line_stride_ = 0;
    std::size_t sample_stride_ = 1;
    int width_ = 0;
    int height_ = 0;
    double pixel_size_ = 0;
    bool size_known_ = true;
    double left_ = 0; // metres at the left edge of column 0
    double top_ = 0;  // metres at the upper edge of row 0

    // Parallel lines: the line index is column_line_[column] - row_line_[row], the sample index row_sample_[row]; all Q16.
    std::vector<std::int64_t> column_line_;
    std::vector<std::int64_t> row_line_;
    std::vector<std::int64_t> row_sample_;

    // Fans: every pixel has its own entry, kept while the picture is not too large and computed row by row otherwise.
    bool fan_ = false;
    double first_angle_ = 0;
    double angle_step_ = 0;
    double first_radius_ = 0;
    double radius_step_ = 0;
    double depth_zero_ = 0; // metres from the apex to depth 0
    std::vector<Entry> lookup_;
};

constexpr int scale_margin = 16; // pixels

// Adds a black margin with a millimetre scale at the left (depth) and the bottom (lateral position). Throws BadInput when
// the size of a pixel is unknown.
GreyImage with_scale(const GreyImage& image, const ScanConverter& converter);

} // namespace echo2image
