// Random numbers that are the same on every machine.
#pragma once

#include <cstdint>
#include <random>

namespace echo2image {

// Random numbers of one purpose. Purposes have streams of their own: more of one leaves the others as they are.
class RandomStream
{
public:
    RandomStream(std::uint32_t seed, std::uint32_t purpose)
    {
        std::seed_seq sequence{seed, purpose};
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

} // namespace echo2image
