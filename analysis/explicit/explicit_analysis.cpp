#include "analysis/explicit/explicit_analysis.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <utility>

#include "analysis/explicit/explicit_files.h"
#include "analysis/explicit/explicit_report.h"
#include "analysis/explicit/explicit_state.h"
#include "model/format.h"

namespace kestralum {

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Steps up to, exclusively, `end`, or until the run has so many frames. False when the run has ended among
// them.
bool run_steps(Job& job, ExplicitState& state, ExplicitFiles& files, std::int64_t end, std::int64_t frames) {
    const auto start = std::chrono::steady_clock::now();
    job.clock.begin("steps");
    while (!state.ended() && !state.diverged && state.step + 1 < end && job.run.mode_num() < frames) {
        explicit_step(job, state);
        files.after_step(job, state);
        job.progress.set_count(state.step, state.time_num - 1);
        if (state.adaptive.on) job.progress.set_share(state.time() / state.adaptive.end);
        if (!job.progress.cancelled() || state.diverged) continue;
        job.fail(RunStatus::cancelled,
                 formatted("stopped on request after step %ld of %ld", state.step, state.time_num - 1));
        break;
    }
    job.clock.end();
    state.loop_seconds += seconds_since(start);
    return job.report().status == RunStatus::done;
}

}  // namespace

struct ExplicitAnalysis::Parts {
    Parts(const Model& model, const Settings& settings, const RunOptions& options, Progress& progress)
        : job{model, settings, options, progress, run} {
        begin_run(run, model, settings, options, AnalysisType::explicit_dynamics, "explicit");
    }
    // The rows reached since the last call, into the run.
    void hand_over_rows() {
        if (run.history.columns.empty()) run.history.columns = state.history.columns;
        const std::vector<double>& from = state.history.values;
        run.history.values.insert(run.history.values.end(), from.begin() + std::ssize(run.history.values),
                                  from.end());
    }
    Run run;
    Job job;
    ExplicitState state;
    ExplicitFiles files;
};

ExplicitAnalysis::ExplicitAnalysis(const Model& model, const Settings& settings, const RunOptions& options,
                                   Progress& progress)
    : parts_(std::make_unique<Parts>(model, settings, options, progress)) {}

ExplicitAnalysis::~ExplicitAnalysis() = default;

bool ExplicitAnalysis::begin() {
    bool begun = false;
    try {
        begun = set_up_explicit(parts_->job, parts_->state);
        begun = begun && parts_->files.begin(parts_->job, parts_->state);
        if (begun) parts_->hand_over_rows();
    } catch (const std::bad_alloc&) {
        parts_->job.fail(RunStatus::failed, "not enough memory for this model and its frames");
    }
    parts_->job.clock.end();
    if (!begun) parts_->run.results.clear();
    return begun;
}

bool ExplicitAnalysis::advance() {
    ExplicitState& s = parts_->state;
    const std::int64_t k = parts_->run.mode_num();
    constexpr auto any = std::numeric_limits<std::int64_t>::max();
    const bool by_time = s.adaptive.on;
    const std::int64_t end = by_time ? any : k * s.output_frequency + 1;
    try {
        const bool goes_on = run_steps(parts_->job, s, parts_->files, end, by_time ? k + 1 : any);
        parts_->hand_over_rows();
        if (!goes_on) return false;
    } catch (const std::bad_alloc&) {
        return parts_->job.fail(RunStatus::failed, "not enough memory for another frame");
    }
    parts_->job.progress.print(" ti_current = %ld\n", k + 1);
    return k + 1 < s.out_time_num;
}

void ExplicitAnalysis::run_to_end() {
    try {
        constexpr auto any = std::numeric_limits<std::int64_t>::max();
        run_steps(parts_->job, parts_->state, parts_->files, any, any);
        parts_->hand_over_rows();
    } catch (const std::bad_alloc&) {
        parts_->job.fail(RunStatus::failed, "not enough memory for another frame");
    }
}

void ExplicitAnalysis::finish() {
    tell_end(parts_->job, parts_->state);
    write_explicit(parts_->job, parts_->state, parts_->files);
}

const Run& ExplicitAnalysis::run() const {
    return parts_->run;
}

Run ExplicitAnalysis::take() {
    return std::move(parts_->run);
}

Run analyse_explicit(const Model& model, const Settings& settings, const RunOptions& options,
                     Progress& progress) {
    ExplicitAnalysis analysis(model, settings, options, progress);
    if (!analysis.begin()) return analysis.take();
    analysis.run_to_end();
    analysis.finish();
    return analysis.take();
}

}  // namespace kestralum
