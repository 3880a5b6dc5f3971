// Lanczos' method for the load factors of linear buckling.
#pragma once

#include "analysis/buckling/buckling_problem.h"

namespace kestralum {

struct LoadFactors {
    std::vector<double> factor;   // ascending, above zero
    std::vector<double> vectors;  // n × count, K-orthonormal
    bool all = false;             // there are no more above zero
    double reversed = 0;          // the factor below zero that is nearest to it, or its estimate; 0: none
};

// Finds the smallest n_mode load factors above zero and a few more, and checks their number against the
// negative pivots of K + λG in a gap above n_mode; starts again, orthogonal to what was found, while copies
// of multiple ones are missing. Fewer where there are no more. report.buckling has the outcome of the check.
// False with the report's status set; failed where no factor is above zero.
bool find_load_factors(BucklingProblem& problem, std::int32_t n_mode, LoadFactors& out);

}  // namespace kestralum
