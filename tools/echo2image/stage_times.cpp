#include "bmode.h"

#include <algorithm>

namespace echo2image {

void StageTimes::add(const std::string& name, double seconds, std::int64_t lines)
{
    auto stage = std::find_if(stages_.begin(), stages_.end(), [&](const Stage& s) { return s.name == name; });
    if (stage == stages_.end())
        stage = stages_.insert(stages_.end(), Stage{name, 0, 0});
    stage->seconds += seconds;
    stage->lines += lines;
}

StageTimer::StageTimer(StageTimes* times, const char* stage, std::int64_t lines) : times_(times), stage_(stage), lines_(lines)
{
    if (times_ != nullptr)
        start_ = std::chrono::steady_clock::now();
}

StageTimer::~StageTimer()
{
    if (times_ != nullptr)
        times_->add(stage_, std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(), lines_);
}

} // namespace echo2image
