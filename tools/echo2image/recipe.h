// How a picture was made: enough to make it again. The recipe travels in the picture's text chunks.
#pragma once

#include "bmode.h"
#include "output_file.h"
#include "png_file.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace echo2image {

// Everything besides the samples that decides the pixels. In a request zero means "choose"; in a recipe everything that
// applies to the recording has its value.
struct ChainParameters
{
    double center_frequency = 0;                     // Hz; RF only
    int taps = 0;                                    // RF only
    int decimation = 0;                              // RF and I/Q
    DetectorKind detector = DetectorKind::automatic; // RF only
    double bandwidth = 0;                            // Hz; RF only
    float reference = 0;                             // envelope that becomes white; RF and I/Q
    double dynamic_range = 0;                        // dB; RF and I/Q
    int width = 0;                                   // pixels, without the margin of the scale
    bool scale = false;
};

// The whole chain for one recording: detector, compression and scan conversion with their parameters.
class Chain
{
public:
    Chain(const Description& description, const ChainParameters& wanted); // throws BadInput

    const ChainParameters& parameters() const { return parameters_; } // every choice made, but the reference
    bool has_envelope() const { return detector_.has_value(); }
    const EnvelopeDetector& detector() const { return *detector_; } // only with has_envelope()
    const ScanConverter& converter() const { return *converter_; }
    void set_reference(float reference) { parameters_.reference = reference; }

    // Of a frame as the recording hands it out; only with has_envelope().
    EnvelopeFrame envelope(const std::vector<std::int16_t>& frame, StageTimes* times = nullptr) const;

    // Compression and scan conversion, and the scale when the parameters ask for one. An envelope needs a reference.
    GreyImage picture(const EnvelopeFrame& envelope, StageTimes* times = nullptr) const;
    GreyImage picture(const std::vector<std::uint8_t>& grey_lines, StageTimes* times = nullptr) const;

private:
    ChainParameters parameters_;
    std::optional<EnvelopeDetector> detector_;
    std::optional<ScanConverter> converter_;
};

float largest(const EnvelopeFrame& envelope);

struct Recipe
{
    enum class Input
    {
        recording,
        synthetic,
    };
    std::string program; // name and version; write_picture() fills it in
    std::string command; // "bmode" or "demo"
    Input input = Input::recording;
    std::string file;         // recording: as the user named it
    std::uint32_t seed = 0;   // synthetic
    std::int64_t frame = 0;   // recording
    std::string input_digest; // SHA-256: Recording::digest(), or digest_of() the synthetic samples
    ChainParameters chain;
    std::string pixel_digest; // SHA-256 of width, height and pixels; write_picture() fills it in
};

std::string program_version(); // "echo2image 1.0.0"

// SHA-256 of the samples as little-endian 16-bit numbers.
std::string digest_of(const std::vector<std::int16_t>& samples);
// SHA-256 of width and height as little-endian 32-bit numbers, then the grey pixels row by row.
std::string digest_of(const GreyImage& image);

TextFields to_text(const Recipe& recipe);
Recipe recipe_of(const TextFields& text, const std::filesystem::path& picture); // throws BadInput

// Writes the picture with its recipe as PNG; the file appears whole or not at all. Throws BadInput.
void write_picture(const std::filesystem::path& file, const GreyImage& image, const Recipe& recipe);
// The same into a file that the caller commits.
void write_picture(OutputFile& file, const GreyImage& image, Recipe recipe);

} // namespace echo2image
