// Recordings: what was recorded (Description) and its samples, one frame at a time (Recording).
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace echo2image {

enum class Content
{
    rf,    // 16-bit echoes
    iq,    // 16-bit pairs: I, Q
    bmode, // 8-bit grey values: log-compressed envelope lines or a finished picture
};

inline const char* to_string(Content content)
{
    return content == Content::rf ? "rf" : content == Content::iq ? "iq" : "bmode";
}

enum class ElementType
{
    int16,
    uint8,
};

// Where the samples of a line lie. SI units; angles in radians from straight down, positive to the right of the picture.
struct Geometry
{
    enum class Kind
    {
        linear,  // parallel lines, straight down
        steered, // parallel lines, all tilted by `steering`
        sector,  // a fan whose apex lies on the probe's surface or in front of a mechanical probe
        curved,  // a fan from a curved array, whose apex lies behind the surface
        picture, // rows and columns of an image that needs no scan conversion
    };
    Kind kind = Kind::linear;
    double first_line = 0;     // linear, steered: lateral position of line 0 at depth 0, metres
    double line_pitch = 0;     // linear, steered: metres from line to line
    double steering = 0;       // steered: radians
    double first_angle = 0;    // sector, curved: radians of line 0
    double angle_step = 0;     // sector, curved: radians from line to line
    double apex_radius = 0;    // sector, curved: metres from the apex to the first sample
    double start_depth = 0;    // linear, steered: metres along the line from the surface to the first sample
    double column_spacing = 0; // picture: metres per column; 0 when unknown
    double row_spacing = 0;    // picture: metres per row; 0 when unknown
};

struct Description
{
    std::filesystem::path source;    // the file the user named
    std::filesystem::path data_file; // where the samples are; equals source for .npy and .mha
    std::string format;              // "raw", "npy" or "MetaImage"
    Content content = Content::rf;
    ElementType type = ElementType::int16;
    std::uint64_t header_bytes = 0;
    // Axes as stored, slowest first: "frame", "line", "sample", "firing", "component" (I and Q), and for pictures "row" and
    // "column". Recordings hand out frames as [line][sample] whatever the order here.
    std::vector<std::string> axes;
    std::vector<std::int64_t> shape;

    std::int64_t frames = 1;
    std::int64_t lines = 0;   // pictures: columns
    std::int64_t samples = 0; // samples of a line that hold echoes; pictures: rows
    std::int64_t firings = 1; // of an ensemble; frames are then taken from firing 0

    double sampling_frequency = 0;         // Hz; 0 when it has no meaning (pictures) or only sample_spacing is known
    double center_frequency = 0;           // Hz of the echoes; 0 when unknown
    double demodulation_frequency = 0;     // Hz that I/Q data were mixed with; 0 when unknown
    double bandwidth = 0;                  // Hz, two-sided, -6 dB; 0 when unknown
    double sound_speed = 1540;             // m/s
    double sample_spacing = 0;             // metres along the line from sample to sample
    double offset = 0;                     // of RF samples: the value that means silence
    double frame_rate = 0;                 // Hz; 0 when unknown
    double pulse_repetition_frequency = 0; // Hz, from firing to firing of an ensemble; 0 when unknown
    double dynamic_range = 0;              // dB from black to white of bmode recordings; 0 when unknown
    bool geometry_known = true;            // false only after opening with Need::layout
    Geometry geometry;
    std::vector<std::int64_t> dead_lines; // lines without echoes, in rising order; handed out as silence
    std::string title;                    // free text; may be empty
};

// What a recording must state to be opened.
enum class Need
{
    picture, // all that a picture takes: the geometry, and the distance between samples unless it is a picture already
    layout,  // where the samples are and what they are; unknown physics are left at 0, geometry_known says the rest
};

// An opened recording. Frames are read when asked for; nothing but the frame asked for is kept in memory.
class Recording
{
public:
    // Opens a YAML description (.yml, .yaml), a NumPy file (.npy; with a description of the same name beside it) or a
    // MetaImage (.mha, .mhd; with or without one). A data file that a description names is looked up in `data_folder`;
    // when that is empty, beside the description and then in the folder that the environment variable UTILS_SSE_DATA
    // names. Throws BadInput. The formats are described in docs/recordings.md.
    static Recording open(const std::filesystem::path& file, const std::filesystem::path& data_folder = {},
                          Need need = Need::picture);

    // For a description made by a program: axes, shape, type and header_bytes say where the samples are; frames, lines and
    // firings follow from them, and so does samples when it is 0. Throws BadInput.
    explicit Recording(Description description);
    Recording(Recording&&) noexcept;
    Recording& operator=(Recording&&) noexcept;
    ~Recording();

    const Description& description() const;

    // Frame as [line][sample] (rf), [line][sample][I, Q] (iq); `frame` must be below frames. Throws BadInput when the file
    // cannot be read (any more).
    std::vector<std::int16_t> read_frame_i16(std::int64_t frame) const;
    // The same with all firings of an ensemble: [line][firing][sample] (rf), [line][firing][sample][I, Q] (iq).
    std::vector<std::int16_t> read_firings_i16(std::int64_t frame) const;
    // The first firings of I/Q ensembles, sample by sample: [line][sample][firing][I, Q].
    std::vector<std::int16_t> read_ensembles_i16(std::int64_t frame, std::int64_t firings) const;
    // Frame as [line][sample], for pictures as [row][column].
    std::vector<std::uint8_t> read_frame_u8(std::int64_t frame) const;

    // SHA-256, as 64 hex digits, of the data file followed by the texts that say how to read it: the header of a MetaImage
    // in two files, then the description.
    std::string digest() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Several lines of text for `echo2image info`.
std::string describe(const Recording& recording);

const char* to_string(Geometry::Kind kind);

} // namespace echo2image
