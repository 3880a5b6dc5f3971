#include "solver/multigrid_levels.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "solver/aggregates.h"
#include "solver/block_kernels.h"
#include "solver/panels.h"

extern "C" {
void dpotrf_(const char* triangle, const int* n, double* a, const int* lda, int* info, std::size_t);
void dpotrs_(const char* triangle, const int* n, const int* columns, const double* a, const int* lda,
             double* b, const int* ldb, int* info, std::size_t);
}

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
    level.A.resize(pattern.blocks() * block);
    level.inverse.assign(std::size_t(pattern.rows()) * block, 0.0f);
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
    constexpr int block = B * B, rounds = 12;
    const std::int32_t nodes = level.nodes();
    std::vector<double> x(std::size_t(nodes) * B), y(x.size());
    std::uint32_t seed = 1;
    for (double& v : x) v = (seed = seed * 1664525u + 1013904223u) / 4294967296.0 - 0.5;
    double length = std::sqrt(team.dot(x, x)), growth = 0;
    for (int round = 0; round < rounds && team.goes_on(); ++round) {
        team.rows(nodes, [&](std::int64_t first, std::int64_t last, int) {
            for (std::int64_t i = first; i < last; ++i) {
                double s[B] = {}, z[B] = {};
                for (std::int64_t q = level.pattern.start[i]; q < level.pattern.start[i + 1]; ++q)
                    add_product<B, B, 1>(&level.A[q * block], &x[std::int64_t{level.pattern.col[q]} * B], s);
                add_product<B, B, 1>(&level.inverse[i * block], s, z);
                for (int r = 0; r < B; ++r) y[i * B + r] = z[r] / length;
            }
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

// Columns of one row and where they stand in it; one table for each thread.
class PlaceTable {
public:
    explicit PlaceTable(std::int32_t columns) : place_(columns) {}
    void set(const BlockPattern& pattern, std::int64_t row) {
        const std::int32_t* col = pattern.col.data() + pattern.start[row];
        for (std::int32_t q = 0; q < pattern.count(row); ++q) place_[col[q]] = q;
    }
    std::int64_t operator[](std::int32_t column) const { return place_[column]; }

private:
    std::vector<std::int32_t> place_;
};

// P = (I - ω D⁻¹ A) T with ω = 4/3 / the largest eigenvalue of D⁻¹A.
template <int B>
void smooth_prolongation(const LevelMatrix<B>& from, const Aggregates& aggregates, const Tentative& tentative,
                         RowTeam& team, Level<B>& level) {
    constexpr int block = B * motions;
    const BlockPattern &A = level.pattern, &P = level.p_pattern;
    const double omega = 4.0 / 3.0 / level.largest;
    level.P.resize(P.blocks() * block);
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

// The matrix below, Pᵀ A P, by slabs of rows of A: those of A P, then what they add to each row below, in
// ascending order of the slabs and of the rows in them.
template <int B>
class Galerkin {
public:
    Galerkin(const LevelMatrix<B>& from, const Level<B>& level, RowTeam& team)
        : from_(from), level_(level), team_(team) {}

    // The pattern of Pᵀ A P; keeps that of A P.
    BlockPattern pattern() {
        const BlockPattern &A = level_.pattern, &P = level_.p_pattern;
        AP_ = make_pattern(A.rows(), P.columns, team_, [&](std::int32_t i, const auto& take) {
            for (std::int64_t q = A.start[i]; q < A.start[i + 1]; ++q)
                for (std::int64_t p = P.start[A.col[q]]; p < P.start[A.col[q] + 1]; ++p) take(P.col[p]);
        });
        const ColumnLists& lists = level_.p_columns;
        if (team_.ended() != RowTeam::Ended::no) return {};
        return make_pattern(P.columns, P.columns, team_, [&](std::int32_t k, const auto& take) {
            for (std::int64_t e = lists.start[k]; e < lists.start[k + 1]; ++e)
                for (std::int64_t q = AP_.start[lists.row[e]]; q < AP_.start[lists.row[e] + 1]; ++q)
                    take(AP_.col[q]);
        });
    }

    // Blocks of `below`, the pattern above; not whole where the team gives up.
    std::vector<double> values(const BlockPattern& below) {
        constexpr std::int32_t slab = 8192;
        std::vector<double> out(below.blocks() * motions * motions, 0.0);
        places_.assign(team_.threads(), PlaceTable(below.columns));
        next_.assign(level_.p_columns.start.begin(), level_.p_columns.start.end() - 1);
        for (std::int32_t first = 0; first < level_.nodes() && team_.goes_on(); first += slab) {
            const std::int32_t last = std::min(first + slab, level_.nodes());
            multiply_slab(first, last);
            add_slab(first, last, below, out);
        }
        return out;
    }

private:
    static constexpr int p_block = B * motions;

    void multiply_slab(std::int32_t first, std::int32_t last) {
        const BlockPattern &A = level_.pattern, &P = level_.p_pattern;
        product_.assign((AP_.start[last] - AP_.start[first]) * p_block, 0.0);
        const auto work = [&](std::int64_t begin, std::int64_t end, int thread) {
            std::vector<double> buffer;
            PlaceTable& place = places_[thread];
            for (auto i = static_cast<std::int32_t>(first + begin); i < first + end; ++i) {
                buffer.resize(A.count(i) * B * B);
                const double* row = from_.load(A, i, buffer.data());
                place.set(AP_, i);
                double* to = product_.data() + (AP_.start[i] - AP_.start[first]) * p_block;
                for (std::int64_t q = 0; q < A.count(i); ++q) {
                    const std::int64_t j = A.col[A.start[i] + q];
                    for (std::int64_t p = P.start[j]; p < P.start[j + 1]; ++p) {
                        double* z = to + place[P.col[p]] * p_block;
                        const float* b = &level_.P[p * p_block];
                        for (int m = 0; m < motions; ++m) {
                            double x[B];
                            for (int c = 0; c < B; ++c) x[c] = b[m * B + c];
                            add_product<B, B, 1>(row + q * B * B, x, z + m * B);
                        }
                    }
                }
            }
        };
        team_.rows(last - first, work, 256);
    }

    void add_slab(std::int32_t first, std::int32_t last, const BlockPattern& below,
                  std::vector<double>& out) {
        const ColumnLists& lists = level_.p_columns;
        const auto work = [&](std::int64_t begin, std::int64_t end, int thread) {
            PlaceTable& place = places_[thread];
            for (std::int64_t k = begin; k < end; ++k) {
                if (next_[k] == lists.start[k + 1] || lists.row[next_[k]] >= last) continue;
                place.set(below, k);
                double* to = out.data() + below.start[k] * motions * motions;
                for (; next_[k] < lists.start[k + 1] && lists.row[next_[k]] < last; ++next_[k]) {
                    double pt[p_block];  // Pᵀ of the entry: motions × B, column-major
                    const float* p = &level_.P[lists.entry[next_[k]] * p_block];
                    for (int r = 0; r < B; ++r)
                        for (int m = 0; m < motions; ++m) pt[r * motions + m] = p[m * B + r];
                    const std::int64_t i = lists.row[next_[k]];
                    const double* x = product_.data() + (AP_.start[i] - AP_.start[first]) * p_block;
                    for (std::int64_t q = AP_.start[i]; q < AP_.start[i + 1]; ++q, x += p_block) {
                        double* z = to + place[AP_.col[q]] * motions * motions;
                        for (int m = 0; m < motions; ++m)
                            add_product<motions, B, 1>(pt, x + m * B, z + m * motions);
                    }
                }
            }
        };
        team_.rows(below.rows(), work, 64);
    }

    const LevelMatrix<B>& from_;
    const Level<B>& level_;
    RowTeam& team_;
    BlockPattern AP_;
    std::vector<double> product_;  // blocks of A P in the slab
    std::vector<PlaceTable> places_;
    std::vector<std::int64_t> next_;  // columns of P: first entry that no slab has had
};

}  // namespace

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
    constexpr double nothing = 1e-11;
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
    if (team.ended() != RowTeam::Ended::no) return LevelStatus::ended;
    for (std::int32_t a = 0; a < parts.count(); ++a) {
        double E[motions * motions] = {};  // Tᵀ A T
        char live[motions] = {};
        for (std::int64_t k = parts.start[a]; k < parts.start[a + 1]; ++k)
            for (int m = 0; m < motions; ++m) {
                const double *t = &T[std::int64_t{parts.nodes[k]} * block + m * B],
                             *at = &AT[std::int64_t{parts.nodes[k]} * block];
                for (int r = 0; r < B; ++r) live[m] |= t[r] != 0;
                for (int c = 0; c < motions; ++c)
                    for (int r = 0; r < B; ++r) E[c * motions + m] += t[r] * at[c * B + r];
            }
        for (int m = 0; m < motions; ++m) E[m * motions + m] -= nothing * scale;
        float inverse[motions * motions];
        if (!invert<motions>(E, live, inverse)) return LevelStatus::not_positive;
    }
    return LevelStatus::ok;
}

template <int B>
LevelStatus CoarsestLevel::factor(const LevelMatrix<B>& from) {
    use_serial_blas();
    n_ = from.pattern.rows() * B;
    const std::size_t n = n_;
    L_.assign(n * n, 0.0);
    std::vector<double> buffer;
    for (std::int32_t i = 0; i < from.pattern.rows(); ++i) {
        buffer.resize(from.pattern.count(i) * B * B);
        const double* row = from.load(from.pattern, i, buffer.data());
        for (std::int64_t q = 0; q < from.pattern.count(i); ++q)
            for (int c = 0; c < B; ++c)
                for (int r = 0; r < B; ++r) {
                    const std::size_t column = from.pattern.col[from.pattern.start[i] + q] * B + c;
                    L_[column * n + i * B + r] = row[(q * B + c) * B + r];
                }
    }
    if (!std::all_of(L_.begin(), L_.end(), [](double a) { return std::isfinite(a); }))
        return LevelStatus::not_finite;
    for (std::size_t d = 0; d < n; ++d)
        if (!from.live[d]) L_[d * n + d] = 1.0;
    int info = 0;
    if (n > 0) dpotrf_("L", &n_, L_.data(), &n_, &info, 1);
    return info == 0 ? LevelStatus::ok : LevelStatus::not_positive;
}

void CoarsestLevel::solve(double* x, int k) {
    if (n_ == 0) return;
    const std::size_t n = n_, columns = k;
    columns_.resize(n * columns);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < columns; ++c) columns_[c * n + i] = x[i * columns + c];
    int info = 0;
    for (std::size_t c = 0; c < columns; ++c) {  // one by one: a column's value does not know the others
        const int one = 1;
        dpotrs_("L", &n_, &one, L_.data(), &n_, columns_.data() + c * n, &n_, &info, 1);
    }
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < columns; ++c) x[i * columns + c] = columns_[c * n + i];
}

template LevelStatus check_held<3>(const LevelMatrix<3>&, double, RowTeam&);
template LevelStatus check_held<motions>(const LevelMatrix<motions>&, double, RowTeam&);
template struct Level<3>;
template struct Level<motions>;
template LevelStatus make_level<3>(LevelMatrix<3>&&, const Coarsening&, RowTeam&, Level<3>&,
                                   LevelMatrix<motions>&);
template LevelStatus make_level<motions>(LevelMatrix<motions>&&, const Coarsening&, RowTeam&, Level<motions>&,
                                         LevelMatrix<motions>&);
template LevelStatus CoarsestLevel::factor<3>(const LevelMatrix<3>&);
template LevelStatus CoarsestLevel::factor<motions>(const LevelMatrix<motions>&);

}  // namespace kestralum
