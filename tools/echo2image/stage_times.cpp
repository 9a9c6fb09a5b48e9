#include "stage_times.h"

#include <algorithm>
#include <cstdio>

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

std::string table_of(const StageTimes& times, double total, std::int64_t frames)
{
    char line[128];
    std::snprintf(line, sizeof line, "%-16s %10s %12s %14s\n", "stage", "ms", "us per line", "lines per s");
    std::string table = line;
    for (const StageTimes::Stage& stage : times.stages()) {
        const double lines = static_cast<double>(stage.lines);
        if (stage.lines == 0)
            std::snprintf(line, sizeof line, "%-16s %10.3f\n", stage.name.c_str(), stage.seconds * 1e3);
        else
            std::snprintf(line, sizeof line, "%-16s %10.3f %12.3f %14.0f\n", stage.name.c_str(), stage.seconds * 1e3,
                          stage.seconds * 1e6 / lines, stage.seconds > 0 ? lines / stage.seconds : 0.0);
        table += line;
    }
    std::snprintf(line, sizeof line, "%-16s %10.3f    %.1f frames per s, %lld frame%s\n", "total", total * 1e3,
                  total > 0 ? static_cast<double>(frames) / total : 0.0, static_cast<long long>(frames),
                  frames == 1 ? "" : "s");
    return table + line;
}

} // namespace echo2image
