#include "system/bordered.h"

#include <cblas.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "solver/dense_eigen.h"
#include "solver/lapack_lu.h"

namespace kestralum {

namespace {

// The row of T of one member degree of freedom: its part in each motion of the body.
struct MemberRows {
    std::vector<Motions> motions;  // per body, at its state
    const RigidSystem& rigid;
    std::span<const RigidState> states;
    const Mesh& mesh;

    const RigidBody& body(std::int32_t node) const { return rigid.bodies[rigid.body_of_node[node]]; }
    bool is_member(std::int32_t dof) const { return rigid.body_of_node[dof / 3] >= 0; }

    std::array<double, 6> row(std::int32_t dof) const {
        const std::int32_t node = dof / 3;
        const std::size_t b = rigid.body_of_node[node];
        const RigidBody& of = rigid.bodies[b];
        Vec3 arm;
        for (std::size_t c = 0; c < 3; ++c) arm[c] = mesh.coordinates[3 * node + c] - of.pivot[c];
        if (!states.empty()) arm = turned(states[b].R, arm);
        std::array<double, 6> t{};
        for (std::size_t k = 0; k < motions[b].size(); ++k) {
            const Vec6& m = motions[b][k];
            t[k] = m[dof % 3] + cross({m[3], m[4], m[5]}, arm)[dof % 3];
        }
        return t;
    }
};

MemberRows member_rows(const RigidSystem& rigid, std::span<const RigidState> states, const Mesh& mesh) {
    MemberRows out{{}, rigid, states, mesh};
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b)
        out.motions.push_back(current_motions(rigid.bodies[b], states.empty() ? RigidState{} : states[b]));
    return out;
}

}  // namespace

void fill_border(const RigidSystem& rigid, std::span<const RigidState> states, const Mesh& mesh,
                 const SparseKM& km, std::span<const std::int32_t> free_dofs,
                 std::span<const std::int32_t> equation, bool with_mass, Border& border) {
    border.nr = rigid.equations;
    border.nf = static_cast<std::int32_t>(
        std::count_if(equation.begin(), equation.end(), [](std::int32_t e) { return e >= 0; }));
    const std::size_t nf = border.nf, nr = border.nr;
    border.K_fr.assign(nf * nr, 0.0);
    border.K_rr.assign(nr * nr, 0.0);
    if (with_mass) {
        border.M_fr.assign(nf * nr, 0.0);
        border.M_rr.assign(nr * nr, 0.0);
    }
    const MemberRows members = member_rows(rigid, states, mesh);
    std::vector<std::array<double, 6>> rows(free_dofs.size());
    for (std::size_t r = 0; r < rows.size(); ++r)
        if (equation[r] < 0) rows[r] = members.row(free_dofs[r]);
    for (std::size_t r = 0; r < rows.size(); ++r) {
        if (equation[r] >= 0) continue;
        const RigidBody& a = members.body(free_dofs[r] / 3);
        const std::size_t first_a = a.first, count_a = a.count();
        for (std::int64_t e = km.row_start[r]; e < km.row_start[r] + km.row_count[r]; ++e) {
            const std::size_t at = e;
            const std::size_t column = km.col_index[at];
            const double k = km.K_value[at], m = with_mass ? km.M_value[at] : 0;
            if (equation[column] >= 0) {  // Afr, as the transpose of this row
                for (std::size_t i = 0; i < count_a; ++i) {
                    const std::size_t to = (first_a + i) * nf + equation[column];
                    border.K_fr[to] += k * rows[r][i];
                    if (with_mass) border.M_fr[to] += m * rows[r][i];
                }
                continue;
            }
            const RigidBody& b = members.body(free_dofs[column] / 3);
            for (std::size_t i = 0; i < count_a; ++i)
                for (std::size_t j = 0; j < b.motions.size(); ++j) {
                    const std::size_t to = (first_a + i) * nr + b.first + j;
                    border.K_rr[to] += rows[r][i] * k * rows[column][j];
                    if (with_mass) border.M_rr[to] += rows[r][i] * m * rows[column][j];
                }
        }
    }
}

std::vector<std::int32_t> leave_members_out(const RigidSystem& rigid, DofNumbering& numbering) {
    std::vector<std::int32_t> equation(numbering.free_dofs.size(), -1), left;
    for (std::size_t r = 0; r < equation.size(); ++r) {
        const std::int32_t dof = numbering.free_dofs[r];
        if (rigid.body_of_node[dof / 3] >= 0) {
            numbering.dof_map[dof] = -1;
            continue;
        }
        equation[r] = static_cast<std::int32_t>(left.size());
        numbering.dof_map[dof] = equation[r];
        left.push_back(dof);
    }
    numbering.free_dofs = std::move(left);
    return equation;
}

void rigid_transform(const RigidSystem& rigid, std::span<const RigidState> states, const Mesh& mesh,
                     bool with_mass, SparseKM& km, DofNumbering& numbering, Border& border) {
    const std::vector<std::int32_t> before = numbering.free_dofs,
                                    equation = leave_members_out(rigid, numbering);
    fill_border(rigid, states, mesh, km, before, equation, with_mass, border);
    keep_rows(equation, km);
}

void multiply_border(const Border& border, std::span<const double> fr, std::span<const double> rr,
                     std::span<const double> x, std::span<double> y, std::int32_t k) {
    const int nf = border.nf, nr = border.nr, n = nf + nr;
    if (nr == 0) return;
    if (nf > 0) {
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, nf, k, nr, 1.0, fr.data(), nf, x.data() + nf,
                    n, 1.0, y.data(), n);
        cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, nr, k, nf, 1.0, fr.data(), nf, x.data(), n, 1.0,
                    y.data() + nf, n);
    }
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, nr, k, nr, 1.0, rr.data(), nr, x.data() + nf, n, 1.0,
                y.data() + nf, n);
}

bool BorderedFactor::factor(Job& job, Progress& progress, const SparseKM& km, std::span<const double> values,
                            std::span<const double> fr, std::span<const double> rr) {
    const std::size_t n = nr_;
    if (free_ && !run_factorization(job, progress, km, values, *free_)) return false;
    if (nr_ == 0) return true;
    S_.assign(rr.begin(), rr.end());
    if (nf_ > 0) {
        fr_.assign(fr.begin(), fr.end());
        X_ = fr_;
        if (!solve_free(job, X_, nr_, false)) return false;
        // S -= Arf X; row-major S is its transpose column-major, and Arf X is symmetric
        cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, nr_, nr_, nf_, -1.0, X_.data(), nf_, fr_.data(),
                    nf_, 1.0, S_.data(), nr_);
    }
    LU_.resize(n * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) LU_[j * n + i] = S_[i * n + j];
    pivots_.resize(n);
    int info = 0;
    dgetrf_(&nr_, &nr_, LU_.data(), &nr_, pivots_.data(), &info);
    job.report().negative_pivots = negative_pivots();
    if (info == 0) return true;
    // a motion with no stiffness at all: a tiny pivot lets the solve go on, the caller reports the free
    // motion
    double largest = 0;
    for (double v : S_) largest = std::max(largest, std::abs(v));
    for (std::size_t i = 0; i < n; ++i)
        if (LU_[i * n + i] == 0) LU_[i * n + i] = largest > 0 ? 1e-16 * largest : 1;
    return true;
}

bool BorderedFactor::solve_free(Job& job, std::span<double> x, std::int32_t k, bool block) {
    const bool solved = block ? free_->solve_block(x, k, &job.progress) : free_->solve(x, k, &job.progress);
    return job.goes_on() &&
           (solved || (job.report().status == RunStatus::done &&
                       job.fail(RunStatus::failed, "the solution cannot go on: " + free_->error())));
}

bool BorderedFactor::solve(Job& job, std::span<double> x, std::int32_t k) {
    if (nr_ == 0) return solve_free(job, x, k, k > 1);
    const std::int32_t n = nf_ + nr_;
    std::vector<double> top(std::size_t(nf_) * k), bottom(std::size_t(nr_) * k);
    for (std::int32_t c = 0; c < k; ++c) {
        const auto from = x.begin() + std::ptrdiff_t(c) * n;
        std::copy(from, from + nf_, top.begin() + std::ptrdiff_t(c) * nf_);
        std::copy(from + nf_, from + n, bottom.begin() + std::ptrdiff_t(c) * nr_);
    }
    if (nf_ > 0) {
        if (!solve_free(job, top, k, k > 1)) return false;
        cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, nr_, k, nf_, -1.0, fr_.data(), nf_, top.data(),
                    nf_, 1.0, bottom.data(), nr_);
    }
    int info = 0;
    dgetrs_("N", &nr_, &k, LU_.data(), &nr_, pivots_.data(), bottom.data(), &nr_, &info, 1);
    if (nf_ > 0)
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, nf_, k, nr_, -1.0, X_.data(), nf_,
                    bottom.data(), nr_, 1.0, top.data(), nf_);
    for (std::int32_t c = 0; c < k; ++c) {
        const auto to = x.begin() + std::ptrdiff_t(c) * n;
        std::copy_n(top.begin() + std::ptrdiff_t(c) * nf_, nf_, to);
        std::copy_n(bottom.begin() + std::ptrdiff_t(c) * nr_, nr_, to + nf_);
    }
    return true;
}

namespace {

// Eigenvalues of the symmetric part of a row-major matrix, ascending; empty when it is not finite.
std::vector<double> symmetric_values(std::span<const double> S, std::int32_t n) {
    const std::size_t size = n;
    std::vector<double> a(size * size), values(size);
    for (std::size_t i = 0; i < size; ++i)
        for (std::size_t j = 0; j < size; ++j) {
            a[i * size + j] = 0.5 * (S[i * size + j] + S[j * size + i]);
        }
    std::vector<double> work(64 * size);
    if (!symmetric_eigen(n, a, values, work, false)) return {};
    return values;
}

}  // namespace

std::int64_t BorderedFactor::negative_pivots() const {
    std::int64_t count = free_ ? free_->negative_pivots() : 0;
    if (nr_ > 0)
        for (double v : symmetric_values(S_, nr_)) count += v < 0;
    return count;
}

double BorderedFactor::smallest_scaled(std::span<const double> rr) const {
    if (nr_ == 0) return std::numeric_limits<double>::infinity();
    const std::size_t n = nr_;
    std::vector<double> scaled(n * n), scale(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double diagonal = std::abs(rr[i * n + i]);
        if (!(diagonal > 0)) return 0;
        scale[i] = 1 / std::sqrt(diagonal);
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) scaled[i * n + j] = S_[i * n + j] * scale[i] * scale[j];
    const std::vector<double> values = symmetric_values(scaled, nr_);
    double smallest = values.empty() ? 0 : std::numeric_limits<double>::infinity();
    for (double v : values) smallest = std::min(smallest, std::abs(v));
    return smallest;
}

bool BorderedFactor::has_free_motion(std::span<const double> rr) const {
    return !(smallest_scaled(rr) >= 1e-12);
}

}  // namespace kestralum
