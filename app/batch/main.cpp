// kestralum-batch: the program on a command line.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <span>

#include "analysis/analysis_table.h"
#include "analysis/explicit/explicit_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "app/batch/batch_options.h"
#include "app/run_process.h"
#include "app/run_summary.h"
#include "input/settings_reader.h"
#include "model/console.h"
#include "model/paths.h"
#include "model/settings.h"
#include "results/result_file.h"
#include "results/vtu_file.h"

namespace {

using namespace kestralum;

enum ExitStatus { exit_done = 0, exit_incomplete = 1, exit_bad_input = 2 };

// Ctrl-C ends a run at its next counter, with its files in order; the third one ends it at once.
void stop_on_interrupt() {
    static volatile std::sig_atomic_t asked = 0;
    for (const int which : {SIGINT, SIGTERM})
        std::signal(which, [](int number) {
            console::request_cancel(true);
            asked = asked + 1;
            if (asked < 3) return;
            std::signal(number, SIG_DFL);
            std::raise(number);
        });
}

ExitStatus run_analysis(const BatchOptions& options, const ModelReadReport& model,
                        const AnalysisInfoReport& control) {
    StageClock clock;  // reading and meshing first: the peak of memory is theirs until the analysis begins
    clock.add("read", model.read_seconds);
    clock.add("mesh", model.mesh_seconds);
    explicit_options() = {options.probes, options.mean_dilatation};
    nonlinear_options() = {{}, options.probes};
    stop_on_interrupt();
    RunReport report = find_analysis(options.command)->run();
    for (const Stage& stage : report.clock.stages()) {
        constexpr double worth_telling = 1;  // seconds
        if (stage.name != "factor" || stage.seconds < worth_telling) continue;
        if (const std::string note = slow_kernels_note(); !note.empty())
            report.remarks.notices.push_back(note);
    }
    for (const Stage& stage : report.clock.stages()) clock.add(stage);
    report.clock = clock;
    std::string vtu;
    if (report.has_results() && options.vtu) {
        const bool steps = has_steps(model_store().ana_type);
        if (steps ? write_vtu_frames(model_store()) : write_vtu(model_store()))
            vtu = steps ? pvd_file_name(model_store()) : vtu_file_name(model_store());
        else
            report.fail(RunStatus::failed, "the file for ParaView cannot be written");
    }
    print_input_summary(model, control);
    print_run_summary(model_store(), report, vtu);
    for (const std::string& error : report.remarks.errors) console::error("%s", error.c_str());
    if (report.status == RunStatus::done) return exit_done;
    return report.status == RunStatus::bad_input ? exit_bad_input : exit_incomplete;
}

ExitStatus run(const BatchOptions& options) {
    console::set_lines_enabled(!options.quiet);
    paths::set_log_directory(options.log_directory);
    LogLock lock;
    if (options.command != "check" && !lock.take()) return exit_bad_input;
    if (read_setting_file(options.setting_file) == SettingsStatus::missing) return exit_bad_input;
    init_model_defaults();
    model_store().model_file_name = options.model_file;
    if (options.command == "check") console::set_lines_enabled(false);
    const ModelReadReport model = read_input_file(options.overrides);
    if (!model.ok) return exit_bad_input;
    const AnalysisInfoReport control = read_analysis_info_file();
    if (control.status == AnalysisInfoStatus::wrong) return exit_bad_input;
    if (options.command == "check") {
        print_check(model_store(), check_model(model_store(), settings()));
        print_input_summary(model, control);
        return exit_done;
    }
    return run_analysis(options, model, control);
}

}  // namespace

int main(int argc, char** argv) {
    const BatchOptions options =
        parse_batch_options(std::span(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0));
    if (!options.error.empty()) {
        console::error("kestralum-batch: %s (see kestralum-batch --help)", options.error.c_str());
        return exit_bad_input;
    }
    if (options.help) {
        console::summary("%s", batch_usage().c_str());
        return exit_done;
    }
    if (options.version) {
        console::summary("KESTRALUM %s\n", program_version);
        return exit_done;
    }
    if (options.command != "check") use_best_kernels(argv);
    ExitStatus status = exit_incomplete;
    try {
        status = run(options);
    } catch (const std::bad_alloc&) {
        release_held_results(model_store());
        console::error("not enough memory for this model");
    } catch (const std::exception& e) {
        release_held_results(model_store());
        console::error("%s", e.what());
    }
    if (std::fflush(stdout) != 0 && status == exit_done) {
        console::error("the standard output cannot be written: %s", std::strerror(errno));
        status = exit_incomplete;
    }
    return status;
}
