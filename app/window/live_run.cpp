#include "app/window/live_run.h"

#include <chrono>

#include "analysis/explicit/explicit_analysis.h"

namespace kestralum {

namespace {

using namespace std::chrono_literals;
constexpr auto pause = 100ms;  // after each interval: the pace of the picture
constexpr auto look = 10ms;    // how often a wait looks for a cancel

}  // namespace

Run LiveRun::work(const Shows& shows, Progress& progress) {
    ExplicitAnalysis analysis(*model_, settings_, options_, progress);
    if (!analysis.begin()) return analysis.take();
    shows.start(std::make_shared<Run>(analysis.run()));
    const auto shown = [&] { return analysis.run().results.size(); };
    for (bool more = true; more;) {
        wait_for_repaint(progress);
        const std::size_t before = shown();
        more = analysis.advance();
        next_ = std::chrono::steady_clock::now() + pause;
        for (std::size_t k = before; k < shown(); ++k) {
            const HistoryRows& history = analysis.run().history;
            const auto row = history.values.begin() + std::ptrdiff_t(k * history.columns.size());
            if (shows.row && k < history.rows()) shows.row({row, row + std::ssize(history.columns)});
            shows.interval(analysis.run().results[k]);
        }
    }
    analysis.finish();
    return analysis.take();
}

void LiveRun::wait_for_repaint(const Progress& progress) {
    std::unique_lock lock(lock_);
    while (!progress.cancelled() && (!on_screen_ || std::chrono::steady_clock::now() < next_))
        painted_.wait_for(lock, look);
    on_screen_ = false;
}

void LiveRun::repainted() {
    {
        const std::lock_guard lock(lock_);
        on_screen_ = true;
    }
    painted_.notify_one();
}

}  // namespace kestralum
