#include "solver/multigrid_levels.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>

#include "solver/aggregates.h"
#include "solver/block_kernels.h"
#include "solver/galerkin.h"

namespace kestralum {

namespace {

// The inverse of the live part of a diagonal block, zero elsewhere, by Gauss and Jordan without pivoting,
// which a positive definite block does not need. False where a pivot is not positive.
template <int B>
bool invert(const double* D, const char* live, float* inverse) {
    constexpr double rounding = 1e-14;  // of a pivot, by its diagonal entry
    double a[B][B];
    for (int r = 0; r < B; ++r)
        for (int c = 0; c < B; ++c) a[r][c] = D[c * B + r];
    for (int k = 0; k < B; ++k) {  // in place
        if (!live[k]) continue;
        const double pivot = a[k][k];
        if (!(pivot > rounding * std::abs(D[k * B + k]))) return false;
        a[k][k] = 1;
        for (int c = 0; c < B; ++c) a[k][c] /= pivot;
        for (int r = 0; r < B; ++r) {
            if (r == k || !live[r]) continue;
            const double f = a[r][k];
            a[r][k] = 0;
            for (int c = 0; c < B; ++c) a[r][c] -= f * a[k][c];
        }
    }
    for (int r = 0; r < B; ++r)
        for (int c = 0; c < B; ++c)
            inverse[c * B + r] = live[r] && live[c] ? static_cast<float>(a[r][c]) : 0.0f;
    return true;
}

// Takes A's values in single precision and inverts its diagonal blocks.
template <int B>
LevelStatus take_values(const LevelMatrix<B>& from, RowTeam& team, Level<B>& level) {
    constexpr int block = B * B;
    const BlockPattern& pattern = from.pattern;
    if (!set_zero(level.A, pattern.blocks() * block + 1, team)) return LevelStatus::ended;
    level.inverse.assign(std::size_t(pattern.rows()) * block + 1, 0.0f);
    std::atomic<bool> positive{true}, finite{true};
    team.rows(pattern.rows(), [&](std::int64_t first, std::int64_t last, int) {
        std::vector<double> buffer;
        for (auto i = static_cast<std::int32_t>(first); i < last; ++i) {
            buffer.resize(pattern.count(i) * block);
            const double* row = from.load(pattern, i, buffer.data());
            float* to = level.A.data() + pattern.start[i] * block;
            for (std::int64_t k = 0; k < pattern.count(i) * block; ++k) {
                to[k] = static_cast<float>(row[k]);
                if (!std::isfinite(to[k])) finite = false;
            }
            const auto begin = pattern.col.begin() + pattern.start[i], end = begin + pattern.count(i);
            const auto diagonal = std::lower_bound(begin, end, i);
            if (diagonal == end || *diagonal != i ||
                !invert<B>(row + (diagonal - begin) * block, from.live.data() + std::int64_t{i} * B,
                           level.inverse.data() + std::int64_t{i} * block))
                positive = false;
        }
    });
    if (team.ended() != RowTeam::Ended::no) return LevelStatus::ended;
    return !finite ? LevelStatus::not_finite : !positive ? LevelStatus::not_positive : LevelStatus::ok;
}

// Node i and neighbour j are strongly connected where |A_ij|² > θ² |A_ii| |A_jj|, Frobenius norms.
template <int B>
std::vector<Connection> find_connections(const Level<B>& level, double threshold, RowTeam& team) {
    constexpr int block = B * B;
    const BlockPattern& pattern = level.pattern;
    const auto square = [&](std::int64_t q) {
        double s = 0;
        for (int k = 0; k < block; ++k) {
            const double a = level.A[q * block + k];
            s += a * a;
        }
        return s;
    };
    std::vector<double> diagonal(pattern.rows(), 0.0);  // |A_ii|
    team.rows(pattern.rows(), [&](std::int64_t first, std::int64_t last, int) {
        for (std::int64_t i = first; i < last; ++i)
            for (std::int64_t q = pattern.start[i]; q < pattern.start[i + 1]; ++q)
                if (pattern.col[q] == i) diagonal[i] = std::sqrt(square(q));
    });
    std::vector<Connection> out(pattern.blocks(), Connection::none);
    team.rows(pattern.rows(), [&](std::int64_t first, std::int64_t last, int) {
        for (std::int64_t i = first; i < last; ++i)
            for (std::int64_t q = pattern.start[i]; q < pattern.start[i + 1]; ++q) {
                const std::int32_t j = pattern.col[q];
                const double s = j == i ? 0.0 : square(q);
                if (s > 0)
                    out[q] = s > threshold * threshold * diagonal[i] * diagonal[j] ? Connection::strong
                                                                                   : Connection::weak;
            }
    });
    return out;
}

// Power iteration on D⁻¹A.
template <int B>
double largest_eigenvalue(const Level<B>& level, RowTeam& team) {
    constexpr int rounds = 12;
    const LevelArrays arrays = level.arrays();
    const LevelKernels& kernels = level_kernels().of<B, 1>();
    const std::int32_t nodes = level.nodes();
    std::vector<double> x(std::size_t(nodes) * B), y(x.size());
    std::uint32_t seed = 1;
    for (double& v : x) v = (seed = seed * 1664525u + 1013904223u) / 4294967296.0 - 0.5;
    double length = std::sqrt(team.dot(x, x)), growth = 0;
    for (int round = 0; round < rounds && team.goes_on(); ++round) {
        team.rows(nodes, [&](std::int64_t first, std::int64_t last, int) {
            kernels.scaled_product(arrays, x.data(), 1 / length, y.data(), first, last);
        });
        std::swap(x, y);  // of D⁻¹A x, of length 1
        growth = length = std::sqrt(team.dot(x, x));
    }
    return 1.1 * growth;
}

template <int B>
BlockPattern prolongation_pattern(const BlockPattern& A, const Aggregates& aggregates, RowTeam& team) {
    return make_pattern(A.rows(), aggregates.count(), team, [&](std::int32_t i, const auto& take) {
        for (std::int64_t q = A.start[i]; q < A.start[i + 1]; ++q)
            if (const std::int32_t a = aggregates.of_node[A.col[q]]; a >= 0) take(a);
    });
}

// P = (I - ω D⁻¹ A) T with ω = 4/3 / the largest eigenvalue of D⁻¹A.
template <int B>
void smooth_prolongation(const LevelMatrix<B>& from, const Aggregates& aggregates, const Tentative& tentative,
                         RowTeam& team, Level<B>& level) {
    constexpr int block = B * motions;
    const BlockPattern &A = level.pattern, &P = level.p_pattern;
    const double omega = 4.0 / 3.0 / level.largest;
    if (!set_zero(level.P, P.blocks() * block + 1, team)) return;
    std::vector<PlaceTable> places(team.threads(), PlaceTable(P.columns));
    team.rows(A.rows(), [&](std::int64_t first, std::int64_t last, int thread) {
        std::vector<double> buffer, AT;
        for (auto i = static_cast<std::int32_t>(first); i < last; ++i) {
            buffer.resize(A.count(i) * B * B);
            const double* row = from.load(A, i, buffer.data());
            places[thread].set(P, i);
            AT.assign(P.count(i) * block, 0.0);
            for (std::int64_t q = 0; q < A.count(i); ++q) {
                const std::int64_t j = A.col[A.start[i] + q];
                if (aggregates.of_node[j] < 0) continue;
                double* to = &AT[places[thread][aggregates.of_node[j]] * block];
                for (int m = 0; m < motions; ++m)
                    add_product<B, B, 1>(row + q * B * B, &tentative.T[j * block + m * B], to + m * B);
            }
            for (std::int64_t q = 0; q < P.count(i); ++q) {
                const bool own = P.col[P.start[i] + q] == aggregates.of_node[i];
                for (int m = 0; m < motions; ++m) {
                    double s[B] = {};
                    add_product<B, B, 1>(&level.inverse[std::int64_t{i} * B * B], &AT[q * block + m * B], s);
                    for (int r = 0; r < B; ++r)
                        level.P[(P.start[i] + q) * block + m * B + r] = static_cast<float>(
                            (own ? tentative.T[std::int64_t{i} * block + m * B + r] : 0.0) - omega * s[r]);
                }
            }
        }
    });
}

// Whether all eigenvalues of Tᵀ A T, the energies of one part's rigid motions, are above what rounding leaves
// of none: 2e-16 of the scale; supports give 1e-5 and more even to slender bodies.
template <int B>
bool is_held(const Aggregates& parts, std::int32_t part, const std::vector<double>& T,
             const std::vector<double>& AT, double scale) {
    constexpr double nothing = 1e-14;
    double E[motions * motions] = {};
    char live[motions] = {};
    for (std::int64_t k = parts.start[part]; k < parts.start[part + 1]; ++k) {
        const double* t = &T[std::int64_t{parts.nodes[k]} * B * motions];
        const double* at = &AT[std::int64_t{parts.nodes[k]} * B * motions];
        for (int m = 0; m < motions; ++m)
            for (int r = 0; r < B; ++r) {
                live[m] |= t[m * B + r] != 0;
                for (int c = 0; c < motions; ++c) E[c * motions + m] += t[m * B + r] * at[c * B + r];
            }
    }
    for (int m = 0; m < motions; ++m) E[m * motions + m] -= nothing * scale;
    float inverse[motions * motions];
    return invert<motions>(E, live, inverse);
}

}  // namespace

template <int B>
LevelArrays Level<B>::arrays() const {
    return {pattern.start.data(),   pattern.col.data(),    A.data(), inverse.data(),
            p_pattern.start.data(), p_pattern.col.data(),  P.data(), p_columns.start.data(),
            p_columns.row.data(),   p_columns.entry.data()};
}

template <int B>
double Level<B>::megabytes() const {
    return megabytes_of(pattern.start) + megabytes_of(pattern.col) + megabytes_of(A) + megabytes_of(inverse) +
           megabytes_of(p_pattern.start) + megabytes_of(p_pattern.col) + megabytes_of(P) +
           megabytes_of(p_columns.start) + megabytes_of(p_columns.row) + megabytes_of(p_columns.entry);
}

template <int B>
LevelStatus make_level(LevelMatrix<B>&& from, const Coarsening& how, RowTeam& team, Level<B>& level,
                       LevelMatrix<motions>& below) {
    const auto ended = [&] { return team.ended() != RowTeam::Ended::no; };
    if (const LevelStatus taken = take_values(from, team, level); taken != LevelStatus::ok) return taken;
    level.pattern = std::move(from.pattern);
    level.largest = largest_eigenvalue(level, team);
    if (ended()) return LevelStatus::ended;
    if (!std::isfinite(level.largest)) return LevelStatus::not_finite;
    Galerkin<B> galerkin(from, level, team);
    Aggregates aggregates;
    for (double threshold = how.threshold;; threshold = threshold > 0.1 * how.threshold ? threshold / 4 : 0) {
        aggregates = make_aggregates(level.pattern, find_connections(level, threshold, team), team);
        level.p_pattern = prolongation_pattern<B>(level.pattern, aggregates, team);
        if (ended()) return LevelStatus::ended;
        level.p_columns = list_columns(level.p_pattern);
        below.pattern = galerkin.pattern();
        if (ended()) return LevelStatus::ended;
        const bool coarse =
            below.pattern.blocks() * motions * motions <= how.most_entries &&
            std::int64_t{aggregates.count()} * motions * 4 <= std::int64_t{level.nodes()} * B * 3;
        if (coarse || threshold <= 0) break;
    }
    Tentative tentative = make_tentative(aggregates, from.N, B, team);
    from.N = {};
    smooth_prolongation(from, aggregates, tentative, team, level);
    auto values = std::make_shared<std::vector<double>>(galerkin.values(below.pattern));
    if (ended()) return LevelStatus::ended;
    below.load = [values](const BlockPattern& pattern, std::int32_t row, double*) -> const double* {
        return values->data() + pattern.start[row] * motions * motions;
    };
    below.live = std::move(tentative.live);
    below.N = std::move(tentative.R);
    return LevelStatus::ok;
}

template <int B>
LevelStatus check_held(const LevelMatrix<B>& matrix, double scale, RowTeam& team) {
    constexpr int block = B * motions;
    const BlockPattern& pattern = matrix.pattern;
    const Aggregates parts = find_parts(pattern, team);
    const std::vector<double> T = make_tentative(parts, matrix.N, B, team).T;
    std::vector<double> AT(T.size(), 0.0);
    team.rows(pattern.rows(), [&](std::int64_t first, std::int64_t last, int) {
        std::vector<double> buffer;
        for (auto i = static_cast<std::int32_t>(first); i < last; ++i) {
            buffer.resize(pattern.count(i) * B * B);
            const double* row = matrix.load(pattern, i, buffer.data());
            for (std::int64_t q = 0; q < pattern.count(i); ++q)
                for (int m = 0; m < motions; ++m)
                    add_product<B, B, 1>(row + q * B * B,
                                         &T[std::int64_t{pattern.col[pattern.start[i] + q]} * block + m * B],
                                         &AT[std::int64_t{i} * block + m * B]);
        }
    });
    for (std::int32_t part = 0; part < parts.count() && team.goes_on(); ++part)
        if (!is_held<B>(parts, part, T, AT, scale)) return LevelStatus::not_positive;
    return team.ended() == RowTeam::Ended::no ? LevelStatus::ok : LevelStatus::ended;
}

template LevelStatus check_held<3>(const LevelMatrix<3>&, double, RowTeam&);
template LevelStatus check_held<motions>(const LevelMatrix<motions>&, double, RowTeam&);
template struct Level<3>;
template struct Level<motions>;
template LevelStatus make_level<3>(LevelMatrix<3>&&, const Coarsening&, RowTeam&, Level<3>&,
                                   LevelMatrix<motions>&);
template LevelStatus make_level<motions>(LevelMatrix<motions>&&, const Coarsening&, RowTeam&, Level<motions>&,
                                         LevelMatrix<motions>&);

}  // namespace kestralum
