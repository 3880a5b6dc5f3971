// What every process that runs analyses does for itself.
#pragma once

#include <string>
#include <string_view>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"
#include "model/settings.h"

namespace kestralum {

// One run at a time in a log folder.
class LogLock {
public:
    LogLock() = default;
    ~LogLock();
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

    // Makes the folder and takes its lock, kept until the object ends. False with a line when another
    // run holds it or the folder cannot be used.
    bool take(std::string_view log_folder, Progress& progress);

private:
    int file_ = -1;
};

// Starts the program again with the matrix kernels that this processor deserves; goes on as it is
// where that is not needed, not possible, or the environment has chosen. Then as
// take_buffers_where_limited().
void use_best_kernels(char** argv);

// Where address space is limited the matrix library takes all its buffers here, for as many threads as OpenMP
// has by default: in the middle of a run it would wait for one for ever.
void take_buffers_where_limited();

// Reads the settings, makes the log folder and prints the banner. False where there are no settings, with the
// hint where there is one.
bool start_up(std::string_view setting_file, std::string_view log_folder, Settings& settings,
              Progress& progress);

// Where there are no settings: a command that makes a folder with some; empty where it is not installed
// beside the program.
std::string missing_settings_hint();

// What to tell the user where the environment has chosen slower kernels; otherwise empty.
std::string slow_kernels_note();

// What to tell the user before an analysis of this type replaces the model's result file in the log folder:
// that the file holds another analysis, a model of another size or no results of this program. Empty where
// there is no such file or it holds an earlier run of the same. Reads the end of the file only.
std::string replaced_results_note(const Model& model, AnalysisType type, std::string_view log_folder);

}  // namespace kestralum
