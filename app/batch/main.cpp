// kestralum-batch: the program on a command line.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "analysis/analysis_table.h"
#include "analysis/quantity_fields.h"
#include "app/batch/batch_options.h"
#include "app/export_model.h"
#include "app/program_path.h"
#include "app/run_process.h"
#include "app/run_summary.h"
#include "app/section_table.h"
#include "app/sweep.h"
#include "app/sweep_table.h"
#include "app/verify.h"
#include "input/starter_model.h"
#include "model/paths.h"
#include "results/displacement_file.h"
#include "results/frames_file.h"
#include "results/result_file.h"
#include "results/text_output.h"
#include "results/vtu_file.h"
#include "system/stage_clock.h"

namespace {

using namespace kestralum;

enum ExitStatus { exit_done = 0, exit_incomplete = 1, exit_bad_input = 2 };

// Ctrl-C asks the work to stop, with its files in order; the third one ends the program at once.
Progress* to_stop = nullptr;
void stop_on_interrupt(Progress& progress) {
    static volatile std::sig_atomic_t asked = 0;
    to_stop = &progress;
    for (const int which : {SIGINT, SIGTERM})
        std::signal(which, [](int number) {
            to_stop->cancel();
            asked = asked + 1;
            if (asked < 3) return;
            std::signal(number, SIG_DFL);
            std::raise(number);
        });
}

ExitStatus exit_status(RunStatus status) {
    if (status == RunStatus::done) return exit_done;
    return status == RunStatus::bad_input ? exit_bad_input : exit_incomplete;
}

struct Input {
    Model model = placeholder_model();
    ModelReadReport read;
    AnalysisInfoReport control;
    std::vector<Stage> stages;  // of reading
};

// False with a line where the model cannot be analysed.
bool read_input(const BatchOptions& options, Input& input, Progress& progress) {
    MemoryWatch memory;
    input.model.model_file_name = options.model_file;
    input.read = read_input_file(input.model, options.overrides, progress);
    if (!input.read.ok) {
        if (is_part_file(options.model_file) && !progress.cancelled())
            progress.error(
                "%s is a part: name it in a model file, or open it in the window, which writes one beside it",
                options.model_file.c_str());
        return false;
    }
    input.control = read_analysis_info_file(input.model, progress);
    const double peak = memory.take_peak();  // of both: the parts are meshed while the text is in memory
    input.stages = {{"read", input.read.read_seconds, peak}, {"mesh", input.read.mesh_seconds, peak}};
    return input.control.status != AnalysisInfoStatus::wrong;
}

// The file for ParaView, its stored name; empty where none is wanted or it cannot be written.
std::string write_for_paraview(const BatchOptions& options, const Model& model, Run& run,
                               Progress& progress) {
    if (!options.vtu || !run.report.has_results()) return {};
    const bool steps = has_steps(run.ana_type), was_stopped = progress.cancelled();
    if (run.report.dynamics.vtu_written) return pvd_file_name(model.model_file_name);  // frame by frame
    if (run.report.dynamics.vtu_failed) {
        run.report.fail(RunStatus::failed, "the file for ParaView cannot be written");
        return {};
    }
    const PointFields more = options.quantities ? quantity_fields(model, run.mesh) : PointFields{};
    if (steps ? write_vtu_frames(model, run, progress, more) : write_vtu(model, run, progress, more))
        return steps ? pvd_file_name(model.model_file_name) : vtu_file_name(model.model_file_name);
    if (progress.cancelled() && !was_stopped)
        run.report.fail(RunStatus::cancelled, "stopped on request");
    else
        run.report.fail(RunStatus::failed, "the file for ParaView cannot be written");
    return {};
}

// Notes and stages beside those of the analysis.
void complete_report(const Input& input, const std::string& replaced, RunReport& report) {
    constexpr double worth_telling = 1;  // seconds
    for (const Stage& stage : report.stages) {
        if (stage.name != "factor" || stage.seconds < worth_telling) continue;
        if (const std::string note = slow_kernels_note(); !note.empty())
            report.remarks.notices.push_back(note);
    }
    if (report.written && !replaced.empty()) report.remarks.notices.push_back(replaced);
    std::vector<Stage> stages = input.stages;
    for (const Stage& stage : report.stages) add_stage(stages, stage);
    report.stages = std::move(stages);
}

void tell_lines(const BatchOptions& options, const Model& model, Run& run, Progress& progress) {
    if (options.lines.empty() || !run.report.has_results()) return;
    if (write_lines(model, run, options.lines, progress))
        progress.summary(
            "lines                  %s\n",
            paths::to_platform(line_file_name(model.model_file_name), options.log_folder).c_str());
    else
        run.report.status = RunStatus::failed;
}

void tell_sections(const Model& model, Run& run, Progress& progress) {
    if (run.sections.empty() || !run.report.has_results()) return;
    print_sections(model, run, progress);
    if (write_sections(model, run, progress))
        progress.summary(
            "sections               %s\n",
            paths::to_platform(section_file_name(model.model_file_name), run.origin.options.log_folder)
                .c_str());
    else
        run.report.status = RunStatus::failed;
}

RunOptions run_options(const BatchOptions& options) {
    RunOptions out;
    out.log_folder = options.log_folder;
    out.probes = options.probes;
    out.sections = options.sections;
    out.mean_dilatation = options.mean_dilatation;
    out.hexahedra = options.hexahedra;
    out.load_case = options.load_case;
    out.prestress = options.prestress;
    out.vtu_frames = options.vtu && options.command == "explicit";
    out.vtu_quantities = options.quantities;
    out.keep_frames = options.keep_frames;
    out.frames_on_disk = true;  // nothing is shown
    out.checkpoint_seconds = options.checkpoint_seconds;
    out.restart = options.restart;
    return out;
}

ExitStatus run_analysis(const BatchOptions& options, const Settings& settings, const Input& input,
                        Progress& progress) {
    const AnalysisEntry& analysis = *find_analysis(options.command);
    const std::string replaced = replaced_results_note(input.model, analysis.type, options.log_folder);
    if (!replaced.empty()) progress.notice("%s", replaced.c_str());
    Run run = analysis.analyse(input.model, settings, run_options(options), progress);
    if (options.tidy) remove_factor_files(options.log_folder);
    complete_report(input, replaced, run.report);
    const std::string vtu = write_for_paraview(options, input.model, run, progress);
    print_run_summary({.model = input.model,
                       .run = run,
                       .read = &input.read,
                       .control = &input.control,
                       .vtu = vtu,
                       .factor_files = list_factor_files(options.log_folder)},
                      progress);
    tell_sections(input.model, run, progress);
    tell_lines(options, input.model, run, progress);
    for (const std::string& error : run.report.remarks.errors) progress.error("%s", error.c_str());
    return exit_status(run.report.status);
}

ExitStatus check(const BatchOptions& options, const Settings& settings) {
    ConsoleProgress progress(true);  // without the echo of the model
    stop_on_interrupt(progress);
    Input input;
    if (!read_input(options, input, progress)) return progress.cancelled() ? exit_incomplete : exit_bad_input;
    const ModelCheck found = check_model(input.model, settings, progress);
    if (progress.cancelled()) {
        progress.error("stopped on request");
        return exit_incomplete;
    }
    print_check(input.model, found, progress);
    print_input_summary(input.read, input.control, progress);
    return exit_done;
}

ExitStatus export_to_file(const BatchOptions& options, const Settings& settings) {
    ConsoleProgress progress(true);  // without the echo of the model
    stop_on_interrupt(progress);
    Input input;
    if (!read_input(options, input, progress)) return progress.cancelled() ? exit_incomplete : exit_bad_input;
    const RunStatus status = export_model(input.model, settings, options.export_file, progress);
    if (status == RunStatus::done) print_input_summary(input.read, input.control, progress);
    return exit_status(status);
}

// The result files of the frames that a run left which did not come to its end.
ExitStatus convert_frames(const BatchOptions& options, const Settings& settings) {
    ConsoleProgress progress(true);  // without the echo of the model
    stop_on_interrupt(progress);
    auto stored = read_frames_file(options.model_file, options.log_folder, progress);
    if (!stored) return progress.cancelled() ? exit_incomplete : exit_bad_input;
    auto& [model, run] = *stored;
    model.model_file_name = run.origin.model_file_name;
    run.origin.settings = settings;
    const std::string history = history_file_name(model.model_file_name);
    if (!write_results(model, run, run.mode_num(), Publish::now, progress) ||
        !write_displacements(model, run, progress) ||
        !write_history(history, options.log_folder, run.history, progress) ||
        (options.vtu && !write_vtu_frames(model, run, progress)))
        return exit_incomplete;
    for (const std::string& note : run.report.remarks.notices) progress.summary("note: %s\n", note.c_str());
    progress.summary("%-22s %d, up to %.6e s\n", "frames", run.mode_num(), run.results.back()->n_freq);
    const auto file = [&](const char* what, const std::string& name) {
        progress.summary("%-22s %s\n", what, paths::to_platform(name, options.log_folder).c_str());
    };
    file("results", result_file_name(model.model_file_name));
    file("displacements", displacement_file_name(model.model_file_name));
    file("history", history);
    if (options.vtu) file("for ParaView", pvd_file_name(model.model_file_name));
    return exit_done;
}

// Whether a word that looks like a file is none, and a case of the file has it for a name.
bool is_case_name(const std::string& word, const std::string& cases_file) {
    std::error_code fault;
    if (word.empty() || std::filesystem::exists(paths::to_platform(word), fault)) return false;
    Remarks unheard;
    return std::ranges::any_of(read_verify_cases(cases_file, unheard),
                               [&](const VerifyCase& one) { return is_meant(one.name, word); });
}

ExitStatus run_verify(const BatchOptions& options, const Settings& settings, Progress& progress) {
    stop_on_interrupt(progress);
    const std::string shipped = shared_file("verify/cases.txt");
    const bool named = is_case_name(options.model_file, shipped);
    const std::string file = named || options.model_file.empty() ? shipped : options.model_file;
    VerifyChoice choice{options.case_names, options.only, options.quick};
    if (named) choice.names.insert(choice.names.begin(), options.model_file);
    std::setvbuf(stdout, nullptr, _IOLBF, 1 << 16);  // who reads along sees each case as it ends
    const VerifyStatus status = verify({.file_name = file,
                                        .choice = std::move(choice),
                                        .log_folder = options.log_folder,
                                        .list = options.list,
                                        .report = options.report,
                                        .ccx = options.peer == "ccx"},
                                       settings, progress);
    if (status == VerifyStatus::bad_input) return exit_bad_input;
    return status == VerifyStatus::all_met ? exit_done : exit_incomplete;
}

// The table at the end and its file; false with a line where that cannot be written.
bool write_sweep(const SweepPlan& plan, std::span<const SweepRow> rows, Progress& progress) {
    const std::vector<std::string> names = axis_names(plan.axes);
    progress.summary("%s", sweep_table(names, rows).c_str());
    const std::string target = sweep_file_name(plan.base.model_file_name);
    const std::string fault = write_whole(
        target, plan.options.log_folder, [&](TextOutput& file) { file.write(sweep_csv(names, rows)); },
        progress);
    if (fault.empty())
        progress.summary("%-22s %s\n", "table", paths::to_platform(target, plan.options.log_folder).c_str());
    else
        progress.error("%s", fault.c_str());
    return fault.empty();
}

ExitStatus end_sweep(const SweepPlan& plan, const SweepOutcome& outcome, Progress& progress) {
    if (outcome.status == SweepStatus::bad_input) return exit_bad_input;
    if (outcome.status == SweepStatus::cancelled)
        progress.error("stopped on request: %zu of %zu runs are done", outcome.rows.size(), plan.runs());
    if (outcome.rows.empty()) return exit_incomplete;  // an earlier table stays
    const bool written = write_sweep(plan, outcome.rows, progress);
    if (outcome.status == SweepStatus::some_failed)
        progress.error("%lld of %zu runs failed",
                       static_cast<long long>(std::ranges::count_if(
                           outcome.rows, [](const SweepRow& row) { return row.status != RunStatus::done; })),
                       plan.runs());
    return written && outcome.status == SweepStatus::all_done ? exit_done : exit_incomplete;
}

ExitStatus sweep(const BatchOptions& options, const Settings& settings, Progress& progress) {
    SweepPlan plan;
    plan.base = placeholder_model();
    plan.base.model_file_name = options.model_file;
    plan.analysis = find_analysis(options.command);
    plan.axes = options.sweep;
    plan.overrides = options.overrides;
    plan.options = run_options(options);
    plan.settings = settings;
    const auto show = [&](const SweepRow& row) {
        progress.print("%s\n", sweep_line(plan, row).c_str());
        std::fflush(stdout);
    };
    return end_sweep(plan, run_sweep(plan, show, progress), progress);
}

// Needs no log folder to itself: a sweep's runs have folders of their own, a list of cases runs none.
bool shares_log_folder(const BatchOptions& options) {
    return !options.sweep.empty() || options.list || options.command == "check" ||
           options.command == "export";
}

ExitStatus run(const BatchOptions& options, Progress& progress) {
    Settings settings;
    if (!start_up(options.setting_file, options.log_folder, settings, progress)) return exit_bad_input;
    if (options.command == "check") return check(options, settings);
    if (options.command == "export") return export_to_file(options, settings);
    if (options.command == "frames") return convert_frames(options, settings);
    if (options.command == "verify") return run_verify(options, settings, progress);
    stop_on_interrupt(progress);
    if (!options.sweep.empty()) return sweep(options, settings, progress);
    Input input;
    if (!read_input(options, input, progress)) return progress.cancelled() ? exit_incomplete : exit_bad_input;
    if (const LineRequest* line = without_set(input.model.mesh, options.lines)) {
        progress.error("--line: the model has no set '%s'", line->set.c_str());
        return exit_bad_input;
    }
    return run_analysis(options, settings, input, progress);
}

// With the log folder to itself; what cannot be foreseen, memory above all, is told like everything else.
ExitStatus guarded_run(const BatchOptions& options, Progress& progress) {
    LogLock lock;
    if (!shares_log_folder(options) && !lock.take(options.log_folder, progress)) return exit_bad_input;
    try {
        return run(options, progress);
    } catch (const std::bad_alloc&) {
        progress.error("not enough memory for this model");
    } catch (const std::exception& e) {
        progress.error("%s", e.what());
    }
    if (!shares_log_folder(options) && options.command != "frames")
        release_held_results(options.model_file, options.log_folder);
    return exit_incomplete;
}

}  // namespace

int main(int argc, char** argv) {
    const BatchOptions options = parse_batch_options(std::span(argv, argc).subspan(argc > 0 ? 1 : 0));
    ConsoleProgress progress(options.quiet);
    if (!options.error.empty()) {
        progress.error("kestralum-batch: %s (see kestralum-batch --help)", options.error.c_str());
        return exit_bad_input;
    }
    if (options.help) {
        progress.summary("%s", batch_usage().c_str());
        return exit_done;
    }
    if (options.version) {
        progress.summary("KESTRALUM %s\n", program_version);
        return exit_done;
    }
    if (!shares_log_folder(options) || !options.sweep.empty()) use_best_kernels(argv);
    ExitStatus status = guarded_run(options, progress);
    if (std::fflush(stdout) != 0 && status == exit_done) {
        progress.error("the standard output cannot be written: %s", std::strerror(errno));
        status = exit_incomplete;
    }
    return status;
}
