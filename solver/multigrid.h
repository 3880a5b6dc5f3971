// Conjugate gradients preconditioned by multigrid of smoothed aggregation, for positive definite systems of
// elasticity: memory and time grow with the number of equations, where a factor's grow faster.
//
// Aggregates of nodes move as rigid bodies on the level below (Vanek, Mandel and Brezina, 1996); Chebyshev
// smoothing on blocks of a node (Adams, Brezina, Hu and Tuminaro, 2003); a dense factor on the last level.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "model/progress.h"
#include "solver/conjugate_gradients.h"
#include "solver/padded_equations.h"

namespace kestralum {

struct MultigridOptions {
    // Connections weaker than this share of their nodes' diagonals join no aggregates. Ten-node tetrahedra
    // take fewer iterations with 0.05.
    double threshold = 0.02;
    double most_complexity = 2.5;  // operator_complexity() above which weaker connections are taken too
    std::int32_t coarsest = 1200;  // most rows of the dense level
};

// The result is the same to the last bit for any number of threads. No exception leaves an object.
class Multigrid {
public:
    explicit Multigrid(const MultigridOptions& options = {});
    ~Multigrid();
    Multigrid(Multigrid&&) noexcept;
    Multigrid& operator=(Multigrid&&) noexcept;

    // Makes the levels for the symmetric matrix `values` on km's pattern. Borrows km and values for solve();
    // the places only while it runs. Any status but ok: error() says why and nothing can be solved. A matrix
    // that is not positive definite is not always seen here.
    SolveStatus set_up(const SparseKM& km, std::span<const double> values, const EquationPlaces& places,
                       int threads, const Progress* progress = nullptr);

    // Solves A x = b from x = 0: b in, x out. ok: the residual, computed anew from A x and not carried along,
    // is within the tolerance, or is as small as the rounding of A x lets it be (rounded() tells). On
    // `stalled` x is the last that was found, with its residual(); else it has no meaning.
    SolveStatus solve(std::span<double> x, const IterationLimits& limits = {},
                      const Progress* progress = nullptr);

    // One cycle, x := about A⁻¹ x, on k columns one after the other (n × k): a symmetric positive definite
    // operator, within single precision and for every column within rounding the same.
    SolveStatus precondition(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr);

    std::string error() const;
    int iterations() const;              // of the last solve
    double residual() const;             // of the last solve, ‖b - A x‖ / ‖b‖
    bool rounded() const;                // the last solve ended at the limit of rounding, above the tolerance
    int levels() const;                  // the dense one included
    double operator_complexity() const;  // entries of all levels' matrices over those of the first
    double megabytes() const;            // that the object holds; solve() takes six vectors more

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace kestralum
