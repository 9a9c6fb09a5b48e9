#include "bad_input.h"
#include "demo.h"
#include "demo_checks.h"
#include "recipe.h"
#include "units.h"

#include <cstdio>

namespace echo2image {

namespace {

// A synthetic frame's way through the chain.
struct Scene
{
    Chain chain;
    EnvelopeFrame envelope;
    GreyImage image; // without the scale

    Scene(const SyntheticFrame& frame, const ChainParameters& wanted, StageTimes& times)
        : chain(frame.description, wanted), envelope(chain.envelope(frame.rf, &times))
    {
        chain.set_reference(largest(envelope));
        image = chain.picture(envelope, &times);
    }

    // With the scale; returns what to say about it.
    std::string write(OutputFile& file, const SyntheticFrame& frame, std::uint32_t seed, StageTimes& times) const
    {
        const StageTimer timer(&times, "write", 0, StageKind::apart);
        Recipe recipe;
        recipe.command = "demo";
        recipe.input = Recipe::Input::synthetic;
        recipe.seed = seed;
        recipe.input_digest = digest_of(frame.rf);
        recipe.chain = chain.parameters();
        recipe.chain.scale = true;
        const GreyImage picture = with_scale(image, chain.converter());
        write_picture(file, picture, recipe);
        char text[160];
        std::snprintf(text, sizeof text, "%d x %d pixels of %s, %g dB below %g", picture.width, picture.height,
                      with_unit(picture.pixel_size, Quantity::length).c_str(), chain.parameters().dynamic_range,
                      static_cast<double>(chain.parameters().reference));
        return text;
    }
};

} // namespace

DemoOutcome make_bmode_picture(std::uint32_t seed, OutputFile& file, StageTimes& times)
{
    const SyntheticFrame frame = [&] {
        const StageTimer timer(&times, "synthesise", 0, StageKind::apart);
        return synthesise(seed);
    }();
    const Scene scene(frame, {}, times);
    DemoOutcome outcome;
    outcome.summary = scene.write(file, frame, seed, times);
    const StageTimer timer(&times, "check", 0, StageKind::apart);
    outcome.checks = check_envelope(scene.envelope, frame);
    const std::vector<Check> of_picture =
        check_picture(scene.image, scene.chain.converter(), scene.chain.parameters().dynamic_range, frame);
    outcome.checks.insert(outcome.checks.end(), of_picture.begin(), of_picture.end());
    return outcome;
}

DemoOutcome make_harmonic_picture(std::uint32_t seed, OutputFile& file, StageTimes& times)
{
    const PulseInversionFrame pairs = [&] {
        const StageTimer timer(&times, "synthesise", 0, StageKind::apart);
        return synthesise_pairs(seed);
    }();
    ChainParameters wanted;
    wanted.rf.pulse_inversion = PulseInversion::sum;
    const Scene scene(pairs.frame, wanted, times);
    DemoOutcome outcome;
    outcome.summary = scene.write(file, pairs.frame, seed, times) + ", clipped echoes in colour";
    const StageTimer timer(&times, "check", 0, StageKind::apart);
    outcome.checks = check_harmonic(scene.envelope, pairs);
    return outcome;
}

void write_pairs(std::uint32_t seed, OutputFile& samples, const std::string& samples_name, OutputFile& description)
{
    const SyntheticFrame pairs = synthesise_pairs(seed).frame;
    samples.write(pairs.rf.data(), pairs.rf.size() * sizeof pairs.rf[0]); // little-endian, like the processor
    samples.finish();
    const Description& d = pairs.description;
    std::string text = "title: \"" + d.title + "\"\nfile: " + samples_name +
                       "\ncontent: rf\ntype: int16\naxes: [line, firing, sample]\nshape: [" + std::to_string(d.lines) +
                       ", 2, " + std::to_string(d.samples) + "]\n";
    text += "sampling_frequency: " + with_unit(d.sampling_frequency, Quantity::frequency) + '\n';
    text += "center_frequency: " + with_unit(d.center_frequency, Quantity::frequency) + '\n';
    text += "bandwidth: " + with_unit(d.bandwidth, Quantity::frequency) + '\n';
    text += "sound_speed: " + with_unit(d.sound_speed, Quantity::speed) + '\n';
    text += "geometry: {kind: linear, line_pitch: " + with_unit(d.geometry.line_pitch, Quantity::length) +
            ", first_line: " + with_unit(d.geometry.first_line, Quantity::length) + "}\n";
    description.write(text.data(), text.size());
    description.finish();
}

} // namespace echo2image
