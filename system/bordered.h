// Systems whose matrix is the sparse block of the free nodes beside the dense border of the rigid bodies:
//
//     A = | Aff  Afr |     Aff  sparse, its factor as without bodies
//         | Arf  Arr |     Afr, Arr  dense, in memory; nf free, nr rigid equations
//
// Elimination of Aff leaves the Schur complement S = Arr - Arf Aff⁻¹ Afr, factored dense with pivoting.
// Golub and Van Loan, Matrix Computations, 3rd ed. 1996, 3.2; inertia after Haynsworth (Linear Algebra
// Appl. 1, 1968): negative eigenvalues of A = those of Aff plus those of S.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "conditions/constraints.h"
#include "conditions/rigid_bodies.h"
#include "solver/sparse.h"
#include "system/factorization.h"

namespace kestralum {

// Values of the border of [K] and [M]. fr: nf × nr, column after column; rr: nr × nr, row-major.
struct Border {
    std::int32_t nf = 0, nr = 0;
    std::vector<double> K_fr, K_rr, M_fr, M_rr;
};

// Takes the members of rigid bodies out of the numbering; per equation of before its new one, -1: of a
// member.
std::vector<std::int32_t> leave_members_out(const RigidSystem& rigid, DofNumbering& numbering);

// Takes the members out of the reduced [K] and [M] (rows: numbering.free_dofs) into the border: TᵀKT and TᵀMT
// with u_member = v + ω × r at the states (null: at rest). km and numbering keep the nodes of no body.
// `with_mass` false leaves the M parts empty.
void rigid_transform(const RigidSystem& rigid, std::span<const RigidState> states, const Mesh& mesh,
                     bool with_mass, SparseKM& km, DofNumbering& numbering, Border& border);

// The border alone, for values assembled anew on the pattern that rigid_transform() has taken apart: km is
// the full pattern before it, free_dofs its rows, equation[row] the row's free equation or -1 for a member.
void fill_border(const RigidSystem& rigid, std::span<const RigidState> states, const Mesh& mesh,
                 const SparseKM& km, std::span<const std::int32_t> free_dofs,
                 std::span<const std::int32_t> equation, bool with_mass, Border& border);

// Adds factor times border to the products of the sparse block: y (nf + nr) += [0 Afr; Arf Arr] x, k columns.
void multiply_border(const Border& border, std::span<const double> fr, std::span<const double> rr,
                     std::span<const double> x, std::span<double> y, std::int32_t k);

// Factor of a bordered matrix.
class BorderedFactor {
public:
    // free: the factor of Aff, null where nf = 0.
    BorderedFactor(std::unique_ptr<Factor> free, std::int32_t nf, std::int32_t nr)
        : free_(std::move(free)), nf_(nf), nr_(nr) {}

    // Factors with the lines of run_factorization(); false with its status. fr, rr as in Border; rr need not
    // be symmetric.
    // Lines go to `progress`.
    bool factor(Job& job, Progress& progress, const SparseKM& km, std::span<const double> values,
                std::span<const double> fr, std::span<const double> rr);

    // Solves in place, x: (nf + nr) × k, column after column. False with status failed or cancelled.
    bool solve(Job& job, std::span<double> x, std::int32_t k = 1);

    // await_factor_file()
    bool await_file(Job& job) { return !free_ || await_factor_file(job, *free_); }

    std::int32_t nf() const { return nf_; }
    std::int32_t nr() const { return nr_; }
    std::int64_t negative_pivots() const;
    // The smallest eigenvalue of S, scaled to the diagonal of Arr, is below 1e-12: a motion of the bodies
    // that nothing resists. `rr`: the diagonal's source.
    bool has_free_motion(std::span<const double> rr) const;
    // The smallest size of an eigenvalue of the scaled S; infinity without bodies.
    double smallest_scaled(std::span<const double> rr) const;
    Factor* free() const { return free_.get(); }

private:
    // `block`: of an iteration, see Factor::solve_block().
    bool solve_free(Job& job, std::span<double> x, std::int32_t k, bool block);
    std::unique_ptr<Factor> free_;
    std::int32_t nf_, nr_;
    std::vector<double> X_;   // Aff⁻¹ Afr: nf × nr
    std::vector<double> fr_;  // Afr
    std::vector<double> S_;   // row-major, symmetric part kept for the inertia
    std::vector<double> LU_;  // of S, column-major
    std::vector<int> pivots_;
};

}  // namespace kestralum
