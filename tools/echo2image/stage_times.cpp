#include "stage_times.h"

#include <algorithm>
#include <cstdio>

namespace echo2image {

namespace {

double seconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string row_of(const StageTimes::Stage& stage, double milliseconds, const std::string& share)
{
    char line[128];
    if (stage.lines == 0) {
        std::snprintf(line, sizeof line, "%-16s %10.3f %8s", stage.name.c_str(), milliseconds, share.c_str());
    } else {
        const double lines = static_cast<double>(stage.lines);
        std::snprintf(line, sizeof line, "%-16s %10.3f %8s %12.3f %14.0f", stage.name.c_str(), milliseconds, share.c_str(),
                      stage.seconds * 1e6 / lines, stage.seconds > 0 ? lines / stage.seconds : 0.0);
    }
    std::string row = line;
    row.erase(row.find_last_not_of(' ') + 1);
    return row + '\n';
}

} // namespace

void StageTimes::add(const std::string& name, double seconds, std::int64_t lines, StageKind kind)
{
    auto stage = std::find_if(stages_.begin(), stages_.end(), [&](const Stage& s) { return s.name == name; });
    if (stage == stages_.end())
        stage = stages_.insert(stages_.end(), Stage{name, 0, 0, kind});
    stage->seconds += seconds;
    stage->lines += lines;
}

double StageTimes::chain_seconds() const
{
    double sum = 0;
    for (const Stage& stage : stages_)
        sum += stage.kind == StageKind::chain ? stage.seconds : 0;
    return std::max(sum, chain_seconds_);
}

StageTimer::StageTimer(StageTimes* times, const char* stage, std::int64_t lines, StageKind kind)
    : times_(times), stage_(stage), lines_(lines), kind_(kind)
{
    if (times_ != nullptr)
        start_ = std::chrono::steady_clock::now();
}

StageTimer::~StageTimer()
{
    if (times_ != nullptr)
        times_->add(stage_, seconds_since(start_), lines_, kind_);
}

ChainTimer::~ChainTimer()
{
    times_.add_chain(seconds_since(start_));
}

std::string table_of(const StageTimes& times, std::int64_t frames, int repetitions)
{
    const double chain = times.chain_seconds();
    const double made = static_cast<double>(frames) * repetitions;
    const auto share_of = [chain](double seconds) {
        char text[16];
        std::snprintf(text, sizeof text, "%.1f %%", chain > 0 ? 100 * seconds / chain : 0.0);
        return std::string(text);
    };
    char line[128];
    std::snprintf(line, sizeof line, "%-16s %10s %8s %12s %14s\n", "stage", "ms", "share", "us per line", "lines per s");
    std::string table = line;
    double rest = chain;
    for (const StageTimes::Stage& stage : times.stages())
        if (stage.kind == StageKind::chain) {
            table += row_of(stage, stage.seconds * 1e3 / made, share_of(stage.seconds));
            rest -= stage.seconds;
        }
    rest = std::max(0.0, rest);
    table += row_of({"other", rest, 0, StageKind::chain}, rest * 1e3 / made, share_of(rest));
    std::snprintf(line, sizeof line, "%-16s %10.3f %8s    %.1f frames per s; %lld frame%s, each made %d time%s\n", "chain",
                  chain * 1e3 / made, "100.0 %", chain > 0 ? made / chain : 0.0, static_cast<long long>(frames),
                  frames == 1 ? "" : "s", repetitions, repetitions == 1 ? "" : "s");
    table += line;
    for (const StageTimes::Stage& stage : times.stages())
        if (stage.kind == StageKind::apart)
            table += row_of(stage, stage.seconds * 1e3 / static_cast<double>(frames), "");
    return table;
}

} // namespace echo2image
