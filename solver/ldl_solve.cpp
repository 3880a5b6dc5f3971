// Solves and products with the factor, panel by panel.
#include <cblas.h>

#include <algorithm>
#include <atomic>
#include <exception>

#include "solver/ldl.h"

namespace kestralum {

namespace {

// Rows of a panel and what of x they meet, seen column-major, where P = Lᵀ.
struct View {
    const double* P;  // what stands before the panel's triangle, or the triangle
    std::int32_t ld, rows;
    double* own;  // the rows of x
    std::int32_t width;
    double* before;  // the rows of x that P reaches back to
    std::int32_t n, k;
    bool single;  // one right-hand side in all
};

// own += factor · L before
void add_before(const View& v, double factor) {
    if (v.single)
        cblas_dgemv(CblasColMajor, CblasTrans, v.width, v.rows, factor, v.P, v.ld, v.before, 1, 1.0, v.own,
                    1);
    else
        cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, v.rows, v.k, v.width, factor, v.P, v.ld,
                    v.before, v.n, 1.0, v.own, v.n);
}

// before += factor · Lᵀ own
void add_to_before(const View& v, double factor) {
    if (v.single)
        cblas_dgemv(CblasColMajor, CblasNoTrans, v.width, v.rows, factor, v.P, v.ld, v.own, 1, 1.0, v.before,
                    1);
    else
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, v.width, v.k, v.rows, factor, v.P, v.ld, v.own,
                    v.n, 1.0, v.before, v.n);
}

// The triangle on own: solve or multiply, with L (transposed in this view) or Lᵀ.
void solve_triangle(const View& v, CBLAS_TRANSPOSE trans, CBLAS_DIAG diag) {
    cblas_dtrsm(CblasColMajor, CblasLeft, CblasUpper, trans, diag, v.rows, v.k, 1.0, v.P, v.ld, v.own, v.n);
}
void multiply_triangle(const View& v, CBLAS_TRANSPOSE trans) {
    cblas_dtrmm(CblasColMajor, CblasLeft, CblasUpper, trans, CblasNonUnit, v.rows, v.k, 1.0, v.P, v.ld, v.own,
                v.n);
}

constexpr std::int32_t group_columns = 8;

// With one right-hand side a panel is taken in strips of rows that stay in the cache, whether it lies dense
// or is made so: as many as fit, in eights, so that the products' inner groups are those of the whole panel.
std::int32_t strip_rows(const PanelGrid& grid, std::int32_t I, bool single) {
    constexpr std::int32_t most_doubles = 1 << 16;
    return single ? std::max(8, most_doubles / grid.ld[I] / 8 * 8) : grid.nb;
}

}  // namespace

// What is done with each panel: its rows' part before the triangle, and the triangle.
struct SkylineFactor::Operation {
    bool forward;         // the panels' order
    bool triangle_first;  // of one panel
    void (*before)(const View& v);
    void (*triangle)(const View& v);
};

bool SkylineFactor::read_panel(std::int32_t I, double* buffer) {
    const std::int32_t first = grid_.row_begin(I), last = grid_.row_end(I);
    clear_before_rows(profile_, grid_, first, last, buffer);
    std::vector<double*> rows;
    for (std::int32_t i = first; i < last; ++i)
        rows.push_back(buffer + grid_.at(I, i, profile_.first_column(i)));
    return files_.read_rows(first, last, rows.data());
}

// Of one thread.
struct SkylineFactor::Scratch {
    Block rows;          // of a panel that is read back or made dense: all, or a strip
    Block triangle;      // of a packed panel that is taken in strips
    const double* all;   // the panel's dense rows, null where they are made strip by strip
    std::int32_t strip;  // rows
};

// One panel with k columns of x.
void SkylineFactor::take_panel(const Operation& operation, std::int32_t I, Scratch& scratch, double* x,
                               std::int32_t k, bool single) const {
    const std::int32_t begin = grid_.row_begin(I), end = grid_.row_end(I), first = grid_.first_col[I];
    const std::int32_t ld = grid_.ld[I], width = begin - first;
    const auto view = [&](const double* P, std::int32_t leading, std::int32_t row, std::int32_t rows) {
        return View{P, leading, rows, x + row, width, x + first, grid_.n, k, single};
    };
    const auto before = [&] {
        for (std::int32_t row = begin; row < end; row += scratch.strip) {
            const std::int32_t last = std::min(end, row + scratch.strip);
            const double* rows = scratch.all ? scratch.all + grid_.at(I, row, first)
                                             : panels_.dense(I, row, last, scratch.rows.get());
            operation.before(view(rows, ld, row, last - row));
        }
    };
    if (!operation.triangle_first) before();
    if (scratch.all) {
        operation.triangle(view(scratch.all + width, ld, begin, end - begin));
    } else {
        panels_.copy_triangle(I, scratch.triangle.get());
        operation.triangle(view(scratch.triangle.get(), grid_.nb, begin, end - begin));
    }
    if (operation.triangle_first) before();
}

// Right-hand sides are taken in groups of `group_columns`, whatever the number of threads; this thread takes
// every group of number thread + i·threads through all panels.
FactorStatus SkylineFactor::take_panels(const Operation& operation, std::span<double> x, std::int32_t k,
                                        int thread, int threads, const Progress* progress) {
    const bool single = k == 1;
    std::int64_t doubles = 0;
    for (std::int32_t I = 0; I < grid_.panels(); ++I)
        if (spilled() || grid_.packed[I])
            doubles = std::max(doubles, spilled() ? grid_.doubles(I)
                                                  : std::int64_t{strip_rows(grid_, I, single)} * grid_.ld[I]);
    Scratch scratch{allocate_block(doubles), allocate_block(std::int64_t{grid_.nb} * grid_.nb), nullptr, 0};
    if (!scratch.rows || !scratch.triangle) return FactorStatus::out_of_memory;
    for (std::int32_t s = 0; s < grid_.panels(); ++s) {
        if (progress && progress->cancelled()) return FactorStatus::cancelled;
        const std::int32_t I = operation.forward ? s : grid_.panels() - 1 - s;
        if (spilled() && !read_panel(I, scratch.rows.get())) return FactorStatus::file_failed;
        scratch.strip = strip_rows(grid_, I, single);
        scratch.all = spilled() ? scratch.rows.get()
                      : single && grid_.packed[I]
                          ? nullptr
                          : panels_.dense(I, grid_.row_begin(I), grid_.row_end(I), scratch.rows.get());
        for (std::int32_t c = thread * group_columns; c < k; c += threads * group_columns)
            take_panel(operation, I, scratch, x.data() + std::int64_t{c} * grid_.n,
                       std::min(group_columns, k - c), single);
    }
    return FactorStatus::ok;
}

FactorStatus SkylineFactor::sweep(const Operation& operation, std::span<double> x, std::int32_t k,
                                  const Progress* progress) {
    use_serial_blas();
    const int groups = (k + group_columns - 1) / group_columns;
    const int threads = spilled() ? 1 : std::min(options_.threads, groups);
    std::atomic<FactorStatus> status{FactorStatus::ok};
#pragma omp parallel for schedule(static, 1) num_threads(threads) if (threads > 1)
    for (int thread = 0; thread < threads; ++thread) {
        FactorStatus own = FactorStatus::out_of_memory;
        try {
            own = take_panels(operation, x, k, thread, threads, progress);
        } catch (...) {  // no exception may leave a thread
        }
        if (own != FactorStatus::ok) status = own;
    }
    if (status != FactorStatus::ok) fail(status);
    return status;
}

bool SkylineFactor::solve_ldl(std::span<double> x, std::int32_t k, const Progress* progress) {
    if (k == 1 && !spilled()) return solve_one(x.data(), progress);
    constexpr Operation forward{true, false, [](const View& v) { add_before(v, -1.0); },
                                [](const View& v) { solve_triangle(v, CblasTrans, CblasUnit); }};
    constexpr Operation backward{false, true, [](const View& v) { add_to_before(v, -1.0); },
                                 [](const View& v) { solve_triangle(v, CblasNoTrans, CblasUnit); }};
    if (sweep(forward, x, k, progress) != FactorStatus::ok) return false;
    const std::int64_t n = profile_.rows();
    for (std::int64_t c = 0; c < k; ++c)
        for (std::int64_t i = 0; i < n; ++i) x[c * n + i] /= D_[i];
    return sweep(backward, x, k, progress) == FactorStatus::ok;
}

// Rows below are done before rows above need the old values of x: backward.
bool SkylineFactor::multiply_w(std::span<double> x, std::int32_t k, const Progress* progress) {
    constexpr Operation product{false, true, [](const View& v) { add_before(v, 1.0); },
                                [](const View& v) { multiply_triangle(v, CblasTrans); }};
    return sweep(product, x, k, progress) == FactorStatus::ok;
}

bool SkylineFactor::multiply_wt(std::span<double> x, std::int32_t k, const Progress* progress) {
    constexpr Operation product{true, false, [](const View& v) { add_to_before(v, 1.0); },
                                [](const View& v) { multiply_triangle(v, CblasNoTrans); }};
    return sweep(product, x, k, progress) == FactorStatus::ok;
}

bool SkylineFactor::solve_wt(std::span<double> x, std::int32_t k, const Progress* progress) {
    if (k == 1 && !spilled()) return solve_one(x.data(), progress);
    constexpr Operation backward{false, true, [](const View& v) { add_to_before(v, -1.0); },
                                 [](const View& v) { solve_triangle(v, CblasNoTrans, CblasNonUnit); }};
    return sweep(backward, x, k, progress) == FactorStatus::ok;
}

bool SkylineFactor::read_row(std::int32_t i, std::span<double> row) {
    double* target = row.data();
    if (spilled()) return files_.read_rows(i, i + 1, &target);
    std::copy_n(panels_.row(i), profile_.height[i], target);
    return true;
}

}  // namespace kestralum
