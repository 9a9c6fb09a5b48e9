// Time spent per stage, for --timing.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

// Name, seconds, lines. Stages appear in the order of their first use.
class StageTimes
{
public:
    struct Stage
    {
        std::string name;
        double seconds = 0;
        std::int64_t lines = 0; // 0: the stage does not work line by line
    };
    void add(const std::string& name, double seconds, std::int64_t lines);
    const std::vector<Stage>& stages() const { return stages_; }

private:
    std::vector<Stage> stages_;
};

// Adds the time of a scope to a stage; with null times it does nothing.
class StageTimer
{
public:
    StageTimer(StageTimes* times, const char* stage, std::int64_t lines);
    ~StageTimer();
    StageTimer(const StageTimer&) = delete;
    StageTimer& operator=(const StageTimer&) = delete;

private:
    StageTimes* times_;
    const char* stage_;
    std::int64_t lines_;
    std::chrono::steady_clock::time_point start_;
};

// What --timing prints: a row per stage, and the whole in seconds of wall clock with its frames.
std::string table_of(const StageTimes& times, double total, std::int64_t frames);

} // namespace echo2image
