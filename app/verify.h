// Runs the cases of a verification folder and tells what they give against what is expected.
#pragma once

#include <string>

#include "model/progress.h"
#include "model/settings.h"

namespace kestralum {

struct VerifyOptions {
    std::string file_name;  // of the cases
    std::string only;       // cases whose names begin so; empty: all
    std::string log_folder;
};

enum class VerifyStatus { all_met, some_missed, bad_input, cancelled };

// One line per check on `progress`: case, check, target, got, error, "ok" or "MISSED"; what a case has none
// for is "shown". A case that cannot be run is missed, with the reason.
VerifyStatus verify(const VerifyOptions& options, const Settings& settings, Progress& progress);

}  // namespace kestralum
