// Lanczos' recurrence with (K - σM)⁻¹ M in the M inner product, every vector made orthogonal to all former
// ones.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/eigen/basis.h"
#include "analysis/eigen/eigen_problem.h"

namespace kestralum {

struct Ritz {
    double theta, residual;  // |β s| / |θ|
    std::vector<double> s;   // coordinates in the basis
};

// One run, orthogonal to the vectors found before.
class Recurrence {
public:
    // Borrows both. room: for so many vectors at first.
    Recurrence(EigenProblem& problem, Basis& found, std::int32_t room);

    // Starts from v. False when nothing of it is left beside what was found.
    bool start(std::vector<double> v);
    // One step: α and β. False with the report's status set when the solve fails.
    bool step();

    bool exhausted() const { return exhausted_; }  // the space is invariant: β is rounding
    std::int32_t steps() const { return static_cast<std::int32_t>(alpha_.size()); }
    const std::vector<double>& alpha() const { return alpha_; }
    const std::vector<double>& beta() const { return beta_; }
    // Eigenpairs of the tridiagonal matrix, ascending in θ.
    std::vector<Ritz> ritz() const;
    // V s for each pair: n × pairs.
    std::vector<double> vectors(std::span<const Ritz> pairs) const;

private:
    double size_of_w() const;
    double orthogonalise();
    void take(double size);

    EigenProblem& problem_;
    Basis& found_;
    Basis basis_;
    std::vector<double> v_, Mv_, w_, Mw_, alpha_, beta_;
    bool exhausted_ = false;
};

}  // namespace kestralum
