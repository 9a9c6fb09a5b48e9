// From the ensembles of one recording to colour pictures: flow estimator, grey picture, priority, colours and bar.
#pragma once

#include "colour_picture.h"
#include "flow.h"

#include <cstdint>
#include <optional>
#include <string>

namespace echo2image {

enum class SpeedUnit
{
    cm_per_s,
    m_per_s,
    radians, // per firing
};

SpeedUnit speed_unit_of(const std::string& name); // throws BadInput
const char* to_string(SpeedUnit unit);

// Everything besides the samples that decides the pixels. In a request zero and nothing mean "choose"; a chain's own
// parameters have their values, but for those that depend on the frame: see ColourChain::choose().
struct ColourParameters
{
    FlowQuantity quantity = FlowQuantity::velocity;
    int firings = 0;
    FlowOptions flow;
    double center_frequency = 0;           // Hz
    double pulse_repetition_frequency = 0; // Hz
    double sound_speed = 0;                // m/s; 0, also in a recipe: the recording's own
    SpeedUnit unit = SpeedUnit::cm_per_s;
    VelocityMap map = VelocityMap::red_yellow;
    double baseline = 0;                  // -1 to 1, in Nyquist velocities
    std::optional<double> least_power;    // dB
    std::optional<double> greatest_power; // dB; of the power picture's brightest colour
    double greatest_spread = 0.5;
    std::optional<double> tissue_phase; // radians per firing
    int tissue_grey = 96;
    float reference = 0;       // magnitude that is white
    double dynamic_range = 60; // dB
    int width = 0;             // pixels, without margins
    bool scale = false;
};

class ColourChain
{
public:
    ColourChain(const Description& description, const ColourParameters& wanted); // throws BadInput

    const ColourParameters& parameters() const { return parameters_; }
    const FlowEstimator& estimator() const { return *estimator_; }
    const ScanConverter& converter() const { return *converter_; }
    bool speed_known() const { return nyquist_ > 0; }
    double nyquist_speed() const { return nyquist_; } // m/s; 0 with the unit radians

    FlowMaps flow(const EnsembleFrame& frame, StageTimes* times = nullptr) const;
    void choose(const FlowMaps& maps); // reference, least and greatest power, where nobody did

    // The following need choose() first.
    Priority priority() const;
    GreyImage grey(const FlowMaps& maps, StageTimes* times = nullptr) const;
    ColourImage picture(const FlowMaps& maps, FlowQuantity quantity, StageTimes* times = nullptr) const;

    // [line][sample], around the baseline: radians per firing, positive towards the probe.
    std::vector<float> phases(const FlowMaps& maps) const;
    // The same in m/s; only with speed_known().
    std::vector<float> velocities(const FlowMaps& maps) const;

private:
    Description description_;
    ColourParameters parameters_;
    double nyquist_ = 0;
    std::optional<FlowEstimator> estimator_;
    std::optional<ScanConverter> converter_;
};

} // namespace echo2image
