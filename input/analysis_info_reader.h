// Reads the analysis control file beside the model file: settings of the explicit and nonlinear
// analyses and the plastic constants of the materials.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "model/model.h"
#include "model/progress.h"
#include "model/remarks.h"

namespace kestralum {

enum class AnalysisInfoStatus {
    read,         // taken into the model
    missing,      // no such file; the settings in force stay
    not_control,  // its second token is not "explicit"; passed over, the settings in force stay
    wrong,        // cannot be read or used, `remarks.errors` has the reasons; the settings in force stay
};

struct AnalysisInfoReport {
    AnalysisInfoStatus status = AnalysisInfoStatus::missing;
    std::string file_name;
    Remarks remarks;
    // Where the reading ended: "END", another top-level token, or "" for the end of the file.
    std::string end_token;
    std::int64_t end_token_number = 0;
    bool ended_at_end = false;  // at END or with the file
};

// Reads the file that goes with model.model_file_name and prints the remarks. Changes model.control,
// explicit_tables and the materials' plastic constants, all or nothing; a stop that `progress` asks for is
// the error "stopped on request".
AnalysisInfoReport read_analysis_info_file(Model& model, Progress& progress);

// The same of a text that is at hand; the file is not looked for.
AnalysisInfoReport read_analysis_info_text(Model& model, std::string_view text, Progress& progress);

// Place of the last "." in the file's own name, -1 if there is none: folders do not count.
int last_dot(std::string_view model_file_name);

// The model file's name with ".ana" in place of what begins at last_dot().
std::string analysis_info_file_name(std::string_view model_file_name);

}  // namespace kestralum
