#include "system/stage_clock.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "model/paths.h"

namespace kestralum {

namespace {

// A value of /proc/self/status, MB; 0 where there is none.
double status_megabytes(const char* format) {
    const paths::File file(std::fopen("/proc/self/status", "r"));
    char line[256];
    long kilobytes = 0;
    while (file && std::fgets(line, sizeof line, file.get()))
        if (std::sscanf(line, format, &kilobytes) == 1) break;
    return static_cast<double>(kilobytes) / 1000;
}
double resident_megabytes() {
    return status_megabytes("VmRSS: %ld");
}
double highest_megabytes() {
    return status_megabytes("VmHWM: %ld");
}

}  // namespace

struct MemoryWatch::Shared {
    std::mutex lock;
    std::condition_variable wake;
    bool ended = false;
    double peak = resident_megabytes();    // since the last take_peak()
    double highest = highest_megabytes();  // of the process at that call
    std::thread thread;
};

MemoryWatch::MemoryWatch() : shared_(std::make_unique<Shared>()) {
    static constexpr auto period = std::chrono::milliseconds(10);
    shared_->thread = std::thread([s = shared_.get()] {
        std::unique_lock lock(s->lock);
        while (!s->wake.wait_for(lock, period, [s] { return s->ended; }))
            s->peak = std::max(s->peak, resident_megabytes());
    });
}

MemoryWatch::~MemoryWatch() {
    {
        const std::lock_guard lock(shared_->lock);
        shared_->ended = true;
    }
    shared_->wake.notify_one();
    shared_->thread.join();
}

double MemoryWatch::take_peak() {
    const std::lock_guard lock(shared_->lock);
    const double now = resident_megabytes(), highest = highest_megabytes();
    // a new record of the process is exact; below it the samples count
    const double peak = highest > shared_->highest ? highest : std::max(shared_->peak, now);
    shared_->peak = now;
    shared_->highest = highest;
    return peak;
}

void add_stage(std::vector<Stage>& stages, const Stage& other) {
    const auto at =
        std::find_if(stages.begin(), stages.end(), [&](const Stage& s) { return s.name == other.name; });
    if (at == stages.end()) {
        stages.push_back(other);
        return;
    }
    at->seconds += other.seconds;
    at->peak_megabytes = std::max(at->peak_megabytes, other.peak_megabytes);
}

void StageClock::begin(const char* name) {
    end();
    current_ = name;
    add_stage(stages_, {current_});  // keeps its place in the order
    progress_.set_stage(name);
    memory_.take_peak();
    start_ = std::chrono::steady_clock::now();
}

void StageClock::end() {
    rename_last(current_.c_str());
}

double StageClock::rename_last(const char* name) {
    if (current_.empty()) return 0;
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
    add_stage(stages_, {name, seconds.count(), memory_.take_peak()});
    std::erase_if(stages_, [&](const Stage& s) { return s.name == current_ && s.seconds == 0; });
    current_.clear();
    return seconds.count();
}

}  // namespace kestralum
