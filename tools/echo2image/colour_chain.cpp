#include "colour_chain.h"

#include "chain.h"
#include "input_file.h"
#include "phase.h"
#include "portable_math.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace echo2image {

namespace {

// What is this much weaker than the strongest flow is taken for noise when nobody says better.
constexpr double usual_power_range = 18; // dB
// What moves slower than this part of the Nyquist velocity, and is bright, is taken for tissue.
constexpr double usual_tissue_speed = 0.08;

struct UnitName
{
    SpeedUnit unit;
    const char* name;
};
constexpr UnitName unit_names[] = {{SpeedUnit::cm_per_s, "cm/s"}, {SpeedUnit::m_per_s, "m/s"}, {SpeedUnit::radians, "rad"}};

std::string number(const char* format, double value)
{
    char text[40];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Up to six letters.
std::string of_speed(double speed)
{
    if (speed == 0)
        return "0";
    return number(std::fabs(speed) >= 100 ? "%+.0f" : std::fabs(speed) >= 10 ? "%+.1f" : "%+.2f", speed);
}

double effective(const std::string& where, double wanted, double stated, const char* key, const char* option)
{
    const double value = wanted != 0 ? wanted : stated;
    if (!(std::isfinite(value) && value > 0))
        throw BadInput(where + key + " is missing; the description or " + option + " must give it (--unit rad needs none)");
    return value;
}

} // namespace

SpeedUnit speed_unit_of(const std::string& name)
{
    for (const UnitName& known : unit_names)
        if (name == known.name)
            return known.unit;
    throw BadInput("--unit: expected cm/s, m/s or rad (radians per firing), found " + in_quotes(name));
}

const char* to_string(SpeedUnit unit)
{
    for (const UnitName& known : unit_names)
        if (unit == known.unit)
            return known.name;
    return "";
}

ColourChain::ColourChain(const Description& description, const ColourParameters& wanted)
    : description_(at_sound_speed(description, wanted.sound_speed)), parameters_(wanted)
{
    const std::string where = description.source.string() + ": ";
    if (description.content != Content::iq)
        throw BadInput(where + "colour needs ensembles of I/Q, found content " +
                       (description.content == Content::rf ? "rf" : "bmode"));
    if (description.firings < fewest_firings)
        throw BadInput(where + "axes: colour needs at least " + std::to_string(fewest_firings) +
                       " along the axis firing, found " + std::to_string(description.firings));
    if (wanted.firings == 0)
        parameters_.firings = static_cast<int>(std::min<std::int64_t>(description.firings, most_firings));
    if (parameters_.firings > description.firings)
        throw BadInput(where + "--firings: expected " + std::to_string(fewest_firings) + " to " +
                       std::to_string(description.firings) + ", found " + std::to_string(wanted.firings));
    if (wanted.flow.mix && wanted.flow.filter.kind == ClutterFilter::Kind::none)
        throw BadInput("--mix: prepares for a clutter filter, found --filter none");
    check_dynamic_range(wanted.dynamic_range);
    estimator_.emplace(wanted.flow, parameters_.firings);
    converter_.emplace(description_.geometry, description.lines, description.samples, description_.sample_spacing, 0.0,
                       wanted.width);
    parameters_.width = converter_->width();
    if (wanted.unit != SpeedUnit::radians) {
        parameters_.center_frequency =
            effective(where, wanted.center_frequency, description.center_frequency, "center_frequency", "--center-frequency");
        parameters_.pulse_repetition_frequency =
            effective(where, wanted.pulse_repetition_frequency, description.pulse_repetition_frequency,
                      "pulse_repetition_frequency", "--pulse-repetition-frequency");
        nyquist_ = description_.sound_speed * parameters_.pulse_repetition_frequency / (4 * parameters_.center_frequency);
    }
    if (!wanted.tissue_phase)
        parameters_.tissue_phase = usual_tissue_speed * portable::pi;
}

FlowMaps ColourChain::flow(const EnsembleFrame& frame, StageTimes* times) const
{
    return estimator_->estimate(frame, times);
}

void ColourChain::choose(const FlowMaps& maps)
{
    const double largest = largest_power(maps, *parameters_.tissue_phase, parameters_.greatest_spread);
    if (!parameters_.least_power)
        parameters_.least_power = std::max(0.0, largest - usual_power_range);
    if (!parameters_.greatest_power)
        parameters_.greatest_power = std::max(largest, *parameters_.least_power + 1);
    if (parameters_.reference == 0) {
        const float power = maps.tissue.empty() ? 0 : *std::max_element(maps.tissue.begin(), maps.tissue.end());
        parameters_.reference = power > 0 ? std::sqrt(power / static_cast<float>(maps.firings)) : 1;
    }
}

Priority ColourChain::priority() const
{
    return {*parameters_.least_power, parameters_.greatest_spread, *parameters_.tissue_phase, parameters_.tissue_grey};
}

// The root mean square over the firings is the envelope.
GreyImage ColourChain::grey(const FlowMaps& maps, StageTimes* times) const
{
    EnvelopeFrame envelope;
    envelope.lines = maps.lines;
    envelope.samples = maps.samples;
    envelope.sample_spacing = description_.sample_spacing;
    for (const float power : maps.tissue)
        envelope.values.push_back(std::sqrt(power / static_cast<float>(maps.firings)));
    return converter_->convert(compress(envelope, parameters_.reference, parameters_.dynamic_range, times), times);
}

ColourImage ColourChain::picture(const FlowMaps& maps, FlowQuantity quantity, StageTimes* times) const
{
    const ColourStyle style = {quantity, parameters_.map, parameters_.baseline, *parameters_.greatest_power};
    ColourImage image = paint(grey(maps, times), scan_convert(maps, *converter_, times), priority(), style, times);
    if (parameters_.scale)
        image = with_scale(image, *converter_);
    BarTexts texts;
    switch (quantity) {
    case FlowQuantity::velocity: {
        const double reach = parameters_.unit == SpeedUnit::radians   ? portable::pi
                             : parameters_.unit == SpeedUnit::m_per_s ? nyquist_
                                                                      : 100 * nyquist_;
        texts = {of_speed((parameters_.baseline + 1) * reach), of_speed((parameters_.baseline - 1) * reach),
                 to_string(parameters_.unit)};
        break;
    }
    case FlowQuantity::power:
        texts = {number("%.1f", style.greatest_power), number("%.1f", *parameters_.least_power), "dB"};
        break;
    case FlowQuantity::spread:
        texts = {number("%.2f", parameters_.greatest_spread), "0", "V"};
        break;
    }
    return with_bar(image, priority(), style, texts);
}

std::vector<float> ColourChain::phases(const FlowMaps& maps) const
{
    std::vector<float> phases = exact_phases(maps.real, maps.imaginary);
    shift_baseline(phases, parameters_.baseline);
    return phases;
}

std::vector<float> ColourChain::velocities(const FlowMaps& maps) const
{
    std::vector<float> velocities = phases(maps);
    for (float& value : velocities)
        value = static_cast<float>(value / portable::pi * nyquist_);
    return velocities;
}

} // namespace echo2image
