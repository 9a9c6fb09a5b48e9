// Raises 16-bit echoes as far as their range allows, so that later rounding costs them nothing.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace echo2image {

// Samples minus the value of silence, times the largest power of two that keeps them within -limit - 1 .. limit. Where
// that is below 1 they are divided, rounded to nearest.
class SampleGain
{
public:
    SampleGain(const std::vector<std::int16_t>& frame, double silence, int limit = 32767)
        : offset_(static_cast<int>(std::floor(silence + 0.5)))
    {
        if (frame.empty())
            return;
        const auto [least, greatest] = std::minmax_element(frame.begin(), frame.end());
        const int low = *least - offset_;
        const int high = *greatest - offset_;
        if (low == 0 && high == 0)
            return;
        const auto fits = [&](int s) {
            return s >= 0 ? high <= (limit >> s) && -low <= ((limit + 1) >> s)
                          : high <= limit << -s && -low <= (limit + 1) << -s;
        };
        shift_ = 15;
        while (!fits(shift_))
            --shift_;
    }
    std::int16_t apply(std::int16_t sample) const
    {
        const int value = sample - offset_;
        if (shift_ >= 0)
            return static_cast<std::int16_t>(value * (1 << shift_));
        const int half = 1 << (-shift_ - 1);
        return static_cast<std::int16_t>(value >= 0 ? (value + half) >> -shift_ : -((-value + half) >> -shift_));
    }
    float undo() const { return std::ldexp(1.0F, -shift_); }

private:
    int offset_ = 0;
    int shift_ = 0;
};

} // namespace echo2image
