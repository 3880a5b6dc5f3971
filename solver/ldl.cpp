#include "solver/ldl.h"

#include <cblas.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
#include <thread>

namespace kestralum {

// What the threads share while a factorization runs.
struct SkylineFactor::Shared {
    Shared(std::int32_t panels, Progress& to) : progress(to), done(panels) {
        for (auto& flag : done) flag.store(false, std::memory_order_relaxed);
    }
    Progress& progress;
    std::vector<std::atomic<bool>> done;  // panel is computed: others may read it
    std::atomic<std::int32_t> next{0};    // next panel to take
    std::atomic<bool> stop{false};
    std::atomic<FactorStatus> status{FactorStatus::ok};

    // of the thread that writes
    std::int32_t reported = 0;     // panels below are stored and reported
    std::int32_t freed = 0;        // panels below are freed (spilled factor)
    std::vector<double> diagonal;  // of the matrix, for the lines of W
    std::int32_t division = 0;     // division that the reported row is in, one band behind

    std::mutex queue_lock;  // guards `computed` and `closed`
    std::condition_variable queue_changed;
    std::deque<std::int32_t> computed;  // panels that wait for their file
    bool closed = false;                // no more will come

    // Hands a panel to the writer; waits where the disk is so far behind that memory would fill.
    void hand_over(std::int32_t I) {
        std::unique_lock hold(queue_lock);
        queue_changed.wait(hold, [&] { return computed.size() < most_panels_waiting || stop; });
        computed.push_back(I);
        queue_changed.notify_all();
    }
    void close_queue() {
        std::lock_guard hold(queue_lock);
        closed = true;
        queue_changed.notify_all();
    }
    // The next panel to write, -1 when all are written or the work has been given up.
    std::int32_t next_to_write() {
        std::unique_lock hold(queue_lock);
        queue_changed.wait(hold, [&] { return !computed.empty() || closed; });
        if (computed.empty() || stop) return -1;
        const std::int32_t I = computed.front();
        computed.pop_front();
        queue_changed.notify_all();
        return I;
    }

    void fail(FactorStatus why) {
        FactorStatus ok = FactorStatus::ok;
        status.compare_exchange_strong(ok, why);
        std::lock_guard hold(queue_lock);
        stop = true;
        queue_changed.notify_all();
    }
};

SkylineFactor::SkylineFactor(Profile profile, Divisions divisions, FactorOptions options)
    : profile_(std::move(profile)),
      divisions_(std::move(divisions)),
      options_(std::move(options)),
      grid_(make_panel_grid(profile_, options_.panel_rows)),
      files_(options_.log_folder, options_.file_stem, profile_, divisions_,
             spilled() ? std::numeric_limits<std::int64_t>::max() : options_.direct_bytes) {
    if (options_.diag_num < profile_.max_height) options_.diag_num = profile_.max_height;
}

// The panel's rows of the matrix, zero elsewhere.
void SkylineFactor::load_panel_of_matrix(const SparseKM& km, std::span<const double> values, std::int32_t I,
                                         double* G) const {
    std::memset(G, 0, static_cast<std::size_t>(grid_.doubles(I)) * sizeof(double));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i) {
        const std::size_t row = i;
        double* g = G + grid_.at(I, i, 0);
        for (std::int64_t k = km.row_start[row]; k < km.row_start[row] + km.row_count[row]; ++k) {
            const std::int32_t j = km.col_index[k];
            if (j > i) break;
            g[j] = values[k];
        }
    }
}

// The triangle of one strip, unblocked: `row` is the number of its first row.
void SkylineFactor::factor_strip(std::int32_t columns, std::int32_t row, double* g, double* l,
                                 std::int32_t ld) {
    for (std::int32_t a = 0; a < columns; ++a) {
        double* ga = g + std::int64_t{a} * ld;
        double* la = l + std::int64_t{a} * ld;
        double pivot = ga[a];
        for (std::int32_t b = 0; b < a; ++b) {
            double sum = ga[b];
            const double* lb = l + std::int64_t{b} * ld;
            for (std::int32_t m = 0; m < b; ++m) sum -= ga[m] * lb[m];
            if (kind_ == Kind::ldl) {
                ga[b] = sum;
                la[b] = sum / D_[row + b];
            } else {
                ga[b] = la[b] = sum / lb[b];
            }
            pivot -= ga[b] * la[b];
        }
        D_[row + a] = pivot;
        la[a] = kind_ == Kind::ldl ? 1.0 : std::sqrt(std::abs(pivot));
    }
}

// The diagonal block of panel I, in strips of columns: what the strips before and the panels
// before contribute, the strip's own triangle, then the rows below it.
void SkylineFactor::factor_diagonal_block(std::int32_t I, double* G, double* L) {
    constexpr std::int32_t strip = 32;
    const std::int32_t ld = grid_.ld[I];
    const std::int32_t first = grid_.first_col[I];
    const std::int32_t end = grid_.row_end(I);
    for (std::int32_t s = grid_.row_begin(I); s < end; s += strip) {
        const std::int32_t s_end = std::min(end, s + strip), columns = s_end - s, below = end - s;
        double* g = G + grid_.at(I, s, s);  // rows s …, columns s … s_end
        double* l = L + grid_.at(I, s, s);
        if (s > first)
            cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, below, columns, s - first, -1.0,
                        G + grid_.at(I, s, first), ld, L + grid_.at(I, s, first), ld, 1.0, g, ld);
        factor_strip(columns, s, g, l, ld);
        const std::int32_t rest = below - columns;
        if (rest == 0) continue;
        double* g_rest = g + std::int64_t{columns} * ld;
        double* l_rest = l + std::int64_t{columns} * ld;
        cblas_dtrsm(CblasRowMajor, CblasRight, CblasLower, CblasTrans,
                    kind_ == Kind::ldl ? CblasUnit : CblasNonUnit, rest, columns, 1.0, l, ld, g_rest, ld);
        for (std::int32_t r = 0; r < rest && kind_ == Kind::ldl; ++r)
            for (std::int32_t c = 0; c < columns; ++c)
                l_rest[std::int64_t{r} * ld + c] = g_rest[std::int64_t{r} * ld + c] / D_[s + c];
    }
}

// G(:, c0 … c0 + columns) -= G(:, k0 … c0) · L(c0 … c0 + columns, k0 … c0)ᵀ with rows of panel J. Where the
// rows of panel I begin one after another, those that have not begun are left out in steps of `strip` rows.
void SkylineFactor::subtract_products(std::int32_t I, std::int32_t J, const Columns& c, double* G,
                                      const double* LJ) const {
    constexpr std::int32_t strip = 64;
    const std::int32_t first = grid_.first_col[I], ld = grid_.ld[I];
    const auto product = [&](std::int32_t row, std::int32_t rows, std::int32_t from, std::int32_t to) {
        if (rows <= 0 || from >= to) return;
        cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, rows, c.columns, to - from, -1.0,
                    G + grid_.at(I, row, from), ld, LJ + grid_.at(J, c.c0, from), grid_.ld[J], 1.0,
                    G + grid_.at(I, row, c.c0), ld);
    };
    const std::int32_t all_begun = std::clamp(first + grid_.begin_span[I], c.k0, c.c0);
    if (all_begun - c.k0 > strip) {
        for (std::int32_t row = grid_.row_begin(I); row < grid_.row_end(I); row += strip) {
            const std::int32_t end = std::min(grid_.row_end(I), row + strip);
            std::int32_t from = all_begun;
            for (std::int32_t i = row; i < end; ++i) from = std::min(from, profile_.first_column(i) / 8 * 8);
            product(row, end - row, std::max(from, c.k0), all_begun);
        }
        product(grid_.row_begin(I), grid_.rows(I), all_begun, c.c0);
    } else {
        product(grid_.row_begin(I), grid_.rows(I), c.k0, c.c0);
    }
}

// G holds the matrix on entry; L receives the panel of the factor. For W both are the same block.
void SkylineFactor::factor_panel(std::int32_t I, double* G, double* L) {
    const std::int32_t ld = grid_.ld[I];
    const std::int32_t rows = grid_.rows(I), first = grid_.first_col[I];
    for (std::int32_t J = first / grid_.nb; J < I; ++J) {
        while (!shared_->done[J].load(std::memory_order_acquire)) {
            if (shared_->stop.load(std::memory_order_relaxed)) return;
            sched_yield();
        }
        if (shared_->progress.cancelled()) shared_->fail(FactorStatus::cancelled);
        if (shared_->stop.load(std::memory_order_relaxed)) return;
        const double* LJ = panels_.panel(J);
        const std::int32_t c0 = std::max(first, grid_.row_begin(J)), c1 = grid_.row_end(J), columns = c1 - c0;
        const std::int32_t k0 = std::max(first, grid_.first_col[J]);
        double* g = G + (c0 - first);
        subtract_products(I, J, {k0, c0, columns}, G, LJ);
        cblas_dtrsm(CblasRowMajor, CblasRight, CblasLower, CblasTrans,
                    kind_ == Kind::ldl ? CblasUnit : CblasNonUnit, rows, columns, 1.0,
                    LJ + grid_.at(J, c0, c0), grid_.ld[J], g, ld);
        if (kind_ == Kind::ww) continue;
        const double* d = &D_[c0];
        for (std::int32_t r = 0; r < rows; ++r) {
            const double* gr = g + std::int64_t{r} * ld;
            double* lr = L + std::int64_t{r} * ld + (c0 - first);
            for (std::int32_t c = 0; c < columns; ++c) lr[c] = gr[c] / d[c];
        }
    }
    factor_diagonal_block(I, G, L);
}

bool SkylineFactor::store_panel(std::int32_t I, const double* L) {
    std::vector<const double*> rows(grid_.rows(I));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i)
        rows[i - grid_.row_begin(I)] = L + grid_.at(I, i, profile_.first_column(i));
    return files_.write_rows(grid_.row_begin(I), grid_.row_end(I), rows.data());
}

// Beside the threads that compute, so that these never wait for the disk; in the order of the rows.
void SkylineFactor::write_panels() {
    Shared& p = *shared_;
    std::vector<char> waiting(grid_.panels(), 0);
    std::int32_t next = 0;
    for (std::int32_t I = p.next_to_write(); I >= 0; I = p.next_to_write()) {
        waiting[I] = 1;
        for (; next < grid_.panels() && waiting[next]; ++next) {
            if (!store_panel(next, panels_.panel(next))) {
                p.fail(FactorStatus::write_failed);
                break;
            }
            report_stored(next);
        }
        if (p.progress.cancelled()) p.fail(FactorStatus::cancelled);
    }
    if (!files_.flush()) p.fail(FactorStatus::write_failed);
}

// The lines of one spilled division, when row i is the first that cannot reach back into it; at the
// end (i = n) for what is left.
void SkylineFactor::report_spill(std::int32_t i) {
    const std::size_t b = shared_->division;
    const std::size_t count = divisions_.count();
    const auto& start = divisions_.div_profile;
    const std::int64_t kept = profile_.sky_start[i] - start[b + 1];
    const std::int64_t room = b + 1 < count ? start[std::min(b + 3, count)] - start[b + 1] : 0;
    shared_->progress.print("    %s, n=%lld,", files_.stored_name(shared_->division).c_str(),
                            static_cast<long long>(start[b + 1] - start[b]));
    shared_->progress.print(" n2=%lld,", static_cast<long long>(kept));
    shared_->progress.print(" n=%lld\n", static_cast<long long>(room));
    files_.close(shared_->division);
    ++shared_->division;
}

void SkylineFactor::report_row(std::int32_t i) {
    const std::int32_t n = profile_.rows();
    const double d = D_[i];
    if (kind_ == Kind::ww) {
        if (shared_->progress.lines_wanted())
            shared_->progress.print("  %d/%d: Mii=%.3e\r", i, n, shared_->diagonal[i]);
    } else if (i > 0) {
        shared_->progress.counter(i, n);
    }
    if (shared_->division + 1 < divisions_.count() &&
        i == divisions_.div_row[static_cast<std::size_t>(shared_->division) + 1] + options_.diag_num)
        report_spill(i);
    if (!(d < 0.0)) return;
    ++negative_pivots_;
    if (kind_ == Kind::ldl) {
        shared_->progress.print("Warning   D[%d]:%.3e\n", i, d);
    } else {
        const double m = shared_->diagonal[i];
        shared_->progress.print("[M] is not positive define at %dth row\n", i);
        shared_->progress.print("  W[%d][%d]^2: %.3e = sqrt( %.3e - %.3e )\n", i, i, d, m, m - d);
    }
}

// Panel I is in its file: its rows are reported, and what no later panel reads is freed.
void SkylineFactor::report_stored(std::int32_t I) {
    Shared& p = *shared_;
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i) report_row(i);
    p.reported = I + 1;
    if (!spilled()) return;
    while (p.freed < p.reported && grid_.last_use[p.freed] < p.reported) panels_.give_back(p.freed++);
}

FactorStatus SkylineFactor::factor(const SparseKM& km, std::span<const double> values, Kind kind,
                                   Progress& progress) {
    const std::int32_t n = profile_.rows();
    use_serial_blas();
    files_.remove_old();
    kind_ = kind;
    D_.assign(n, 0.0);
    negative_pivots_ = 0;
    shared_ = std::make_shared<Shared>(grid_.panels(), progress);
    for (std::int32_t i = 0; i < n; ++i) shared_->diagonal.push_back(values[km.diag_pos[i]]);
    const std::int64_t largest = grid_.largest_panel();
    if (spilled() || panels_.empty())
        panels_ = PanelStore(grid_, spilled());  // a factor in memory is written over by the next

    std::thread writer([this] { write_panels(); });
#pragma omp parallel num_threads(options_.threads)
    {
        Shared& p = *shared_;
        const Block own = kind == Kind::ldl ? allocate_block(largest) : nullptr;
        if (kind == Kind::ldl && !own) p.fail(FactorStatus::out_of_memory);
        while (!p.stop.load(std::memory_order_relaxed)) {
            const std::int32_t I = p.next.fetch_add(1);
            if (I >= grid_.panels()) break;
            double* L = panels_.take(I);
            if (!L) {
                p.fail(FactorStatus::out_of_memory);
                break;
            }
            double* G = kind == Kind::ldl ? own.get() : L;
            load_panel_of_matrix(km, values, I, G);
            factor_panel(I, G, L);
            if (p.stop.load(std::memory_order_relaxed)) break;
            p.done[I].store(true, std::memory_order_release);
            p.hand_over(I);
        }
    }
    shared_->close_queue();
    writer.join();

    const FactorStatus status = shared_->status;
    if (status == FactorStatus::ok)
        while (shared_->division < divisions_.count()) report_spill(n);
    if (files_.failed())
        error_ = files_.error();
    else if (status == FactorStatus::out_of_memory)
        error_ = "not enough memory for the factor";
    else if (status == FactorStatus::cancelled)
        error_ = "stopped by the user";
    shared_.reset();
    if (status != FactorStatus::ok || files_.failed()) {
        panels_ = {};
        return status == FactorStatus::ok ? FactorStatus::write_failed : status;
    }
    if (spilled()) panels_ = {};
    return FactorStatus::ok;
}

FactorStatus SkylineFactor::factor_ldl(const SparseKM& km, std::span<const double> values,
                                       Progress& progress) {
    const auto clock_start = std::chrono::steady_clock::now();
    progress.print("my_LDLsky_HD_Ksky\n");
    progress.print("  LDL K_sparse\n");
    progress.print("    Ls_num=%lld\n", static_cast<long long>(profile_.Ls_num));
    progress.print("    temp_L[%lld]\n",
                   static_cast<long long>(divisions_.div_profile[divisions_.count() > 1 ? 2 : 1]));
    const FactorStatus status = factor(km, values, Kind::ldl, progress);
    if (status != FactorStatus::ok) return status;
    progress.print("   LDL K_sparse complete\n");
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - clock_start;
    progress.print("   %lf[s]\n", seconds.count());
    return FactorStatus::ok;
}

FactorStatus SkylineFactor::factor_ww(const SparseKM& km, std::span<const double> values,
                                      Progress& progress) {
    progress.print("my_WWsky_HD_Msky\n");
    progress.print("  WW M_sparse\n");
    progress.print("    Ws_num=%lld\n", static_cast<long long>(profile_.Ls_num));
    const FactorStatus status = factor(km, values, Kind::ww, progress);
    if (status != FactorStatus::ok) return status;
    progress.print("   WW M_sparse complete\n");
    check_rows_of_w(km, values, progress);
    return FactorStatus::ok;
}

// m_ii = Σ w_ij² must have come out; it does not where a negative value was replaced by its size.
void SkylineFactor::check_rows_of_w(const SparseKM& km, std::span<const double> values, Progress& progress) {
    constexpr double tolerance = 1e-6;
    Block buffer = spilled() ? allocate_block(grid_.largest_panel()) : nullptr;
    for (std::int32_t I = 0; I < grid_.panels(); ++I) {
        const double* W = fetch_panel(I, buffer);
        for (std::int32_t i = grid_.row_begin(I); W && i < grid_.row_end(I); ++i) {
            double m = values[km.diag_pos[i]];
            for (std::int32_t j = profile_.first_column(i); j <= i; ++j)
                m -= W[grid_.at(I, i, j)] * W[grid_.at(I, i, j)];
            if (std::abs(m) >= tolerance) progress.print("[M] is not positive define at %dth row\n", i);
        }
    }
}

// Panel I of L: as it lies in memory, or read into `buffer`; null when it cannot be read.
const double* SkylineFactor::fetch_panel(std::int32_t I, Block& buffer) {
    if (!spilled()) return panels_.panel(I);
    if (!buffer) return nullptr;
    std::memset(buffer.get(), 0, static_cast<std::size_t>(grid_.doubles(I)) * sizeof(double));
    std::vector<double*> rows(grid_.rows(I));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i)
        rows[i - grid_.row_begin(I)] = buffer.get() + grid_.at(I, i, profile_.first_column(i));
    if (!files_.read_rows(grid_.row_begin(I), grid_.row_end(I), rows.data())) {
        error_ = files_.error();
        return nullptr;
    }
    return buffer.get();
}

// Right-hand sides are taken in groups of this many columns, whatever the number of threads.
constexpr std::int32_t group_columns = 8;

template <typename Step>
bool SkylineFactor::sweep(Direction direction, std::int32_t k, const Step& step) {
    use_serial_blas();
    const std::int32_t panels = grid_.panels(), groups = (k + group_columns - 1) / group_columns;
    auto panel_at = [&](std::int32_t s) { return direction == Direction::forward ? s : panels - 1 - s; };
    auto columns = [&](std::int32_t g) { return std::min(group_columns, k - g * group_columns); };
    if (spilled()) {
        Block buffer = allocate_block(grid_.largest_panel());
        if (!buffer) error_ = "not enough memory to read the factor";
        for (std::int32_t s = 0; s < panels; ++s) {
            const double* L = fetch_panel(panel_at(s), buffer);
            if (!L) return false;
            for (std::int32_t g = 0; g < groups; ++g) step(panel_at(s), L, g * group_columns, columns(g));
        }
        return true;
    }
#pragma omp parallel for schedule(static, 1) num_threads(std::min(options_.threads, groups)) if (groups > 1)
    for (std::int32_t g = 0; g < groups; ++g)
        for (std::int32_t s = 0; s < panels; ++s)
            step(panel_at(s), panels_.panel(panel_at(s)), g * group_columns, columns(g));
    return true;
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

bool SkylineFactor::solve_ldl(std::span<double> x, std::int32_t k) {
    const bool single = k == 1;
    const bool forward =
        sweep(Direction::forward, k,
              [&](std::int32_t I, const double* L, std::int32_t column, std::int32_t columns) {
                  const PanelView v = view(grid_, I, L, x, column, columns);
                  add_before(v, -1.0, single);
                  solve_triangle(v, CblasTrans, CblasUnit);
              });
    if (!forward) return false;
    const std::size_t n = profile_.rows();
    for (std::size_t c = 0; c < static_cast<std::size_t>(k); ++c)
        for (std::size_t i = 0; i < n; ++i) x[c * n + i] /= D_[i];
    return sweep(Direction::backward, k,
                 [&](std::int32_t I, const double* L, std::int32_t column, std::int32_t columns) {
                     const PanelView v = view(grid_, I, L, x, column, columns);
                     solve_triangle(v, CblasNoTrans, CblasUnit);
                     add_to_before(v, -1.0, single);
                 });
}

// Rows below are done before rows above need the old values of x: backward.
bool SkylineFactor::multiply_w(std::span<double> x, std::int32_t k) {
    return sweep(Direction::backward, k,
                 [&](std::int32_t I, const double* W, std::int32_t column, std::int32_t columns) {
                     const PanelView v = view(grid_, I, W, x, column, columns);
                     multiply_triangle(v, CblasTrans);
                     add_before(v, 1.0, k == 1);
                 });
}

bool SkylineFactor::multiply_wt(std::span<double> x, std::int32_t k) {
    return sweep(Direction::forward, k,
                 [&](std::int32_t I, const double* W, std::int32_t column, std::int32_t columns) {
                     const PanelView v = view(grid_, I, W, x, column, columns);
                     add_to_before(v, 1.0, k == 1);
                     multiply_triangle(v, CblasNoTrans);
                 });
}

bool SkylineFactor::solve_wt(std::span<double> x, std::int32_t k) {
    return sweep(Direction::backward, k,
                 [&](std::int32_t I, const double* W, std::int32_t column, std::int32_t columns) {
                     const PanelView v = view(grid_, I, W, x, column, columns);
                     solve_triangle(v, CblasNoTrans, CblasNonUnit);
                     add_to_before(v, -1.0, k == 1);
                 });
}

bool SkylineFactor::read_row(std::int32_t i, std::span<double> row) {
    const std::int32_t I = i / grid_.nb;
    if (!spilled()) {
        const double* L = panels_.panel(I) + grid_.at(I, i, profile_.first_column(i));
        std::copy(L, L + profile_.height[i], row.begin());
        return true;
    }
    double* target = row.data();
    return files_.read_rows(i, i + 1, &target);
}

}  // namespace kestralum
