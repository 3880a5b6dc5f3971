#include "app/window/live_run.h"

#include <chrono>

#include "analysis/explicit/explicit_analysis.h"

namespace kestralum {

namespace {

using namespace std::chrono_literals;
constexpr auto look = 10ms;  // how often a wait looks for a cancel

}  // namespace

Run LiveRun::work(const Shows& shows, Progress& progress) {
    ExplicitAnalysis analysis(*model_, settings_, options_, progress);
    if (!analysis.begin()) return analysis.take();
    shows.start(std::make_shared<Run>(analysis.run()));
    const auto shown = [&] { return analysis.run().results.size(); };
    for (bool more = true; more;) {
        wait_for_turn(progress);
        const std::size_t before = shown();
        more = analysis.advance();
        {
            const std::lock_guard lock(lock_);
            ended_ = std::chrono::steady_clock::now();
        }
        for (std::size_t k = before; k < shown(); ++k) {
            const HistoryRows& history = analysis.run().history;
            std::vector<double> row;
            if (const std::size_t width = history.columns.size(); k < history.rows())
                row.assign(history.values.data() + k * width, history.values.data() + (k + 1) * width);
            shows.interval(analysis.run().results[k], std::move(row));
        }
    }
    analysis.finish();
    return analysis.take();
}

void LiveRun::wait_for_turn(const Progress& progress) {
    std::unique_lock lock(lock_);
    const auto may_go = [&] {
        if (!on_screen_) return false;
        return held_ ? steps_ > 0 : std::chrono::steady_clock::now() >= ended_ + pause_;
    };
    while (!progress.cancelled() && !may_go()) painted_.wait_for(lock, look);
    on_screen_ = false;
    if (held_ && steps_ > 0) --steps_;
}

void LiveRun::hold(bool held) {
    const std::lock_guard lock(lock_);
    held_ = held;
    steps_ = 0;
}

void LiveRun::step() {
    const std::lock_guard lock(lock_);
    if (held_) ++steps_;
}

void LiveRun::set_pause(std::chrono::milliseconds pause) {
    const std::lock_guard lock(lock_);
    pause_ = pause;
}

void LiveRun::repainted() {
    {
        const std::lock_guard lock(lock_);
        on_screen_ = true;
    }
    painted_.notify_one();
}

}  // namespace kestralum
