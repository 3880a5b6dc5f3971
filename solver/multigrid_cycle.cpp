#include "solver/multigrid_cycle.h"

#include "solver/level_kernel.h"

namespace kestralum {

namespace {

// One step of the Chebyshev iteration (Saad, Iterative Methods for Sparse Linear Systems, 2003, algorithm
// 12.1) on the residual r: d = f d + g D⁻¹ r, x += d.
struct Step {
    double f, g;
};

// Two steps for the eigenvalues of D⁻¹A in [largest / 10, largest].
std::array<Step, 2> smoothing_steps(double largest) {
    const double smallest = largest / 10, theta = (largest + smallest) / 2, delta = (largest - smallest) / 2;
    const double rho_0 = delta / theta, rho_1 = 1 / (2 * theta / delta - rho_0);
    return {Step{0, 1 / theta}, Step{rho_1 * rho_0, 2 * rho_1 / delta}};
}

template <int B, int K>
struct Sweep {
    const Level<B>& level;
    RowTeam& team;
    CycleVectors::OfLevel& v;
    const LevelArrays arrays = level.arrays();
    const LevelKernels& kernels = level_kernels().of<B, K>();

    static constexpr std::int64_t piece = B == 3 ? 512 : 64;  // rows

    // to = from + d; `from` null: zero
    void smooth(const Step& step, const double* from, std::vector<double>& to) const {
        const SmoothingStep work{step.f, step.g, v.b.data(), from, v.d.data(), to.data()};
        team.rows(
            level.nodes(),
            [&](std::int64_t first, std::int64_t last, int) { kernels.smooth(arrays, work, first, last); },
            piece);
    }
    // below = Pᵀ (b - A y); d is overwritten
    void restrict_residual(std::vector<double>& below) const {
        team.rows(
            level.nodes(),
            [&](std::int64_t first, std::int64_t last, int) {
                kernels.residual(arrays, v.b.data(), v.y.data(), v.d.data(), first, last);
            },
            piece);
        team.rows(
            level.p_pattern.columns,
            [&](std::int64_t first, std::int64_t last, int) {
                kernels.restrict_to(arrays, v.d.data(), below.data(), first, last);
            },
            64);
    }
    // y += P below
    void prolong(const std::vector<double>& below) const {
        team.rows(
            level.nodes(),
            [&](std::int64_t first, std::int64_t last, int) {
                kernels.prolong(arrays, below.data(), v.y.data(), first, last);
            },
            2 * piece);
    }
};

template <int K>
std::vector<double>& descend(std::size_t l, Hierarchy& levels, CycleVectors& vectors, RowTeam& team);

template <int B, int K>
std::vector<double>& cycle(const Level<B>& level, std::size_t l, Hierarchy& levels, CycleVectors& vectors,
                           RowTeam& team) {
    CycleVectors::OfLevel& v = vectors[l];
    const Sweep<B, K> sweep{level, team, v};
    const std::array<Step, 2> steps = smoothing_steps(level.largest);
    sweep.smooth(steps[0], nullptr, v.x);
    sweep.smooth(steps[1], v.x.data(), v.y);
    sweep.restrict_residual(vectors[l + 1].b);
    sweep.prolong(descend<K>(l + 1, levels, vectors, team));
    sweep.smooth(steps[0], v.y.data(), v.x);
    sweep.smooth(steps[1], v.x.data(), v.y);
    return v.y;
}

template <int K>
std::vector<double>& descend(std::size_t l, Hierarchy& levels, CycleVectors& vectors, RowTeam& team) {
    if (l < levels.above_coarsest())
        return l == 0 ? cycle<3, K>(levels.first, l, levels, vectors, team)
                      : cycle<motions, K>(levels.rest[l - 1], l, levels, vectors, team);
    if (l == 0) {  // b is to stay
        vectors[l].y = vectors[l].b;
        levels.coarsest.solve(vectors[l].y.data(), K);
        return vectors[l].y;
    }
    levels.coarsest.solve(vectors[l].b.data(), K);
    return vectors[l].b;
}

}  // namespace

void CycleVectors::prepare(const Hierarchy& levels, int columns) {
    if (columns == columns_) return;
    columns_ = 0;
    const std::size_t above = levels.above_coarsest();
    vectors_.assign(above + 1, {});
    for (std::size_t l = 0; l < above; ++l) {
        const std::size_t size = (l == 0 ? std::size_t(levels.first.nodes()) * 3
                                         : std::size_t(levels.rest[l - 1].nodes()) * motions) *
                                 columns;
        for (auto member : {&OfLevel::b, &OfLevel::x, &OfLevel::y, &OfLevel::d})
            (vectors_[l].*member).assign(size, 0.0);
    }
    vectors_[above].b.assign(std::size_t(levels.coarsest.n()) * columns, 0.0);
    columns_ = columns;
}

double CycleVectors::megabytes() const {
    double sum = 0;
    for (const OfLevel& v : vectors_)
        sum += megabytes_of(v.b) + megabytes_of(v.x) + megabytes_of(v.y) + megabytes_of(v.d);
    return sum;
}

template <int K>
const std::vector<double>& run_cycle(Hierarchy& levels, CycleVectors& vectors, RowTeam& team) {
    return descend<K>(0, levels, vectors, team);
}

template const std::vector<double>& run_cycle<1>(Hierarchy&, CycleVectors&, RowTeam&);
template const std::vector<double>& run_cycle<4>(Hierarchy&, CycleVectors&, RowTeam&);

}  // namespace kestralum
