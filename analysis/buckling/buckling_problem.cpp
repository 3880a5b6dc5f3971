#include "analysis/buckling/buckling_problem.h"

#include <cmath>

namespace kestralum {

bool BucklingProblem::operate(std::span<const double> V, std::span<const double> BV, std::vector<double>& W,
                              std::int32_t k) {
    if (shifted_) return ShiftedPencil::operate(V, BV, W, k);
    W.resize(V.size());
    multiply_k(V, W, k);
    return solve(W, k);
}

bool BucklingProblem::shift(double& s, std::int64_t& negative) {
    constexpr double moved = 0.97;
    constexpr int attempts = 8;
    for (int k = 0; k < attempts; ++k, s *= moved) {
        progress().print("Load factor of the shift=%e\n", s);
        SilentProgress silent(progress());  // negative pivots are counted, no warning
        if (!factor_shifted(-1 / s, silent)) return false;
        job_.clock.begin("iterate");
        shifted_ = true;
        if (!pivots_sound()) continue;
        negative = factor_->negative_pivots();
        return true;
    }
    return job_.fail(RunStatus::failed, "no shift makes the matrix of the buckling problem sound");
}

}  // namespace kestralum
