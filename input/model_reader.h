// Reads the model file: text becomes the tables of the store, and the parts in force are meshed.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "model/model_store.h"
#include "model/remarks.h"

namespace kestralum {

// A parameter given beside the file: `expression` takes the place of the one in the file's record
// when that is evaluated. A name that the file does not define is in the table from the start and
// stays there; its expression may use what the table holds then. Of two of one name the last counts.
struct ParameterOverride {
    std::string name, expression;
};

struct ModelReadReport {
    bool ok = false;  // false: `remarks.errors` says why, and the tables are as they were
    Remarks remarks;
    // Where the reading ended: "END", another top-level token, or "" for the end of the file.
    std::string end_token;
    std::int64_t end_token_number = 0;
    bool ended_at_end = false;                  // at END or with the file: no top-level token was left unread
    double read_seconds = 0, mesh_seconds = 0;  // wall clock
};

// Reads the file that the process-wide store names (asking for the name on the console where it is
// not known) and prints the remarks.
ModelReadReport read_input_file(std::span<const ParameterOverride> overrides = {});

// The same on any store, the remarks left to the caller. A section of the file replaces its table, the
// others stay; the mesh is always rebuilt and the results are sized for it and zeroed. All or nothing:
// with an error only the file name asked for and model_file_known may have changed.
ModelReadReport read_model_file(ModelStore& store, std::span<const ParameterOverride> overrides);

}  // namespace kestralum
