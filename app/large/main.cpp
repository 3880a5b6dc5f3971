// kestralum-large: the program on many processes, for models that one cannot hold.
#include <omp.h>

#include <cblas.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <new>
#include <span>
#include <string>

#include "app/batch/batch_options.h"
#include "app/large/large_options.h"
#include "app/run_process.h"
#include "app/run_summary.h"
#include "input/model_reader.h"
#include "large/large_run.h"
#include "large/petsc.h"
#include "model/paths.h"
#include "results/vtu_file.h"
#include "system/stage_clock.h"

namespace {

using namespace kestralum;

enum ExitStatus { exit_done = 0, exit_incomplete = 1, exit_bad_input = 2 };

// mpirun hands a request to stop to every rank, and ends those by force that take longer than a second.
Progress* to_stop = nullptr;
void stop_on_interrupt(Progress& progress) {
    to_stop = &progress;
    for (const int which : {SIGINT, SIGTERM}) std::signal(which, [](int) { to_stop->cancel(); });
}

struct Input {
    Model model = placeholder_model();
    ModelReadReport read;
    AnalysisInfoReport control;
};

bool read_input(const LargeCommand& options, Input& input, Progress& progress) {
    input.model.model_file_name = options.model_file;
    input.read = read_input_file(input.model, options.overrides, progress);
    if (!input.read.ok) return false;
    input.control = read_analysis_info_file(input.model, progress);
    return input.control.status != AnalysisInfoStatus::wrong;
}

// The first rank reads alone, so that what is wrong is told once and a part file is meshed once; then the
// others.
bool read_everywhere(const Team& team, const LargeCommand& options, Settings& settings, Input& input,
                     Progress& progress) {
    const auto read = [&] {
        try {
            return start_up(options.setting_file, options.log_folder, settings, progress) &&
                   read_input(options, input, progress);
        } catch (const std::bad_alloc&) {
            progress.error("not enough memory for this model");
            return false;
        }
    };
    bool good = !team.first() || read();
    if (team.any(!good)) return false;
    if (!team.first()) good = read();
    return !team.any(!good);
}

void tell_ranks(const Team& team, const Run& run, Progress& progress) {
    double peak = 0;
    for (const Stage& stage : run.report.stages) peak = std::max(peak, stage.peak_megabytes);
    const double most = team.largest(peak), all = team.sum(peak);
    progress.summary("%-22s %d, largest memory of one %.1f MB, mean %.1f MB\n", "ranks", team.size(), most,
                     all / team.size());
}

// The list that ParaView opens, its stored name; empty where there is none. What a history has reached stays
// listed however it ends.
std::string list_for_paraview(const Model& model, const Run& run) {
    if (has_steps(run.ana_type))
        return run.report.listed_frames > 0 ? pvd_file_name(model.model_file_name) : std::string();
    return run.report.has_results() ? pvtu_file_name(model.model_file_name) : std::string();
}

ExitStatus run_analysis(const Team& team, const LargeCommand& command, Progress& progress) {
    Settings settings;
    Input input;
    if (!read_everywhere(team, command, settings, input, progress)) return exit_bad_input;
    settings.n_threads = 1;
    LargeOptions options;
    options.run.log_folder = command.log_folder;
    options.run.load_case = command.load_case;
    options.run.hexahedra = command.hexahedra;
    options.run.frames_on_disk = true;
    options.pieces = command.vtu;
    const Run run = analyse_large(team, command.analysis, input.model, settings, options, progress);
    if (team.first())
        print_run_summary({.model = input.model,
                           .run = run,
                           .read = &input.read,
                           .control = &input.control,
                           .vtu = command.vtu ? list_for_paraview(input.model, run) : std::string(),
                           .factor_files = {}},
                          progress);
    tell_ranks(team, run, progress);
    if (team.first())
        for (const std::string& error : run.report.remarks.errors) progress.error("%s", error.c_str());
    if (run.report.status == RunStatus::done) return exit_done;
    return run.report.status == RunStatus::bad_input ? exit_bad_input : exit_incomplete;
}

ExitStatus guarded_run(const LargeCommand& command, Progress& progress) {
    const Team team(MPI_COMM_WORLD);
    LogLock lock;
    const bool locked = !team.first() || lock.take(command.log_folder, progress);
    if (team.any(!locked)) return exit_bad_input;
    try {
        return run_analysis(team, command, progress);
    } catch (const std::bad_alloc&) {
        // the others may wait for a message of this rank
        std::fprintf(stderr, "not enough memory for this model on rank %d of %d\n", team.rank(), team.size());
        std::fflush(stderr);
        MPI_Abort(MPI_COMM_WORLD, exit_incomplete);
    }
    return exit_incomplete;
}

// What needs no team: false with a status where nothing is to be run.
bool is_run(const LargeCommand& command, ExitStatus& status) {
    ConsoleProgress progress;
    if (!command.error.empty()) {
        progress.error("kestralum-large: %s (see kestralum-large --help)", command.error.c_str());
        status = exit_bad_input;
    } else if (command.help) {
        progress.summary("%s", large_usage().c_str());
    } else if (command.version) {
        progress.summary("KESTRALUM %s\n", program_version);
    } else {
        return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const LargeCommand command = parse_large_command(std::span(argv, argc).subspan(argc > 0 ? 1 : 0));
    // a rank is one thread: cores are shared out by ranks
    omp_set_num_threads(1);
    take_buffers_where_limited();
    MPI_Init(&argc, &argv);
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    ExitStatus status = exit_done;
    if (rank == 0 || (command.error.empty() && !command.help && !command.version)) {
        if (is_run(command, status)) {
            openblas_set_num_threads(1);
            ConsoleProgress console(command.quiet);
            SilentProgress silent;
            Progress& progress = rank == 0 ? static_cast<Progress&>(console) : silent;
            stop_on_interrupt(progress);
            const PetscSession session;
            status = guarded_run(command, progress);
        }
    }
    int worst = status;
    MPI_Allreduce(MPI_IN_PLACE, &worst, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    std::fflush(stdout);
    MPI_Finalize();
    // one status for all: mpirun tells of a rank that ends with another as of a fault of the program
    return rank == 0 ? worst : 0;
}
