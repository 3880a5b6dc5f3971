#include "system/job.h"

namespace kestralum {

void begin_run(Run& run, const Model& model, const Settings& settings, const RunOptions& options,
               AnalysisType type, const char* batch_word) {
    run.ana_type = type;
    run.origin.model_file_name = model.model_file_name;
    run.origin.analysis = batch_word;
    run.origin.time = std::chrono::system_clock::now();
    run.origin.settings = settings;
    run.origin.options = options;
}

}  // namespace kestralum
