// Runs the cases of a verification folder and tells what they give against what is expected.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "app/verify_run.h"
#include "app/verify_select.h"
#include "model/progress.h"
#include "model/settings.h"

namespace kestralum {

struct VerifyOptions {
    std::string file_name;  // of the cases
    VerifyChoice choice;
    std::string log_folder;
    bool list = false;   // tells the cases and runs none
    std::string report;  // page to write; empty: none
    bool ccx = false;    // compares with CalculiX instead of the targets
};

// Among the names of cases: the observed orders of convergence (app/orders), with `-ANALYSIS` behind it those
// of one analysis, on fewer meshes with `quick`. Without other names no case is run.
inline constexpr const char* orders_word = "orders";

enum class VerifyStatus { all_met, some_missed, bad_input, cancelled, no_page };

// The source where it is another than that of the case before; then one line per check on `progress`: case,
// check, target, got, error, "ok" or "MISSED", tolerance, and beside the first check the seconds of the case.
// What a case has no target for is "shown", or "weak" where the formulation is known to be bad, which a line
// behind the checks explains. A case that cannot be run is missed, with the reason.
// With the observed orders a line per row behind the cases; one below theory is missed, and the page has a
// chapter of them.
// With CalculiX one line per static or modal case: what is compared, the largest difference and its limit.
VerifyStatus verify(const VerifyOptions& options, const Settings& settings, Progress& progress);

}  // namespace kestralum
