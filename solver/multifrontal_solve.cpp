// Solves with a multifrontal factor, their refinement, and the file of a factor that is not kept.
#include <cblas.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "model/format.h"
#include "model/paths.h"
#include "solver/multifrontal_walk.h"

namespace kestralum {

namespace {

constexpr std::int32_t most_columns = 32;  // of one pass over the factor

// A front whose panel has so many doubles is worth several tasks: of so many rows, or so many columns.
constexpr std::int64_t large_panel = 1 << 20;
constexpr std::int32_t strip_rows = 2048, strip_columns = 48;

// c (rows × k) -= a b, or with aᵀ (columns × k).
struct DenseProduct {
    bool transposed;
    int rows, columns;
    const double* a;
    int lda;
    void subtract(const double* b, int ldb, double* c, int ldc, int k) const {
        const CBLAS_TRANSPOSE trans = transposed ? CblasTrans : CblasNoTrans;
        if (k == 1)
            cblas_dgemv(CblasColMajor, trans, rows, columns, -1, a, lda, b, 1, 1, c, 1);
        else if (transposed)
            cblas_dgemm(CblasColMajor, trans, CblasNoTrans, columns, k, rows, -1, a, lda, b, ldb, 1, c, ldc);
        else
            cblas_dgemm(CblasColMajor, trans, CblasNoTrans, rows, k, columns, -1, a, lda, b, ldb, 1, c, ldc);
    }
};

void solve_triangle(bool transposed, int n, const double* l, int ld, double* b, int ldb, int k) {
    const CBLAS_TRANSPOSE trans = transposed ? CblasTrans : CblasNoTrans;
    if (k == 1)
        cblas_dtrsv(CblasColMajor, CblasLower, trans, CblasUnit, n, l, ld, b, 1);
    else
        cblas_dtrsm(CblasColMajor, CblasLeft, CblasLower, trans, CblasUnit, n, k, 1, l, ld, b, ldb);
}

}  // namespace

// Swaps the rows of a tile as its pivots were, or back.
void MultifrontalFactor::swap_rows(std::int32_t position, int columns, double* v, int ldv, std::int32_t k,
                                   bool back) const {
    const std::int32_t* order = &order_[position];
    double row[tile_columns];
    for (std::int32_t c = 0; c < k; ++c) {
        double* b = v + std::int64_t{c} * ldv;
        std::copy(b, b + columns, row);
        for (int i = 0; i < columns; ++i) (back ? b[order[i]] : b[i]) = row[back ? i : order[i]];
    }
}

// Of the pool; null, and the walk ends, when there is no memory.
double* MultifrontalFactor::take(Walk& walk, std::int64_t doubles) {
    double* const block = walk.pool.take(doubles);
    if (!block) walk.end(FactorStatus::out_of_memory);
    return block;
}

// The front's panel, read into `buffer` (to be given back) where it is not kept; null where that fails.
const double* MultifrontalFactor::panel_of(Walk& walk, std::int32_t s, double*& buffer) const {
    const Front& f = tree_.fronts[s];
    buffer = nullptr;
    if (options_.keep_in_memory) return panels_.get() + f.panel;
    const std::int64_t doubles = trapezoid_doubles(f.rows, f.columns);
    buffer = take(walk, doubles);
    if (!buffer || file_->read(buffer, f.panel, doubles, [&] { return ends(walk); })) return buffer;
    walk.end(FactorStatus::file_failed);
    return nullptr;
}

void MultifrontalFactor::eliminate_columns(Walk& walk, std::int32_t s, double* y, std::int32_t k) const {
    const Front& f = tree_.fronts[s];
    const int rows = f.rows, columns = f.columns;
    double* buffer = nullptr;
    double* const v = take(walk, std::int64_t{rows} * k);
    const double* const panel = v ? panel_of(walk, s, buffer) : nullptr;
    walk.left[s] = v;
    if (!panel) return walk.pool.give(buffer);
    for (std::int32_t c = 0; c < k; ++c) {
        double* to = v + std::int64_t{c} * rows;
        std::copy_n(y + std::int64_t{c} * tree_.size() + f.first, columns, to);
        std::fill(to + columns, to + rows, 0.0);
    }
    for (const std::int32_t child : tree_.children_of(s)) {
        const Front& g = tree_.fronts[child];
        for (std::int32_t c = 0; c < k; ++c)
            for (const RowRun& run : tree_.runs_of(child)) {
                const double* from = walk.left[child] + std::int64_t{c} * g.rows + g.columns + run.from;
                double* to = v + std::int64_t{c} * rows + run.to;
                for (std::int32_t i = 0; i < run.count; ++i) to[i] += from[i];
            }
        walk.pool.give(walk.left[child]);
        walk.left[child] = nullptr;
    }
    for (std::int32_t at = 0; at < columns; at += tile_columns) {
        const int width = std::min(tile_columns, columns - at), ld = rows - at, below = ld - width;
        const double* l = panel + tile_offset(rows, at / tile_columns);
        double* b = v + at;
        swap_rows(f.first + at, width, b, rows, k, false);
        solve_triangle(false, width, l, ld, b, rows, k);
        const bool large = std::int64_t{rows} * columns > large_panel && below > strip_rows;
#pragma omp taskgroup
        for (int first = 0; first < below; first += strip_rows) {
#pragma omp task firstprivate(first) if (large)
            DenseProduct{false, std::min(strip_rows, below - first), width, l + width + first, ld}.subtract(
                b, rows, b + width + first, rows, k);
        }
    }
    const Pivots pivots{const_cast<double*>(&d_[f.first]),
                        const_cast<double*>(&e_[f.first]),
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr};
    for (std::int32_t c = 0; c < k; ++c) {
        double* to = y + std::int64_t{c} * tree_.size() + f.first;
        std::copy_n(v + std::int64_t{c} * rows, columns, to);
        divide_by_d(columns, pivots, to);
    }
    walk.pool.give(buffer);
    if (f.parent < 0) {
        walk.pool.give(v);
        walk.left[s] = nullptr;
    }
}

void MultifrontalFactor::substitute_back(Walk& walk, std::int32_t s, double* y, std::int32_t k) const {
    const Front& f = tree_.fronts[s];
    const int rows = f.rows, columns = f.columns;
    double* buffer = nullptr;
    double* const v = take(walk, std::int64_t{rows} * k);
    const double* const panel = v ? panel_of(walk, s, buffer) : nullptr;
    for (std::int32_t c = 0; c < k && panel; ++c) {
        const double* from = y + std::int64_t{c} * tree_.size();
        double* to = v + std::int64_t{c} * rows;
        std::copy_n(from + f.first, columns, to);
        for (std::int32_t i = 0; i < f.update_count(); ++i)
            to[columns + i] = from[tree_.update_rows[f.update + i]];
    }
    for (std::int32_t at = (columns - 1) / tile_columns * tile_columns; at >= 0 && panel;
         at -= tile_columns) {
        const int width = std::min(tile_columns, columns - at), ld = rows - at, below = ld - width;
        const double* l = panel + tile_offset(rows, at / tile_columns);
        double* b = v + at;
        const bool large = std::int64_t{rows} * columns > large_panel && below > strip_rows;
        const int step = large ? strip_columns : width;
        if (below > 0) {
#pragma omp taskgroup
            for (int first = 0; first < width; first += step) {
#pragma omp task firstprivate(first) if (large)
                DenseProduct{true, below, std::min(step, width - first), l + width + std::int64_t{first} * ld,
                             ld}
                    .subtract(b + width, rows, b + first, rows, k);
            }
        }
        solve_triangle(true, width, l, ld, b, rows, k);
        swap_rows(f.first + at, width, b, rows, k, true);
    }
    for (std::int32_t c = 0; c < k && panel; ++c)
        std::copy_n(v + std::int64_t{c} * rows, columns, y + std::int64_t{c} * tree_.size() + f.first);
    walk.pool.give(buffer);
    walk.pool.give(v);
}

FactorStatus MultifrontalFactor::solve_once(std::span<double> x, std::int32_t k, const Progress* progress) {
    const std::int64_t n = tree_.size();
    std::vector<double> y(n * std::min(k, most_columns));
    for (std::int32_t first = 0; first < k; first += most_columns) {
        const std::int32_t columns = std::min(most_columns, k - first);
        double* const to = x.data() + first * n;
        for (std::int32_t c = 0; c < columns; ++c)
            for (std::int64_t p = 0; p < n; ++p) y[c * n + p] = to[c * n + tree_.equation[p]];
        Walk walk(tree_, options_.threads, std::int64_t{1} << 24, progress);
        if (!walk.whole()) walk.end(FactorStatus::out_of_memory);
        const auto visit = [&](bool up) {
            return [&, up](std::int32_t s) {
                if (ends(walk)) return;
                up ? eliminate_columns(walk, s, y.data(), columns)
                   : substitute_back(walk, s, y.data(), columns);
            };
        };
        if (!walk.ended()) walk_up(walk, visit(true));
        if (!walk.ended()) walk_down(walk, visit(false));
        if (const FactorStatus status = finish(walk); status != FactorStatus::ok) return status;
        for (std::int32_t c = 0; c < columns; ++c)
            for (std::int64_t p = 0; p < n; ++p) to[c * n + tree_.equation[p]] = y[c * n + p];
    }
    return FactorStatus::ok;
}

// ‖b - A x‖ / (‖A‖ ‖x‖ + ‖b‖) with the residual itself; ‖A‖ its largest entry.
double MultifrontalFactor::backward_error(std::span<const double> b, std::span<const double> x,
                                          std::span<double> residual) const {
    multiply(*km_, values_, x, residual);
    for (std::size_t i = 0; i < b.size(); ++i) residual[i] = b[i] - residual[i];
    const double size = reference_.empty() ? 0 : std::ranges::max(reference_);
    const double scale = size * norm(x) + norm(b);
    return scale > 0 ? norm(residual) / scale : 0;
}

// Pivots of both signs are sought inside small blocks only: tries the factor on one vector.
FactorStatus MultifrontalFactor::check_growth(const Progress& progress) {
    constexpr double tolerable = 1e-14;
    std::vector<double> b(tree_.size()), residual(tree_.size());
    for (std::size_t i = 0; i < b.size(); ++i) b[i] = i % 3 == 0 ? 1 : i % 3 == 1 ? -0.5 : 0.25;
    std::vector<double> x = b;
    if (const FactorStatus status = solve_once(x, 1, &progress); status != FactorStatus::ok) return status;
    refines_ = !(backward_error(b, x, residual) <= tolerable);
    return FactorStatus::ok;
}

// Iterative refinement (Wilkinson 1963): while the residual falls, three times at most.
bool MultifrontalFactor::refine(std::span<const double> b, std::span<double> x, std::int32_t k,
                                const Progress* progress) {
    const std::int64_t n = tree_.size();
    std::vector<double> step(n), residual(n);
    for (std::int32_t c = 0; c < k; ++c) {
        const std::span<double> column = x.subspan(c * n, n);
        const std::span<const double> side = b.subspan(c * n, n);
        double error = backward_error(side, column, residual);
        for (int round = 0; round < 3 && error > 1e-16; ++round) {
            step = residual;
            if (solve_once(step, 1, progress) != FactorStatus::ok) return false;
            for (std::int64_t i = 0; i < n; ++i) step[i] += column[i];
            const double now = backward_error(side, step, residual);
            if (!(now < 0.5 * error)) break;
            std::ranges::copy(step, column.begin());
            error = now;
        }
    }
    return true;
}

bool MultifrontalFactor::solve(std::span<double> x, std::int32_t k, const Progress* progress) {
    try {
        if (!refines_) return solve_once(x, k, progress) == FactorStatus::ok;
        const std::vector<double> b(x.begin(), x.end());
        return solve_once(x, k, progress) == FactorStatus::ok && refine(b, x, k, progress);
    } catch (const std::bad_alloc&) {
        error_ = "not enough memory";
        return false;
    }
}

MultifrontalFactor::PanelFile::PanelFile(const std::string& log_folder)
    : name_(paths::to_platform(formatted("log\\%s_0.txt", fronts_stem), log_folder)) {}

MultifrontalFactor::PanelFile::~PanelFile() {
    if (file_ >= 0) close(file_);
}

bool MultifrontalFactor::PanelFile::fail(const char* what) {
    int none = 0;
    if (number_.compare_exchange_strong(none, errno ? errno : EIO)) what_ = what;
    return false;
}

bool MultifrontalFactor::PanelFile::open() {
    file_ = ::open(name_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return file_ >= 0 || fail("opened");
}

bool MultifrontalFactor::PanelFile::write(const double* from, std::int64_t offset, std::int64_t doubles,
                                          const Stops& stops) {
    const char* bytes = reinterpret_cast<const char*>(from);
    for (std::int64_t done = 0; done < 8 * doubles;) {
        if (stops()) return false;
        const ssize_t some =
            pwrite(file_, bytes + done, std::min(piece, 8 * doubles - done), 8 * offset + done);
        if (some < 0 && errno == EINTR) continue;
        if (some <= 0) return fail("written");
        done += some;
    }
    return true;
}

bool MultifrontalFactor::PanelFile::read(double* to, std::int64_t offset, std::int64_t doubles,
                                         const Stops& stops) {
    char* bytes = reinterpret_cast<char*>(to);
    for (std::int64_t done = 0; done < 8 * doubles;) {
        if (stops()) return false;
        const ssize_t some =
            pread(file_, bytes + done, std::min(piece, 8 * doubles - done), 8 * offset + done);
        if (some < 0 && errno == EINTR) continue;
        if (some == 0) errno = EIO;  // shorter than it was written
        if (some <= 0) return fail("read");
        done += some;
    }
    return true;
}

std::string MultifrontalFactor::PanelFile::error() const {
    return name_ + " cannot be " + what_.load() + ": " + std::strerror(number_);
}

}  // namespace kestralum
