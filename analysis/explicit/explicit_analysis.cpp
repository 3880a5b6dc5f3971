#include "analysis/explicit/explicit_analysis.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>

#include "analysis/explicit/explicit_state.h"
#include "model/console.h"
#include "model/paths.h"
#include "results/displacement_file.h"
#include "results/result_file.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr double largest_drift = 0.01;  // of the largest energy; what is above is told

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void run_steps(ModelStore& store, ExplicitState& state, RunReport& report, std::int64_t first,
               std::int64_t end) {
    const auto start = std::chrono::steady_clock::now();
    report.clock.begin("steps");
    for (std::int64_t s = first; s < end && !state.diverged; ++s) {
        explicit_step(store, state, report);
        console::set_progress(s, state.time_num - 1);
        if (!console::cancel_requested()) continue;
        report.fail(RunStatus::failed,
                    console::format("stopped on request after step %lld of %lld", static_cast<long long>(s),
                                    static_cast<long long>(state.time_num - 1)));
        break;
    }
    report.clock.end();
    state.loop_seconds += seconds_since(start);
}

bool write_history(const ModelStore& store, const ExplicitHistory& history) {
    std::string text;
    for (std::size_t c = 0; c < history.columns.size(); ++c) text += (c ? "," : "") + history.columns[c];
    text += '\n';
    const std::string trouble = write_whole(history_file_name(store), [&](TextOutput& file) {
        file.write(text);
        file.write_rows(static_cast<std::int64_t>(history.rows()), 1, [&](std::int64_t r, std::string& line) {
            for (std::size_t c = 0; c < history.columns.size(); ++c) {
                if (c) line += ',';
                append_e(line, history.values[static_cast<std::size_t>(r) * history.columns.size() + c]);
            }
            line += '\n';
        });
    });
    if (!trouble.empty()) console::error("%s", trouble.c_str());
    return trouble.empty();
}

void fill_report(const ModelStore& store, const ExplicitState& s, RunReport& report) {
    ExplicitReport& out = report.dynamics;
    out.steps = s.step;
    out.time_num = s.time_num;
    out.frames = s.frames;
    out.d_time = s.d_time;
    out.stable_step = s.stable_step;
    out.loop_seconds = s.loop_seconds;
    out.elements = store.mesh.element_num();
    out.kernel = s.blocks ? s.blocks->kernel_name() : "";
    out.time = static_cast<double>(s.step) * s.d_time;
    out.energies = s.energies;
    out.drift = s.largest_drift;
    if (std::abs(out.drift) > largest_drift && !s.diverged)
        report.remarks.notices.push_back(console::format(
            "the energy is out of balance by %.1f %%: d_time is too large or the mesh too coarse",
            100 * std::abs(out.drift)));
    out.momentum = s.momentum;
    out.angular_momentum = s.angular_momentum;
    report.reaction = s.reaction;
}

void finish(ModelStore& store, const Settings& settings, ExplicitState& state, RunReport& report) {
    console::print("Explicit Analysis Time:  %lf[s]\n", seconds_since(state.start));
    store.results.keep(static_cast<std::int32_t>(std::max<std::int64_t>(state.frames, 1)),
                       store.mesh.dof_num);
    fill_report(store, state, report);
    report_largest(store, store.results.mode_num() - 1, report);
    report.clock.begin("write");
    report.written = write_results(store, Publish::now, settings.threads());
    report.dynamics.displacements_written = write_displacements(store, settings.threads());
    report.dynamics.history_written = write_history(store, state.history);
    if (!report.written || !report.dynamics.displacements_written || !report.dynamics.history_written)
        report.fail(RunStatus::failed, "a result file cannot be written");
    report.clock.end();
}

bool set_up(ModelStore& store, const Settings& settings, const ExplicitOptions& options, ExplicitState& state,
            RunReport& report) {
    try {
        return set_up_explicit(store, settings, options, state, report);
    } catch (const std::bad_alloc&) {
        report.fail(RunStatus::failed, "not enough memory for this model and its frames");
        store.results.resize(1, store.mesh.dof_num);
        return false;
    }
}

// The run that a window steps.
struct LiveRun {
    ExplicitState state;
    RunReport report;
    std::int64_t k = 1;
};

std::unique_ptr<LiveRun>& live_run() {
    static std::unique_ptr<LiveRun> run;
    return run;
}

}  // namespace

ExplicitOptions& explicit_options() {
    static ExplicitOptions options;
    return options;
}

RunReport run_explicit(ModelStore& store, const Settings& settings, const ExplicitOptions& options) {
    RunReport report;
    ExplicitState state;
    if (!set_up(store, settings, options, state, report)) return report;
    run_steps(store, state, report, 1, state.time_num);
    finish(store, settings, state, report);
    return report;
}

RunReport exec_explicit() {
    drop_explicit();
    return run_explicit(model_store(), settings(), explicit_options());
}

bool begin_explicit(RunReport& report) {
    live_run() = std::make_unique<LiveRun>();
    if (set_up(model_store(), settings(), explicit_options(), live_run()->state, live_run()->report))
        return true;
    report = live_run()->report;
    live_run().reset();
    return false;
}

void step_explicit(std::int64_t first, std::int64_t end, int* diverged) {
    LiveRun* run = live_run().get();
    if (!run) return;
    run_steps(model_store(), run->state, run->report, first, std::min(end, run->state.time_num));
    if (run->state.diverged) *diverged = 1;
}

RunReport finish_explicit() {
    RunReport report;
    if (LiveRun* run = live_run().get()) {
        finish(model_store(), settings(), run->state, run->report);
        report = run->report;
    }
    live_run().reset();
    return report;
}

void drop_explicit() {
    live_run().reset();
}

std::int64_t explicit_frame() {
    const LiveRun* run = live_run().get();
    return run ? run->k : 0;
}

bool advance_explicit(RunReport& report) {
    LiveRun* run = live_run().get();
    if (!run) return false;
    const ExplicitState& s = run->state;
    const std::int64_t k = run->k;
    int diverged = 0;
    step_explicit((k - 1) * s.output_frequency + 1, std::min(k * s.output_frequency + 1, s.time_num),
                  &diverged);
    if (!diverged) {
        run->k = k + 1;
        console::print(" ti_current = %lld\n", static_cast<long long>(run->k));
        if (run->k < s.out_time_num && run->report.status == RunStatus::done) return true;
    }
    report = finish_explicit();
    return false;
}

}  // namespace kestralum
