// The parameters as a model file defines them, without reading the rest of it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/progress.h"

namespace kestralum {

struct FileParameter {
    std::string name, expression;
};

// Those of the parameter section that holds, the last one, in its order; a name may stand twice, the first
// then counts. `error`: why the file cannot be read, empty if it can. Ends early where `progress` asks to
// stop.
std::vector<FileParameter> file_parameters(const std::string& model_file_name, std::string& error,
                                           const Progress& progress);

// The same of a text that is at hand.
std::vector<FileParameter> text_parameters(std::string_view text, const Progress& progress);

}  // namespace kestralum
