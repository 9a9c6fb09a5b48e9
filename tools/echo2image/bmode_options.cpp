#include "bmode_options.h"

#include "bad_input.h"
#include "filter_options.h"
#include "option_values.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <limits>

namespace echo2image {

namespace {

constexpr double greatest_frequency = 1e12; // Hz; beyond any sound
constexpr double least_sound_speed = 100;   // m/s; as in descriptions
constexpr double greatest_sound_speed = 20000;

// A ramp given in metres along the line, in samples.
void set_ramp(const std::string& text, double sample_spacing, RfOptions& rf)
{
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos)
        throw BadInput("--ramp: expected START:END, such as 10mm:30mm, found \"" + text + "\"");
    const auto samples = [&](const std::string& length) {
        const double metres = quantity_of("--ramp", length, Quantity::length, 0, 10);
        return static_cast<int>(std::min(1e9, metres / sample_spacing + 0.5));
    };
    rf.ramp_start = samples(text.substr(0, colon));
    rf.ramp_end = samples(text.substr(colon + 1));
}

RfOptions wanted_of_rf(const BmodeOptions& options, double sample_spacing)
{
    RfOptions rf;
    if (options.upsample == "full")
        rf.upsampling = Upsampling::full;
    else if (options.upsample == "fast")
        rf.upsampling = Upsampling::fast;
    else if (!options.upsample.empty())
        throw BadInput("--upsample: expected full or fast, found \"" + options.upsample + "\"");
    if (options.interpolate == "2" || options.interpolate == "4")
        rf.interpolate = options.interpolate == "2" ? 2 : 4;
    else if (!options.interpolate.empty())
        throw BadInput("--interpolate: expected 2 or 4, found \"" + options.interpolate + "\"");
    if (options.harmonic == "sum")
        rf.pulse_inversion = PulseInversion::sum;
    else if (options.harmonic == "blend")
        rf.pulse_inversion = PulseInversion::blend;
    else if (!options.harmonic.empty())
        throw BadInput("--harmonic: expected sum or blend, found \"" + options.harmonic + "\"");
    if (rf.pulse_inversion != PulseInversion::blend && !(options.ramp.empty() && options.percent.empty()))
        throw BadInput("--ramp and --percent need --harmonic blend");
    if (!options.ramp.empty())
        set_ramp(options.ramp, sample_spacing, rf);
    if (!options.percent.empty())
        rf.percent = static_cast<int>(whole_number("--percent", options.percent, 0, 100));
    return rf;
}

} // namespace

ChainParameters wanted_by(const BmodeOptions& options, const Description& description)
{
    ChainParameters wanted;
    const auto number = [](const char* name, const std::string& text, Quantity quantity, double least, double greatest) {
        return text.empty() ? 0.0 : quantity_of(name, text, quantity, least, greatest);
    };
    const auto whole = [](const char* name, const std::string& text, int greatest) {
        return text.empty() ? 0 : static_cast<int>(whole_number(name, text, 1, greatest));
    };
    constexpr int any = std::numeric_limits<int>::max();
    wanted.dynamic_range =
        number("--dynamic-range", options.dynamic_range, Quantity::level, least_dynamic_range, greatest_dynamic_range);
    wanted.reference = static_cast<float>(number("--reference", options.reference, Quantity::number, 1e-6, 1e9));
    wanted.bandwidth = number("--bandwidth", options.bandwidth, Quantity::frequency, 1, greatest_frequency);
    wanted.center_frequency =
        number("--center-frequency", options.center_frequency, Quantity::frequency, 1, greatest_frequency);
    wanted.taps = whole("--taps", options.taps, any);
    wanted.decimation = whole("--decimation", options.decimation, any);
    wanted.width = whole("--width", options.width, any);
    wanted.detector = options.general ? DetectorKind::general : DetectorKind::automatic;
    wanted.sound_speed = number("--sound-speed", options.sound_speed, Quantity::speed, least_sound_speed, greatest_sound_speed);
    const double stretched = wanted.sound_speed != 0 ? wanted.sound_speed / description.sound_speed : 1;
    wanted.rf = wanted_of_rf(options, description.sample_spacing * stretched);
    wanted.smooth = options.smooth;
    wanted.filters = options.filters;
    wanted.scale = options.scale;
    return wanted;
}

FrameRange chosen_frames(const BmodeOptions& options, const Description& description)
{
    const std::int64_t count = description.frames;
    if (options.frames.empty()) {
        const std::int64_t frame = options.frame.empty() ? 0 : whole_number("--frame", options.frame, 0, count - 1);
        return {frame, frame + 1};
    }
    if (options.frames == "all")
        return {0, count};
    const std::size_t colon = options.frames.find(':');
    if (colon == std::string::npos)
        throw BadInput("--frames: expected FIRST:END (END is not included) or all, found \"" + options.frames + "\"");
    const std::string first = options.frames.substr(0, colon);
    const std::string end = options.frames.substr(colon + 1);
    const FrameRange range = {first.empty() ? 0 : whole_number("--frames", first, 0, count - 1),
                              end.empty() ? count : whole_number("--frames", end, 1, count)};
    if (range.first >= range.end)
        throw BadInput("--frames: the first frame must lie before the end, found \"" + options.frames + "\"");
    return range;
}

void add_input_and_output(CLI::App& app, BmodeOptions& options)
{
    // Required, but checked later: an option with an optional value may have taken it.
    app.add_option("RECORDING", options.recording,
                   "Description (.yml), NumPy file (.npy), MetaImage (.mha, .mhd) or DICOM file (.dcm)");
    app.add_option("-o,--output", options.output, "The picture, a PNG file; of several frames PICTURE-0000.png and so on")
        ->type_name("PICTURE.png");
    app.add_option("--data", options.data, "Folder with the samples that a description names")->type_name("FOLDER");
    CLI::Option* frame = app.add_option("--frame", options.frame, "Frame to show, counted from 0 (default: 0)")->type_name("K");
    app.add_option("--frames", options.frames, "Frames FIRST to END - 1, or all")->type_name("FIRST:END")->excludes(frame);
}

void add_options(CLI::App& app, BmodeOptions& options)
{
    add_input_and_output(app, options);
    const char* grey = "Grey values";
    app.add_option("--dynamic-range", options.dynamic_range, "From white down to black, 1 to 90 dB (default: 60 dB)")
        ->type_name("LEVEL")
        ->group(grey);
    app.add_option("--reference", options.reference,
                   "Envelope that is white, in units of the samples (default: the largest of all frames shown)")
        ->type_name("VALUE")
        ->group(grey);
    app.add_flag("--smooth", options.smooth, "Smooth a little across the lines")->group(grey);

    add_filter_options(app);

    const char* lines = "RF lines";
    app.add_flag("--upsample{full}", options.upsample,
                 "Double the sampling rate first, with eight taps, or with four: --upsample=fast")
        ->group(lines);
    app.add_option("--interpolate", options.interpolate, "Times as many lines; suits lines that lie close together")
        ->type_name("2|4")
        ->group(lines);
    app.add_option("--harmonic", options.harmonic,
                   "Add the two firings of every line, which have opposite polarity, or blend them along a ramp; pixels whose "
                   "firings were both clipped are shown in red to yellow")
        ->type_name("sum|blend")
        ->group(lines);
    app.add_option("--ramp", options.ramp, "Where blending fades the second firing (default: the middle third of the line)")
        ->type_name("START:END")
        ->group(lines);
    app.add_option("--percent", options.percent, "How much of it is gone behind the ramp (default: 100)")
        ->type_name("P")
        ->group(lines);

    const char* envelope = "Envelope of RF (chosen from the recording when not given)";
    app.add_option("--center-frequency", options.center_frequency, "Of the echoes, such as \"5 MHz\"")
        ->type_name("FREQUENCY")
        ->group(envelope);
    app.add_option("--bandwidth", options.bandwidth, "Two-sided, between the -6 dB points of the low-pass")
        ->type_name("FREQUENCY")
        ->group(envelope);
    app.add_option("--taps", options.taps,
                   "Length of the low-pass: 12, 16 or 32 (fixed-point detectors), or odd (the general one)")
        ->type_name("N")
        ->group(envelope);
    app.add_option("--decimation", options.decimation, "Samples from one envelope value to the next; also of I/Q")
        ->type_name("N")
        ->group(envelope);
    app.add_flag("--general", options.general, "Use the general detector even where a fixed-point one fits")->group(envelope);
    app.add_flag("--compare", options.compare, "Print how far the fixed-point envelope is from the general detector's")
        ->group(envelope);
    app.add_option("--envelope", options.envelope, "Also write the envelope, float32 [frame][line][sample]")
        ->type_name("FILE.npy")
        ->group(envelope);

    const char* picture = "Picture";
    app.add_option("--width", options.width, "Width in pixels (default: fits the lines, 512 to 1024)")
        ->type_name("PIXELS")
        ->group(picture);
    app.add_option("--sound-speed", options.sound_speed, "In place of the recording's, such as \"1540 m/s\"; moves depths")
        ->type_name("SPEED")
        ->group(picture);
    app.add_flag("--scale", options.scale, "Add a scale in millimetres at the left and the bottom edge")->group(picture);
    add_timing_options(app, options.timing);
}

} // namespace echo2image
