// Which cases of a verification folder are run.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "app/verify_cases.h"

namespace kestralum {

struct VerifyChoice {
    std::vector<std::string> names;  // of cases; NAME* is all that begin so; empty: all
    std::string only;                // cases whose names begin so; empty: all
    bool quick = false;              // without the long ones
};

struct SelectedCase {
    const VerifyCase* is = nullptr;
    bool judged = true;  // else run for the values that checks of later ones refer to
};

struct VerifySelection {
    std::vector<SelectedCase> cases;  // in the order of the file
    int judged = 0, left_out = 0;     // left out: long ones
    std::string error;                // a name that no case has; no case at all
};

// Whether a word on the command line means the case: its name, or NAME* where its name begins so.
bool is_meant(const std::string& name, const std::string& word);

VerifySelection select_cases(std::span<const VerifyCase> cases, const VerifyChoice& choice);

}  // namespace kestralum
