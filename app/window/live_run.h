// An explicit analysis that goes on while the view draws it: one output interval for each repaint.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"

namespace kestralum {

// work() belongs to the worker's thread, repainted() to the window's.
class LiveRun {
public:
    // Called on the worker's thread.
    struct Shows {
        std::function<void(std::shared_ptr<Run>)> start;  // the set-up stands: a copy, with frame 1
        // one frame more, with its row of the history by the columns of the run handed to start
        std::function<void(std::shared_ptr<const Frame>, std::vector<double> row)> interval;
    };

    LiveRun(std::shared_ptr<const Model> model, const Settings& settings, const RunOptions& options)
        : model_(std::move(model)), settings_(settings), options_(options) {}

    // From the set-up to the files of the end, which hold what was reached when the run was stopped. The
    // whole run with its report; without frames where it was not started.
    Run work(const Shows& shows, Progress& progress);

    // The frame shown last is on the screen: the next interval may be computed.
    void repainted();

    // Of the thread of the window. A run that is held goes on by single steps, or when it is held no more.
    void hold(bool held);
    void step();  // one interval more of a run that is held
    void set_pause(std::chrono::milliseconds pause);

private:
    void wait_for_turn(const Progress& progress);  // to the repaint and the end of the pause, or a cancel

    const std::shared_ptr<const Model> model_;
    const Settings settings_;
    const RunOptions options_;
    std::chrono::steady_clock::time_point ended_{};  // of the last interval
    std::mutex lock_;
    std::condition_variable painted_;
    std::chrono::milliseconds pause_{100};  // between two intervals: the pace of the picture
    bool on_screen_ = false, held_ = false;
    int steps_ = 0;  // allowed while held
};

}  // namespace kestralum
