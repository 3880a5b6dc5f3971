// Reads the model file: text becomes the tables of a model, and the parts in force are meshed.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/model.h"
#include "model/progress.h"
#include "model/remarks.h"

namespace kestralum {

// A parameter given beside the file: `expression` takes the place of the one in the file's record
// when that is evaluated. A name that the file does not define is in the table from the start and
// stays there; its expression may use what the table holds then. Of two of one name the last counts.
struct ParameterOverride {
    std::string name, expression;
};

struct ModelReadReport {
    bool ok = false;  // false: `remarks.errors` gives the reasons, and the model is as it was
    Remarks remarks;
    // Sections that the file does not have and whose tables, an earlier model's, stay in force; also a
    // notice.
    std::vector<std::string> kept_sections;
    // Where the reading ended: "END", another top-level token, or "" for the end of the file.
    std::string end_token;
    std::int64_t end_token_number = 0;
    bool ended_at_end = false;                  // at END or with the file: no top-level token was left unread
    double read_seconds = 0, mesh_seconds = 0;  // wall clock
};

// Reads the file that model.model_file_name names (an empty name is asked for on the console) and prints
// the remarks. A section of the file replaces its table, the others stay; the mesh is always rebuilt. All or
// nothing; a stop that `progress` asks for is the error "stopped on request".
ModelReadReport read_input_file(Model& model, std::span<const ParameterOverride> overrides,
                                Progress& progress);

// The same of a text that is at hand: model.model_file_name is what remarks and results are named after, and
// no file of that name is opened.
ModelReadReport read_input_text(Model& model, std::string_view text,
                                std::span<const ParameterOverride> overrides, Progress& progress);

}  // namespace kestralum
