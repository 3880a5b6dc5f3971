// Times the stages of a run one after the other, with the largest memory that each one took.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "model/progress.h"
#include "model/run_report.h"

namespace kestralum {

// Largest resident memory while it is watched, read from the system every few milliseconds by a thread of its
// own; the process' own record is left alone.
class MemoryWatch {
public:
    MemoryWatch();
    ~MemoryWatch();
    MemoryWatch(const MemoryWatch&) = delete;
    MemoryWatch& operator=(const MemoryWatch&) = delete;

    // Largest since the last call, MB; 0 where the system does not say.
    double take_peak();

private:
    struct Shared;
    std::unique_ptr<Shared> shared_;
};

// A stage that comes again adds up.
class StageClock {
public:
    // Writes into `stages` and names the stages in `progress`; borrows both.
    StageClock(std::vector<Stage>& stages, Progress& progress) : stages_(stages), progress_(progress) {}
    ~StageClock() { end(); }
    StageClock(const StageClock&) = delete;
    StageClock& operator=(const StageClock&) = delete;

    // Ends the stage under way and begins this one.
    void begin(const char* name);
    // Ends the stage under way.
    void end();
    // Ends the stage under way, booked under another name; returns its seconds.
    double rename_last(const char* name);

private:
    std::vector<Stage>& stages_;
    Progress& progress_;
    MemoryWatch memory_;
    std::string current_;
    std::chrono::steady_clock::time_point start_;
};

// Adds a stage that was timed elsewhere.
void add_stage(std::vector<Stage>& stages, const Stage& stage);

}  // namespace kestralum
