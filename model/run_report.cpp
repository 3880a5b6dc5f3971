#include "model/run_report.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "model/console.h"
#include "model/paths.h"

namespace kestralum {

namespace {

// Largest resident memory since the last reset, MB; 0 where the system does not tell.
double peak_megabytes() {
    const paths::File file(std::fopen("/proc/self/status", "r"));
    char line[256];
    long kilobytes = 0;
    while (file && std::fgets(line, sizeof line, file.get()))
        if (std::sscanf(line, "VmHWM: %ld", &kilobytes) == 1) break;
    return static_cast<double>(kilobytes) / 1000;
}

void reset_peak() {
    const paths::File file(std::fopen("/proc/self/clear_refs", "w"));
    if (file) std::fputs("5", file.get());
}

}  // namespace

Stage& StageClock::stage(const char* name) {
    const auto at =
        std::find_if(stages_.begin(), stages_.end(), [&](const Stage& s) { return s.name == name; });
    return at != stages_.end() ? *at : stages_.emplace_back(Stage{name, 0, 0});
}

void StageClock::begin(const char* name) {
    end();
    current_ = name;
    console::set_stage(name);
    reset_peak();
    start_ = std::chrono::steady_clock::now();
}

void StageClock::end() {
    if (current_.empty()) return;
    Stage& ended = stage(current_.c_str());
    ended.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    ended.peak_megabytes = std::max(ended.peak_megabytes, peak_megabytes());
    current_.clear();
}

double StageClock::rename_last(const char* name) {
    if (current_.empty()) return 0;
    current_ = name;
    const double before = stage(name).seconds;
    end();
    return stage(name).seconds - before;
}

void StageClock::add(const char* name, double seconds) {
    Stage& known = stage(name);
    known.seconds += seconds;
    known.peak_megabytes = std::max(known.peak_megabytes, peak_megabytes());
}

void StageClock::add(const Stage& other) {
    Stage& known = stage(other.name.c_str());
    known.seconds += other.seconds;
    known.peak_megabytes = std::max(known.peak_megabytes, other.peak_megabytes);
}

}  // namespace kestralum
