// The built-in scanner: from scatterers to digitised RF lines.
#pragma once

#include "recording.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace echo2image {

struct Scatterer
{
    double lateral; // metres
    double depth;   // metres
    double amplitude;
};

// A linear array with dynamic focusing on receive and one transmit focus. Echoes are Gaussian pulses under a Gaussian
// two-way beam; the gain follows depth, so that tissue is equally bright everywhere.
struct Scanner
{
    double sound_speed = 1540;        // m/s
    double sampling_frequency = 40e6; // Hz
    double center_frequency = 5e6;    // Hz
    double bandwidth = 3e6;           // Hz, two-sided, -6 dB
    int lines = 192;
    int samples = 2080;
    double line_pitch = 0.2e-3;
    double focus = 20e-3;
    double focal_beam_sigma = 0.17e-3; // standard deviation of the beam's amplitude profile at the focus
    double depth_of_focus = 25e-3;     // distance from the focus at which the beam is wider by sqrt(2)
    double noise = 4;                  // standard deviation of the electronic noise in steps of the converter

    double sample_spacing() const { return sound_speed / (2 * sampling_frequency); }
    double first_line() const { return -0.5 * (lines - 1) * line_pitch; }
    double depth() const { return samples * sample_spacing(); }
    // Standard deviation of the pulse's envelope in samples.
    double pulse_sigma() const;
    double beam_sigma(double at_depth) const; // metres
};

// Random numbers of one purpose. Purposes have streams of their own: more of one leaves the others as they are.
class RandomStream
{
public:
    enum Purpose : std::uint32_t
    {
        layout = 1,
        tissue,
        noise,
        noise_of_second_firing,
        tissue_around_flow,
        blood,
        noise_of_flow,
        noise_of_second_frame = 20,
    };
    RandomStream(std::uint32_t seed, Purpose purpose)
    {
        std::seed_seq sequence{seed, static_cast<std::uint32_t>(purpose)};
        generator_.seed(sequence);
    }
    // Evenly distributed in (low, high). The standard fixes the generator's output but not that of its distributions.
    double uniform(double low, double high) { return low + (high - low) * ((next() + 0.5) * 0x1p-32); }
    // Nearly Gaussian with mean 0 and standard deviation 1: the sum of four bytes.
    double bell()
    {
        const std::uint32_t bits = next();
        const std::uint32_t sum = (bits & 255) + (bits >> 8 & 255) + (bits >> 16 & 255) + (bits >> 24);
        return (sum - 510.0) * (1 / 147.80054126);
    }

private:
    std::uint32_t next() { return static_cast<std::uint32_t>(generator_()); }
    std::mt19937 generator_;
};

// What the array makes of scatterers: [line][sample], noise-free.
std::vector<double> receive(const Scanner& scanner, const std::vector<Scatterer>& scatterers);

// Adds the echo of a sheet that lies across all lines.
void add_sheet(std::vector<double>& lines, const Scanner& scanner, double depth, double amplitude);

// Noise and the converter: nearest step, saturating.
std::vector<std::int16_t> digitise(const Scanner& scanner, const std::vector<double>& lines, std::uint32_t seed,
                                   RandomStream::Purpose noise);

// As if read from a file.
Description describe_scan(const Scanner& scanner, std::uint32_t seed, const std::string& title);

} // namespace echo2image
