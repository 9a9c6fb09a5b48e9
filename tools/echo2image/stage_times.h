// Time spent per stage, for --timing.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace echo2image {

enum class StageKind
{
    chain,
    apart // reading, writing, and what is done once for many frames
};

// Name, seconds, lines. Stages appear in the order of their first use.
class StageTimes
{
public:
    struct Stage
    {
        std::string name;
        double seconds = 0;
        std::int64_t lines = 0; // 0: the stage does not work line by line
        StageKind kind = StageKind::chain;
    };
    void add(const std::string& name, double seconds, std::int64_t lines, StageKind kind = StageKind::chain);
    void add_chain(double seconds) { chain_seconds_ += seconds; }
    const std::vector<Stage>& stages() const { return stages_; }
    // Of the whole chain: as it was timed, or its stages' sum where it was not.
    double chain_seconds() const;

private:
    std::vector<Stage> stages_;
    double chain_seconds_ = 0;
};

// Adds the time of a scope to a stage; with null times it does nothing.
class StageTimer
{
public:
    StageTimer(StageTimes* times, const char* stage, std::int64_t lines, StageKind kind = StageKind::chain);
    ~StageTimer();
    StageTimer(const StageTimer&) = delete;
    StageTimer& operator=(const StageTimer&) = delete;

private:
    StageTimes* times_;
    const char* stage_;
    std::int64_t lines_;
    StageKind kind_;
    std::chrono::steady_clock::time_point start_;
};

// Adds the time of a scope, in which the chain makes one frame, to the whole chain's.
class ChainTimer
{
public:
    explicit ChainTimer(StageTimes& times) : times_(times), start_(std::chrono::steady_clock::now()) {}
    ~ChainTimer();
    ChainTimer(const ChainTimer&) = delete;
    ChainTimer& operator=(const ChainTimer&) = delete;

private:
    StageTimes& times_;
    std::chrono::steady_clock::time_point start_;
};

// What --timing prints: wall clock per frame, a row per stage with its share of the chain, the chain of so many frames, each
// made so many times; then what lies apart from it.
std::string table_of(const StageTimes& times, std::int64_t frames, int repetitions);

} // namespace echo2image
