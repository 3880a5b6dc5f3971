#include "solver/ldl.h"

#include <cblas.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>

#include "model/console.h"

namespace kestralum {

// What the threads share while a factorization runs.
struct LdlFactor::Progress {
    explicit Progress(std::int32_t panels)
        : done(static_cast<std::size_t>(panels)), stored(static_cast<std::size_t>(panels), 0) {
        for (auto& flag : done) flag.store(false, std::memory_order_relaxed);
    }
    std::vector<std::atomic<bool>> done;  // panel is computed: others may read it
    std::atomic<std::int32_t> next{0};    // next panel to take
    std::atomic<bool> stop{false};
    std::atomic<FactorStatus> status{FactorStatus::ok};

    std::mutex report_lock;     // guards what follows: lines are printed in row order
    std::vector<char> stored;   // panel is in its file
    std::int32_t reported = 0;  // panels below are stored and reported
    std::int32_t freed = 0;     // panels below are freed (spilled factor)
    std::int32_t division = 0;  // division that the reported row is in, one band behind

    void fail(FactorStatus why) {
        FactorStatus ok = FactorStatus::ok;
        status.compare_exchange_strong(ok, why);
        stop = true;
    }
};

LdlFactor::LdlFactor(Profile profile, Divisions divisions, FactorOptions options)
    : profile_(std::move(profile)), divisions_(std::move(divisions)), options_(options),
      grid_(make_panel_grid(profile_, options.panel_rows)), files_(options.file_stem, profile_, divisions_) {
    if (options_.diag_num < profile_.max_height) options_.diag_num = profile_.max_height;
}

// The panel's rows of the matrix, zero elsewhere.
void LdlFactor::load_panel_of_matrix(const SparseKM& km, std::span<const double> values, std::int32_t I, double* G) const {
    std::memset(G, 0, static_cast<std::size_t>(grid_.doubles(I)) * sizeof(double));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i) {
        const auto row = static_cast<std::size_t>(i);
        double* g = G + grid_.at(I, i, 0);
        for (std::int64_t k = km.row_start[row]; k < km.row_start[row] + km.row_count[row]; ++k) {
            const std::int32_t j = km.col_index[static_cast<std::size_t>(k)];
            if (j > i) break;
            g[j] = values[static_cast<std::size_t>(k)];
        }
    }
}

// The diagonal block of panel I, in strips of columns: what the strips before and the panels
// before contribute, the strip's own triangle, then the rows below it.
void LdlFactor::factor_diagonal_block(std::int32_t I, double* G, double* L) {
    constexpr std::int32_t strip = 32;
    const std::int32_t ld = grid_.ld[static_cast<std::size_t>(I)];
    const std::int32_t first = grid_.first_col[static_cast<std::size_t>(I)];
    const std::int32_t end = grid_.row_end(I);
    for (std::int32_t s = grid_.row_begin(I); s < end; s += strip) {
        const std::int32_t s_end = std::min(end, s + strip), columns = s_end - s, below = end - s;
        double* g = G + grid_.at(I, s, s);  // rows s …, columns s … s_end
        double* l = L + grid_.at(I, s, s);
        if (s > first)
            cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, below, columns, s - first, -1.0,
                        G + grid_.at(I, s, first), ld, L + grid_.at(I, s, first), ld, 1.0, g, ld);
        for (std::int32_t a = 0; a < columns; ++a) {
            double* ga = g + std::int64_t{a} * ld;
            double* la = l + std::int64_t{a} * ld;
            double pivot = ga[a];
            for (std::int32_t b = 0; b < a; ++b) {
                double sum = ga[b];
                const double* lb = l + std::int64_t{b} * ld;
                for (std::int32_t m = 0; m < b; ++m) sum -= ga[m] * lb[m];
                ga[b] = sum;
                la[b] = sum / D_[static_cast<std::size_t>(s + b)];
                pivot -= sum * la[b];
            }
            la[a] = 1.0;
            D_[static_cast<std::size_t>(s + a)] = pivot;
        }
        const std::int32_t rest = below - columns;
        if (rest == 0) continue;
        double* g_rest = g + std::int64_t{columns} * ld;
        double* l_rest = l + std::int64_t{columns} * ld;
        cblas_dtrsm(CblasRowMajor, CblasRight, CblasLower, CblasTrans, CblasUnit, rest, columns, 1.0, l, ld, g_rest, ld);
        for (std::int32_t r = 0; r < rest; ++r)
            for (std::int32_t c = 0; c < columns; ++c)
                l_rest[std::int64_t{r} * ld + c] = g_rest[std::int64_t{r} * ld + c] / D_[static_cast<std::size_t>(s + c)];
    }
}

// G holds the matrix on entry; L receives the panel of the factor.
void LdlFactor::factor_panel(std::int32_t I, double* G, double* L) {
    const std::int32_t ld = grid_.ld[static_cast<std::size_t>(I)];
    const std::int32_t rows = grid_.rows(I), first = grid_.first_col[static_cast<std::size_t>(I)];
    for (std::int32_t J = first / grid_.nb; J < I; ++J) {
        while (!progress_->done[static_cast<std::size_t>(J)].load(std::memory_order_acquire)) {
            if (progress_->stop.load(std::memory_order_relaxed)) return;
            sched_yield();
        }
        const double* LJ = panels_.panel(J);
        const std::int32_t ldJ = grid_.ld[static_cast<std::size_t>(J)];
        const std::int32_t c0 = std::max(first, grid_.row_begin(J)), c1 = grid_.row_end(J), columns = c1 - c0;
        const std::int32_t k0 = std::max(first, grid_.first_col[static_cast<std::size_t>(J)]);
        double* g = G + (c0 - first);
        if (c0 > k0)
            cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, rows, columns, c0 - k0, -1.0, G + (k0 - first), ld,
                        LJ + grid_.at(J, c0, k0), ldJ, 1.0, g, ld);
        cblas_dtrsm(CblasRowMajor, CblasRight, CblasLower, CblasTrans, CblasUnit, rows, columns, 1.0,
                    LJ + grid_.at(J, c0, c0), ldJ, g, ld);
        const double* d = &D_[static_cast<std::size_t>(c0)];
        for (std::int32_t r = 0; r < rows; ++r) {
            const double* gr = g + std::int64_t{r} * ld;
            double* lr = L + std::int64_t{r} * ld + (c0 - first);
            for (std::int32_t c = 0; c < columns; ++c) lr[c] = gr[c] / d[c];
        }
    }
    factor_diagonal_block(I, G, L);
}

bool LdlFactor::store_panel(std::int32_t I, const double* L) {
    std::vector<const double*> rows(static_cast<std::size_t>(grid_.rows(I)));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i)
        rows[static_cast<std::size_t>(i - grid_.row_begin(I))] = L + grid_.at(I, i, profile_.first_column(i));
    return files_.write_rows(grid_.row_begin(I), grid_.row_end(I), rows.data());
}

// The lines of one spilled division, when row i is the first that cannot reach back into it; at the
// end (i = n) for what is left.
void LdlFactor::report_spill(std::int32_t i) {
    const auto b = static_cast<std::size_t>(progress_->division);
    const auto count = static_cast<std::size_t>(divisions_.count());
    const auto& start = divisions_.div_profile;
    const std::int64_t kept = profile_.sky_start[static_cast<std::size_t>(i)] - start[b + 1];
    const std::int64_t room = b + 1 < count ? start[std::min(b + 3, count)] - start[b + 1] : 0;
    console::print("    %s, n=%lld,", files_.stored_name(progress_->division).c_str(), static_cast<long long>(start[b + 1] - start[b]));
    console::print(" n2=%lld,", static_cast<long long>(kept));
    console::print(" n=%lld\n", static_cast<long long>(room));
    files_.close(progress_->division);
    ++progress_->division;
}

void LdlFactor::report_row(std::int32_t i) {
    const std::int32_t n = profile_.rows();
    if (i > 0) console::counter(i, n);
    if (progress_->division + 1 < divisions_.count() &&
        i == divisions_.div_row[static_cast<std::size_t>(progress_->division) + 1] + options_.diag_num)
        report_spill(i);
    const double d = D_[static_cast<std::size_t>(i)];
    if (d < 0.0) {
        ++negative_pivots_;
        console::print("Warning   D[%d]:%.3e\n", i, d);
    }
}

// Panel I is in its file: everything up to the first panel that is not is reported in order, and
// what no later panel reads is freed.
void LdlFactor::report_stored(std::int32_t I) {
    Progress& p = *progress_;
    std::lock_guard hold(p.report_lock);
    p.stored[static_cast<std::size_t>(I)] = 1;
    while (p.reported < grid_.panels() && p.stored[static_cast<std::size_t>(p.reported)]) {
        for (std::int32_t i = grid_.row_begin(p.reported); i < grid_.row_end(p.reported); ++i) report_row(i);
        ++p.reported;
    }
    if (!spilled()) return;
    while (p.freed < p.reported && grid_.last_use[static_cast<std::size_t>(p.freed)] < p.reported)
        panels_.give_back(p.freed++);
}

FactorStatus LdlFactor::factor_ldl(const SparseKM& km, std::span<const double> values) {
    const auto clock_start = std::chrono::steady_clock::now();
    const std::int32_t n = profile_.rows();
    console::print("my_LDLsky_HD_Ksky\n");
    console::print("  LDL K_sparse\n");
    console::print("    Ls_num=%lld\n", static_cast<long long>(profile_.Ls_num));
    console::print("    temp_L[%lld]\n", static_cast<long long>(divisions_.div_profile[divisions_.count() > 1 ? 2 : 1]));
    use_serial_blas();
    files_.remove_old();
    D_.assign(static_cast<std::size_t>(n), 0.0);
    negative_pivots_ = 0;
    progress_ = std::make_shared<Progress>(grid_.panels());
    const std::int64_t largest = grid_.largest_panel();
    panels_ = PanelStore(grid_, spilled());

#pragma omp parallel num_threads(options_.threads)
    {
        Progress& p = *progress_;
        const Block G = allocate_block(largest);
        if (!G) p.fail(FactorStatus::out_of_memory);
        while (!p.stop.load(std::memory_order_relaxed)) {
            const std::int32_t I = p.next.fetch_add(1);
            if (I >= grid_.panels()) break;
            double* L = panels_.take(I);
            if (!L) {
                p.fail(FactorStatus::out_of_memory);
                break;
            }
            load_panel_of_matrix(km, values, I, G.get());
            factor_panel(I, G.get(), L);
            if (p.stop.load(std::memory_order_relaxed)) break;
            p.done[static_cast<std::size_t>(I)].store(true, std::memory_order_release);
            if (!store_panel(I, L)) {
                p.fail(FactorStatus::write_failed);
                break;
            }
            report_stored(I);
            if (console::cancel_requested()) p.fail(FactorStatus::cancelled);
        }
    }

    const FactorStatus status = progress_->status;
    if (status == FactorStatus::ok)
        while (progress_->division < divisions_.count()) report_spill(n);
    if (files_.failed()) error_ = files_.error();
    else if (status == FactorStatus::out_of_memory) error_ = "not enough memory for the factor";
    else if (status == FactorStatus::cancelled) error_ = "stopped by the user";
    progress_.reset();
    if (status != FactorStatus::ok || files_.failed()) {
        panels_ = {};
        return status == FactorStatus::ok ? FactorStatus::write_failed : status;
    }
    if (spilled()) panels_ = {};
    console::print("   LDL K_sparse complete\n");
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - clock_start;
    console::print("   %lf[s]\n", seconds.count());
    return FactorStatus::ok;
}

// Panel I of L: as it lies in memory, or read into `buffer`; null when it cannot be read.
const double* LdlFactor::fetch_panel(std::int32_t I, Block& buffer) {
    if (!spilled()) return panels_.panel(I);
    if (!buffer) return nullptr;
    std::memset(buffer.get(), 0, static_cast<std::size_t>(grid_.doubles(I)) * sizeof(double));
    std::vector<double*> rows(static_cast<std::size_t>(grid_.rows(I)));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i)
        rows[static_cast<std::size_t>(i - grid_.row_begin(I))] = buffer.get() + grid_.at(I, i, profile_.first_column(i));
    if (!files_.read_rows(grid_.row_begin(I), grid_.row_end(I), rows.data())) {
        error_ = files_.error();
        return nullptr;
    }
    return buffer.get();
}

bool LdlFactor::solve_ldl(std::span<double> x, std::int32_t k) {
    const std::int32_t n = profile_.rows();
    Block buffer = spilled() ? allocate_block(grid_.largest_panel()) : nullptr;
    if (spilled() && !buffer) error_ = "not enough memory to read the factor";
    use_serial_blas();
    auto panel_step = [&](std::int32_t I, bool forward) {
        const double* L = fetch_panel(I, buffer);
        if (!L) return false;
        const std::int32_t ld = grid_.ld[static_cast<std::size_t>(I)], rows = grid_.rows(I);
        const std::int32_t first = grid_.first_col[static_cast<std::size_t>(I)], width = grid_.row_begin(I) - first;
        const double* triangle = L + width;
        double* own = x.data() + grid_.row_begin(I);
        double* before = x.data() + first;
        // the row-major panel is, column-major, its transpose: P = Lᵀ (width × rows)
        if (forward) {
            if (k == 1) cblas_dgemv(CblasColMajor, CblasTrans, width, rows, -1.0, L, ld, before, 1, 1.0, own, 1);
            else cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, rows, k, width, -1.0, L, ld, before, n, 1.0, own, n);
        }
        if (k == 1)
            cblas_dtrsv(CblasColMajor, CblasUpper, forward ? CblasTrans : CblasNoTrans, CblasUnit, rows, triangle, ld, own, 1);
        else
            cblas_dtrsm(CblasColMajor, CblasLeft, CblasUpper, forward ? CblasTrans : CblasNoTrans, CblasUnit, rows, k, 1.0,
                        triangle, ld, own, n);
        if (!forward) {
            if (k == 1) cblas_dgemv(CblasColMajor, CblasNoTrans, width, rows, -1.0, L, ld, own, 1, 1.0, before, 1);
            else cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, width, k, rows, -1.0, L, ld, own, n, 1.0, before, n);
        }
        return true;
    };
    for (std::int32_t I = 0; I < grid_.panels(); ++I)
        if (!panel_step(I, true)) return false;
    for (std::int32_t c = 0; c < k; ++c)
        for (std::int32_t i = 0; i < n; ++i)
            x[static_cast<std::size_t>(c) * static_cast<std::size_t>(n) + static_cast<std::size_t>(i)] /= D_[static_cast<std::size_t>(i)];
    for (std::int32_t I = grid_.panels() - 1; I >= 0; --I)
        if (!panel_step(I, false)) return false;
    return true;
}

bool LdlFactor::read_row(std::int32_t i, std::span<double> row) {
    const std::int32_t I = i / grid_.nb;
    if (!spilled()) {
        const double* L = panels_.panel(I) + grid_.at(I, i, profile_.first_column(i));
        std::copy(L, L + profile_.height[static_cast<std::size_t>(i)], row.begin());
        return true;
    }
    double* target = row.data();
    return files_.read_rows(i, i + 1, &target);
}

}  // namespace kestralum
