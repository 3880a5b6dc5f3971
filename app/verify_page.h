// The verification manual: what the cases gave, as one HTML file that stands for itself.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "app/verify_run.h"

namespace kestralum {

// The cases of one problem, in all elements, formulations and meshes.
struct VerifyFamily {
    std::string name;
    std::vector<const CaseOutcome*> cases;
    std::string words;  // what the comments before the model say of the problem
    std::string png;    // its picture; empty: none

    // Whose picture stands for it: the first that has options for one, else the first.
    const VerifyCase& drawn() const;
};

// In the order of their first cases. Reads the comments of the models.
std::vector<VerifyFamily> families_of(std::span<const CaseOutcome> outcomes);

struct VerifyPage {
    std::string cases_file, date;
    int left_out = 0;         // long cases
    std::string no_pictures;  // why there are none; empty: there are
    std::vector<VerifyFamily> families;
    std::string orders;  // chapter of the observed orders, HTML; empty: not asked for
};

// The same bytes for the same outcomes and date: no times, no folders of this machine.
std::string verify_html(const VerifyPage& page);

}  // namespace kestralum
