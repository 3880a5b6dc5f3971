// Solves and products with the factor, panel by panel.
#include <cblas.h>

#include <algorithm>
#include <atomic>
#include <exception>

#include "solver/ldl.h"

namespace kestralum {

bool SkylineFactor::read_panel(std::int32_t I, double* buffer) {
    clear_before_rows(profile_, grid_, I, buffer);
    std::vector<double*> rows(grid_.rows(I));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i)
        rows[i - grid_.row_begin(I)] = buffer + grid_.at(I, i, profile_.first_column(i));
    return files_.read_rows(grid_.row_begin(I), grid_.row_end(I), rows.data());
}

FactorStatus SkylineFactor::sweep(Direction direction, std::int32_t k, const Progress* progress,
                                  const Step& step) {
    constexpr std::int32_t group_columns = 8;  // whatever the number of threads
    use_serial_blas();
    const std::int32_t panels = grid_.panels(), groups = (k + group_columns - 1) / group_columns;
    const int threads = spilled() ? 1 : std::min(options_.threads, groups);
    const std::int64_t scratch = spilled() ? grid_.largest_panel() : grid_.largest_packed_panel();
    std::atomic<FactorStatus> status{FactorStatus::ok};
    const auto take_groups = [&](int thread) {
        const Block buffer = scratch > 0 ? allocate_block(scratch) : nullptr;
        if (scratch > 0 && !buffer) throw std::bad_alloc();
        for (std::int32_t s = 0; s < panels && status == FactorStatus::ok; ++s) {
            if (progress && progress->cancelled()) status = FactorStatus::cancelled;
            const std::int32_t I = direction == Direction::forward ? s : panels - 1 - s;
            if (spilled() && !read_panel(I, buffer.get())) status = FactorStatus::file_failed;
            if (status != FactorStatus::ok) return;
            const double* panel = spilled() ? buffer.get() : panels_.dense(I, buffer.get());
            for (std::int32_t g = thread; g < groups; g += threads)
                step(I, panel, {g * group_columns, std::min(group_columns, k - g * group_columns)});
        }
    };
#pragma omp parallel for schedule(static, 1) num_threads(threads) if (threads > 1)
    for (int thread = 0; thread < threads; ++thread) {
        try {
            take_groups(thread);
        } catch (...) {
            status = FactorStatus::out_of_memory;
        }
    }
    if (status != FactorStatus::ok) fail(status);
    return status;
}

namespace {

// One panel seen column-major, where it is its transpose P = Lᵀ: `width` columns before its triangle.
struct PanelView {
    const double* P;
    const double* triangle;
    std::int32_t ld, rows, width;
    double* own;     // the panel's rows of x
    double* before;  // the rows its width reaches back to
    std::int32_t n, k;
};

PanelView view(const PanelGrid& grid, std::int32_t I, const double* L, std::span<double> x,
               std::int32_t column, std::int32_t k) {
    const std::int32_t first = grid.first_col[I], width = grid.row_begin(I) - first;
    double* at = x.data() + std::int64_t{column} * grid.n;
    return {L, L + width, grid.ld[I], grid.rows(I), width, at + grid.row_begin(I), at + first, grid.n, k};
}

// own += factor · L before
void add_before(const PanelView& v, double factor, bool single) {
    if (single)
        cblas_dgemv(CblasColMajor, CblasTrans, v.width, v.rows, factor, v.P, v.ld, v.before, 1, 1.0, v.own,
                    1);
    else
        cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, v.rows, v.k, v.width, factor, v.P, v.ld,
                    v.before, v.n, 1.0, v.own, v.n);
}

// before += factor · Lᵀ own
void add_to_before(const PanelView& v, double factor, bool single) {
    if (single)
        cblas_dgemv(CblasColMajor, CblasNoTrans, v.width, v.rows, factor, v.P, v.ld, v.own, 1, 1.0, v.before,
                    1);
    else
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, v.width, v.k, v.rows, factor, v.P, v.ld, v.own,
                    v.n, 1.0, v.before, v.n);
}

// The triangle on own: solve or multiply, with L (transposed = true in the transposed view) or Lᵀ.
void solve_triangle(const PanelView& v, CBLAS_TRANSPOSE trans, CBLAS_DIAG diag) {
    cblas_dtrsm(CblasColMajor, CblasLeft, CblasUpper, trans, diag, v.rows, v.k, 1.0, v.triangle, v.ld, v.own,
                v.n);
}
void multiply_triangle(const PanelView& v, CBLAS_TRANSPOSE trans) {
    cblas_dtrmm(CblasColMajor, CblasLeft, CblasUpper, trans, CblasNonUnit, v.rows, v.k, 1.0, v.triangle, v.ld,
                v.own, v.n);
}

}  // namespace

bool SkylineFactor::solve_ldl(std::span<double> x, std::int32_t k, const Progress* progress) {
    const bool single = k == 1;
    const auto forward = [&](std::int32_t I, const double* L, const Columns& c) {
        const PanelView v = view(grid_, I, L, x, c.first, c.count);
        add_before(v, -1.0, single);
        solve_triangle(v, CblasTrans, CblasUnit);
    };
    const auto backward = [&](std::int32_t I, const double* L, const Columns& c) {
        const PanelView v = view(grid_, I, L, x, c.first, c.count);
        solve_triangle(v, CblasNoTrans, CblasUnit);
        add_to_before(v, -1.0, single);
    };
    if (sweep(Direction::forward, k, progress, forward) != FactorStatus::ok) return false;
    const std::int64_t n = profile_.rows();
    for (std::int64_t c = 0; c < k; ++c)
        for (std::int64_t i = 0; i < n; ++i) x[c * n + i] /= D_[i];
    return sweep(Direction::backward, k, progress, backward) == FactorStatus::ok;
}

// Rows below are done before rows above need the old values of x: backward.
bool SkylineFactor::multiply_w(std::span<double> x, std::int32_t k, const Progress* progress) {
    const auto step = [&](std::int32_t I, const double* W, const Columns& c) {
        const PanelView v = view(grid_, I, W, x, c.first, c.count);
        multiply_triangle(v, CblasTrans);
        add_before(v, 1.0, k == 1);
    };
    return sweep(Direction::backward, k, progress, step) == FactorStatus::ok;
}

bool SkylineFactor::multiply_wt(std::span<double> x, std::int32_t k, const Progress* progress) {
    const auto step = [&](std::int32_t I, const double* W, const Columns& c) {
        const PanelView v = view(grid_, I, W, x, c.first, c.count);
        add_to_before(v, 1.0, k == 1);
        multiply_triangle(v, CblasNoTrans);
    };
    return sweep(Direction::forward, k, progress, step) == FactorStatus::ok;
}

bool SkylineFactor::solve_wt(std::span<double> x, std::int32_t k, const Progress* progress) {
    const auto step = [&](std::int32_t I, const double* W, const Columns& c) {
        const PanelView v = view(grid_, I, W, x, c.first, c.count);
        solve_triangle(v, CblasNoTrans, CblasNonUnit);
        add_to_before(v, -1.0, k == 1);
    };
    return sweep(Direction::backward, k, progress, step) == FactorStatus::ok;
}

bool SkylineFactor::read_row(std::int32_t i, std::span<double> row) {
    double* target = row.data();
    if (spilled()) return files_.read_rows(i, i + 1, &target);
    std::copy_n(panels_.row(i), profile_.height[i], target);
    return true;
}

}  // namespace kestralum
