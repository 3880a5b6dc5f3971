// Systems whose rows lie on the ranks of a team: conjugate gradients with smoothed-aggregation multigrid
// (Vaněk, Mandel and Brezina, Computing 56, 1996; PETSc's GAMG), or the direct factor of MUMPS (Amestoy,
// Duff, L'Excellent and Koster, SIAM J. Matrix Anal. Appl. 23, 2001) for what that cannot solve.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "large/equations.h"
#include "large/petsc.h"

namespace kestralum {

enum class LargeMethod { multigrid, direct };

class LargeSolver {
public:
    // tolerance: ‖f - A x‖ / ‖f‖ of the multigrid's solutions.
    LargeSolver(const Team& team, Job& job, LargeMethod method, double tolerance);

    // Borrows the matrix, which is symmetric. Collective, like all that follows; false with the status set.
    bool set_up(Mat matrix);
    // Solves for the rows of this rank, in place. Goes on with the direct factor where the iteration stalls
    // or meets a direction of no positive energy.
    bool solve(std::span<double> x);

    LargeMethod method() const { return method_; }
    int iterations() const { return iterations_; }  // the most of a column
    double residual() const { return residual_; }   // the largest true one, ‖f - A x‖ / ‖f‖
    // Of the direct factor; 0 of the multigrid's, whose matrix is positive.
    std::int64_t negative_pivots() const { return negative_pivots_; }
    // Looks for a direction of negative energy where the solutions so far have met none: the iteration solves
    // for a right-hand side that has a part in every direction; where it cannot, the direct factor is made
    // and takes over. Collective; false with the status set.
    bool look_for_negative();
    double tolerance() const { return tolerance_; }
    // y := A x, owned rows.
    void multiply(std::span<const double> x, std::span<double> y) const;
    // "conjugate gradients with multigrid, 18 iterations"
    std::string outcome() const;

private:
    bool set_up_direct();
    bool take_direct(const std::string& why);
    bool iterate(Vec f, Vec x, double& residual, int& iterations);
    double rounding(Vec f, Vec x) const;
    double true_residual(Vec f, Vec x, Vec left);

    const Team& team_;
    Job& job_;
    LargeMethod method_;
    double tolerance_;
    Mat matrix_ = nullptr;
    PetscKsp ksp_;
    int iterations_ = 0;
    double residual_ = 0;
    std::int64_t negative_pivots_ = 0;
    bool rounded_ = false;
    bool taken_ = false;  // the direct factor, in place of the iteration
};

// A system with the border of rigid bodies: [Aff Afr; Arf Arr], Aff behind `solver`; S = Arr - Arf Aff⁻¹ Afr
// is the same on every rank (compare system/bordered.h). Arr need not be symmetric.
class LargeBordered {
public:
    // Borrows the solver, which has been set up, and the border. Solves one column per motion of the bodies.
    LargeBordered(const Team& team, Job& job, LargeSolver& solver, const PieceBorder& border);
    bool prepare();
    // f: owned rows; g: the bodies' equations, the same on every rank. In place; refined until the residual
    // of the whole system is that of the solver's.
    bool solve(std::span<double> f, std::span<double> g);
    double residual() const { return residual_; }  // the largest of the whole system, |F - K q|/|F|
    // Smallest eigenvalue of S's symmetric part, scaled to the diagonal of Arr, below 1e-12: a motion that
    // nothing resists.
    bool has_free_motion() const { return free_motion_; }
    std::int64_t negative() const { return negative_; }

private:
    bool eliminate(std::span<double> f, std::span<double> g);
    bool reduce_border();
    void solve_border(std::span<double> g) const;
    double left_over(std::span<const double> f, std::span<const double> g, std::span<double> x,
                     std::span<double> y);

    const Team& team_;
    Job& job_;
    LargeSolver& solver_;
    const PieceBorder& border_;
    std::vector<double> X_;           // Aff⁻¹ Afr
    std::vector<double> V_, values_;  // of the scaled S: eigenvectors, eigenvalues
    std::vector<double> scale_;       // 1/√(diagonal of Arr)
    bool symmetric_ = true;           // of Arr
    std::vector<double> LU_;          // of the scaled S where it is not, column-major
    std::vector<int> pivots_;
    double residual_ = 0;
    bool free_motion_ = false;
    std::int64_t negative_ = 0;
};

}  // namespace kestralum
