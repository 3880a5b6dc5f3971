#include "solver/multigrid.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "model/format.h"
#include "solver/multigrid_cycle.h"
#include "solver/padded_equations.h"

namespace kestralum {

struct Multigrid::State {
    MultigridOptions options;
    const SparseKM* km = nullptr;
    std::span<const double> values;
    int threads = 1;
    PaddedEquations equations;
    Hierarchy levels;
    CycleVectors single, group;  // of one column and of four
    double complexity = 0;
    bool ready = false;
    IterationResult result;
    std::string error;

    SolveStatus set_up(const EquationPlaces& places, RowTeam& team);
    LevelStatus make_levels(LevelMatrix<3>&& matrix, RowTeam& team);
    template <int K>
    void cycle(RowTeam& team, const double* b, double* x);
    SolveStatus fail(SolveStatus why, std::string text = {});
    SolveStatus fail(RowTeam::Ended ended);
};

SolveStatus Multigrid::State::fail(SolveStatus why, std::string text) {
    switch (why) {
        case SolveStatus::out_of_memory:
            error = "not enough memory for the iteration";
            break;
        case SolveStatus::cancelled:
            error = "stopped by the user";
            break;
        case SolveStatus::not_positive:
            error = "the matrix is not positive definite";
            break;
        default:
            error = std::move(text);
    }
    return why;
}

SolveStatus Multigrid::State::fail(RowTeam::Ended ended) {
    return fail(ended == RowTeam::Ended::cancelled ? SolveStatus::cancelled : SolveStatus::out_of_memory);
}

LevelStatus Multigrid::State::make_levels(LevelMatrix<3>&& matrix, RowTeam& team) {
    double largest_diagonal = 0;
    for (const std::int64_t k : km->diag_pos)
        if (k >= 0) largest_diagonal = std::max(largest_diagonal, std::abs(values[k]));
    const double entries = static_cast<double>(matrix.pattern.blocks()) * 9;
    complexity = 1;
    if (std::int64_t{matrix.pattern.rows()} * 3 <= options.coarsest) {
        const LevelStatus held = check_held(matrix, largest_diagonal, team);
        return held == LevelStatus::ok ? levels.coarsest.factor(matrix) : held;
    }
    levels.has_first = true;
    const auto allowed = [&] {
        return static_cast<std::int64_t>((options.most_complexity - complexity) * entries);
    };
    const auto count = [&](const LevelMatrix<motions>& made) {
        complexity += static_cast<double>(made.pattern.blocks()) * motions * motions / entries;
    };
    LevelMatrix<motions> below;
    LevelStatus status =
        make_level(std::move(matrix), {options.threshold, allowed()}, team, levels.first, below);
    if (status == LevelStatus::ok) status = check_held(below, largest_diagonal, team);
    if (status != LevelStatus::ok) return status;
    for (count(below); std::int64_t{below.pattern.rows()} * motions > options.coarsest; count(below)) {
        LevelMatrix<motions> next;
        Level<motions> level;
        status = make_level(std::move(below), {options.threshold, allowed()}, team, level, next);
        if (status != LevelStatus::ok) return status;
        levels.rest.push_back(std::move(level));
        below = std::move(next);
    }
    return levels.coarsest.factor(below);
}

SolveStatus Multigrid::State::set_up(const EquationPlaces& places, RowTeam& team) {
    if (std::string fault = find_fault(*km, values, places, team); !fault.empty())
        return fail(SolveStatus::bad_input, std::move(fault));
    equations = pad(places.dof);
    LevelMatrix<3> matrix;
    matrix.pattern = pattern_of(*km, equations, team);
    if (team.ended() != RowTeam::Ended::no) return fail(team.ended());
    equations.whole = find_whole(*km, equations, team);
    matrix.live.assign(std::size_t(equations.rows()) * 3, 0);
    for (const std::int32_t place : equations.place) matrix.live[place] = 1;
    matrix.N = rigid_motions(equations, places.coordinates, matrix.live);
    matrix.load = [this](const BlockPattern& pattern, std::int32_t row, double* buffer) -> const double* {
        load_row(*km, values, equations, pattern, row, buffer);
        return buffer;
    };
    switch (make_levels(std::move(matrix), team)) {
        case LevelStatus::ended:
            return fail(team.ended());
        case LevelStatus::not_positive:
            return fail(SolveStatus::not_positive);
        case LevelStatus::not_finite:
            return fail(SolveStatus::bad_input, "the matrix has entries beyond single precision");
        case LevelStatus::ok:
            break;
    }
    single.prepare(levels, 1);
    ready = true;
    return SolveStatus::ok;
}

// x = about A⁻¹ b for K columns of length rows(); may be the same.
template <int K>
void Multigrid::State::cycle(RowTeam& team, const double* b, double* x) {
    CycleVectors& vectors = K == 1 ? single : group;
    vectors.prepare(levels, K);
    const std::int64_t n = km->rows();
    const std::int32_t* place = equations.place.data();
    double* in = vectors[0].b.data();
    team.rows(
        n,
        [&](std::int64_t first, std::int64_t last, int) {
            for (std::int64_t e = first; e < last; ++e)
                for (int k = 0; k < K; ++k) in[std::int64_t{place[e]} * K + k] = b[k * n + e];
        },
        16384);
    const double* out = run_cycle<K>(levels, vectors, team).data();
    team.rows(
        n,
        [&](std::int64_t first, std::int64_t last, int) {
            for (std::int64_t e = first; e < last; ++e)
                for (int k = 0; k < K; ++k) x[k * n + e] = out[std::int64_t{place[e]} * K + k];
        },
        16384);
}

Multigrid::Multigrid(const MultigridOptions& options) : state_(std::make_unique<State>()) {
    state_->options = options;
}
Multigrid::~Multigrid() = default;
Multigrid::Multigrid(Multigrid&&) noexcept = default;
Multigrid& Multigrid::operator=(Multigrid&&) noexcept = default;

SolveStatus Multigrid::set_up(const SparseKM& km, std::span<const double> values,
                              const EquationPlaces& places, int threads, const Progress* progress) {
    State& s = *state_;
    s.ready = false;
    try {
        s.levels = {};
        s.single = {}, s.group = {};
        s.result = {};
        s.error.clear();
        s.km = &km;
        s.values = values;
        s.threads = threads;
        RowTeam team(threads, progress);
        const SolveStatus status = s.set_up(places, team);
        if (status != SolveStatus::ok) s.levels = {};
        return status;
    } catch (const std::bad_alloc&) {
        s.levels = {};
        return s.fail(SolveStatus::out_of_memory);
    }
}

SolveStatus Multigrid::solve(std::span<double> x, const IterationLimits& limits, const Progress* progress) {
    State& s = *state_;
    if (!s.ready || x.size() != std::size_t(s.km->rows()))
        return s.fail(SolveStatus::bad_input, "no levels have been made for equations of this number");
    try {
        s.error.clear();
        RowTeam team(s.threads, progress);
        const PositiveSystem system{[&](std::span<const double> from, std::span<double> to) {
                                        multiply(*s.km, s.values, s.equations, from, to, team);
                                    },
                                    [&](std::span<const double> from, std::span<double> to) {
                                        multiply_absolute(*s.km, s.values, from, to, team);
                                    },
                                    [&](std::span<const double> from, std::span<double> to) {
                                        s.cycle<1>(team, from.data(), to.data());
                                    }};
        s.result = conjugate_gradients(system, team, x, limits);
    } catch (const std::bad_alloc&) {
        s.result.status = SolveStatus::out_of_memory;
    }
    if (s.result.status == SolveStatus::ok) return SolveStatus::ok;
    return s.fail(s.result.status,
                  s.result.status == SolveStatus::bad_input
                      ? "the right-hand side has values that are no numbers"
                      : formatted("the iteration stopped gaining after %d steps, at a residual of %.1e",
                                  s.result.iterations, s.result.residual));
}

SolveStatus Multigrid::precondition(std::span<double> x, std::int32_t k, const Progress* progress) {
    constexpr int group = 4;
    State& s = *state_;
    if (!s.ready || k < 0 || x.size() != std::size_t(s.km->rows()) * std::size_t(k))
        return s.fail(SolveStatus::bad_input, "no levels have been made for equations of this number");
    try {
        s.error.clear();
        RowTeam team(s.threads, progress);
        const std::int64_t n = s.km->rows();
        std::int32_t c = 0;
        for (; c + group <= k && team.goes_on(); c += group)
            s.cycle<group>(team, x.data() + c * n, x.data() + c * n);
        for (; c < k && team.goes_on(); ++c) s.cycle<1>(team, x.data() + c * n, x.data() + c * n);
        return team.ended() == RowTeam::Ended::no ? SolveStatus::ok : s.fail(team.ended());
    } catch (const std::bad_alloc&) {
        return s.fail(SolveStatus::out_of_memory);
    }
}

std::string Multigrid::error() const {
    return state_->error;
}
int Multigrid::iterations() const {
    return state_->result.iterations;
}
double Multigrid::residual() const {
    return state_->result.residual;
}
bool Multigrid::rounded() const {
    return state_->result.rounded;
}
int Multigrid::levels() const {
    return state_->ready ? static_cast<int>(state_->levels.above_coarsest()) + 1 : 0;
}
double Multigrid::operator_complexity() const {
    return state_->complexity;
}
double Multigrid::megabytes() const {
    const State& s = *state_;
    double sum = s.single.megabytes() + s.group.megabytes() + s.levels.coarsest.megabytes() +
                 s.levels.first.megabytes() + megabytes_of(s.equations.place) +
                 megabytes_of(s.equations.whole) + megabytes_of(s.equations.first) +
                 megabytes_of(s.equations.node);
    for (const Level<motions>& level : s.levels.rest) sum += level.megabytes();
    return sum;
}

}  // namespace kestralum
