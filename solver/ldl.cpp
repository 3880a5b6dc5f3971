#include "solver/ldl.h"

#include <cblas.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <thread>

namespace kestralum {

struct SkylineFactor::Shared {
    Shared(std::int32_t panels, Progress& to, const FactorFiles& written)
        : progress(to), files(written), done(panels), computed(panels, 0) {
        for (auto& flag : done) flag.store(false, std::memory_order_relaxed);
    }
    Progress& progress;
    const FactorFiles& files;
    std::vector<std::atomic<bool>> done;  // panel is computed: others may read it
    std::atomic<std::int32_t> next{0};    // next panel to take
    std::atomic<bool> stop{false};
    std::atomic<FactorStatus> status{FactorStatus::ok};

    // of the thread that reports
    std::int32_t released = 0;     // panels below are released
    std::vector<double> diagonal;  // of the matrix, for the lines of W
    std::int32_t division = 0;     // division that the reported row is in, one band behind

    std::mutex lock;  // guards `computed` and `stored`
    std::condition_variable changed;
    std::vector<char> computed;  // panels
    std::int32_t stored = 0;     // panels below are reported and, of a spilled factor, in their files

    // Hands a panel to the thread that reports; waits where this is so far behind that memory would fill.
    void hand_over(std::int32_t I) {
        std::unique_lock hold(lock);
        changed.wait(hold, [&] { return I < stored + most_panels_waiting || stop; });
        computed[I] = 1;
        changed.notify_all();
    }
    // The next panel to report, -1 when all are or the work has been given up.
    std::int32_t next_to_store() {
        std::unique_lock hold(lock);
        if (stored == static_cast<std::int32_t>(computed.size())) return -1;
        changed.wait(hold, [&] { return computed[stored] || stop; });
        return stop ? -1 : stored;
    }
    void advance() {
        const std::lock_guard hold(lock);
        ++stored;
        changed.notify_all();
    }

    void fail(FactorStatus why) {
        FactorStatus ok = FactorStatus::ok;
        status.compare_exchange_strong(ok, why);
        const std::lock_guard hold(lock);
        stop = true;
        changed.notify_all();
    }
    bool given_up() {
        if (progress.cancelled()) fail(FactorStatus::cancelled);
        if (files.failed()) fail(FactorStatus::file_failed);
        return stop.load(std::memory_order_relaxed);
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

SkylineFactor::~SkylineFactor() = default;

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
// before contribute, the strip's own triangle, then the rows below it. False: given up.
bool SkylineFactor::factor_diagonal_block(std::int32_t I, double* G, double* L) {
    constexpr std::int32_t strip = 32;
    const std::int32_t ld = grid_.ld[I];
    const std::int32_t first = grid_.first_col[I];
    const std::int32_t end = grid_.row_end(I);
    for (std::int32_t s = grid_.row_begin(I); s < end; s += strip) {
        if (shared_->given_up()) return false;
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
    return true;
}

// G(:, c0 … c0 + columns) -= G(:, k0 … c0) · L(c0 … c0 + columns, k0 … c0)ᵀ with rows of panel J. Where the
// rows of panel I begin one after another, those that have not begun are left out in steps of `strip` rows.
// False: given up.
bool SkylineFactor::subtract_products(std::int32_t I, std::int32_t J, const Span& c, double* G,
                                      const double* LJ) const {
    constexpr std::int32_t strip = 64;
    const std::int32_t first = grid_.first_col[I], ld = grid_.ld[I];
    const auto product = [&](std::int32_t row, std::int32_t rows, std::int32_t from, std::int32_t to) {
        if (rows <= 0 || from >= to) return;
        cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, rows, c.columns, to - from, -1.0,
                    G + grid_.at(I, row, from), ld, LJ + grid_.at(J, c.c0, from), grid_.ld[J], 1.0,
                    G + grid_.at(I, row, c.c0), ld);
    };
    std::int32_t all_begun = std::clamp(first + grid_.begin_span[I], c.k0, c.c0);
    if (all_begun - c.k0 <= strip) all_begun = c.k0;
    for (std::int32_t row = grid_.row_begin(I); all_begun > c.k0 && row < grid_.row_end(I); row += strip) {
        if (shared_->given_up()) return false;
        const std::int32_t end = std::min(grid_.row_end(I), row + strip);
        std::int32_t from = all_begun;
        for (std::int32_t i = row; i < end; ++i) from = std::min(from, profile_.first_column(i) / 8 * 8);
        product(row, end - row, std::max(from, c.k0), all_begun);
    }
    if (shared_->given_up()) return false;
    product(grid_.row_begin(I), grid_.rows(I), all_begun, c.c0);
    return true;
}

// G holds the matrix on entry; L receives the panel of the factor. For W both are the same block. False:
// given up.
bool SkylineFactor::factor_panel(std::int32_t I, double* G, double* L) {
    const std::int32_t ld = grid_.ld[I];
    const std::int32_t rows = grid_.rows(I), first = grid_.first_col[I];
    for (std::int32_t J = first / grid_.nb; J < I; ++J) {
        while (!shared_->done[J].load(std::memory_order_acquire)) {
            if (shared_->stop.load(std::memory_order_relaxed)) return false;
            sched_yield();
        }
        const double* LJ = panels_.taken(J);
        const std::int32_t c0 = std::max(first, grid_.row_begin(J)), c1 = grid_.row_end(J), columns = c1 - c0;
        const std::int32_t k0 = std::max(first, grid_.first_col[J]);
        double* g = G + (c0 - first);
        if (!subtract_products(I, J, {k0, c0, columns}, G, LJ)) return false;
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
    return factor_diagonal_block(I, G, L);
}

// Each thread takes the next panel in turn. No exception leaves it.
void SkylineFactor::compute_panels(const SparseKM& km, std::span<const double> values) {
    Shared& p = *shared_;
    try {
        const Block own = kind_ == Kind::ldl ? allocate_block(grid_.largest_panel()) : nullptr;
        if (kind_ == Kind::ldl && !own) throw std::bad_alloc();
        while (!p.given_up()) {
            const std::int32_t I = p.next.fetch_add(1);
            if (I >= grid_.panels()) break;
            double* L = panels_.take(I);
            if (!L) throw std::bad_alloc();
            double* G = kind_ == Kind::ldl ? own.get() : L;
            load_panel_of_matrix(km, values, I, G);
            if (!factor_panel(I, G, L)) break;
            p.done[I].store(true, std::memory_order_release);
            p.hand_over(I);
        }
    } catch (...) {
        p.fail(FactorStatus::out_of_memory);
    }
}

bool SkylineFactor::store_panel(std::int32_t I, const double* L) {
    std::vector<const double*> rows(grid_.rows(I));
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i)
        rows[i - grid_.row_begin(I)] = L + grid_.at(I, i, profile_.first_column(i));
    return files_.write_rows(grid_.row_begin(I), grid_.row_end(I), rows.data());
}

// Beside the threads that compute, so that these never wait for the disk or the lines; in the order of the
// rows. No exception leaves it.
void SkylineFactor::report_panels() {
    Shared& p = *shared_;
    try {
        for (std::int32_t I = p.next_to_store(); I >= 0 && !p.given_up(); I = p.next_to_store()) {
            if (spilled() && !store_panel(I, panels_.taken(I))) {
                p.fail(FactorStatus::file_failed);
                break;
            }
            report_stored(I);
            p.advance();
        }
    } catch (...) {
        p.fail(FactorStatus::out_of_memory);
    }
}

void SkylineFactor::report_spill(std::int32_t i) {
    files_.print_spill(shared_->division, i, shared_->progress);
    if (spilled()) files_.close(shared_->division);
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
        i == divisions_.div_row[shared_->division + 1] + options_.diag_num)
        report_spill(i);
    if (!(d < 0.0)) return;
    ++negative_pivots_;
    if (kind_ == Kind::ldl) {
        shared_->progress.print("Warning   D[%d]:%.3e\n", i, d);
    } else {
        print_negative_mass(i, d, shared_->diagonal[i], shared_->progress);
    }
}

// Panel I is computed, and in its file where it is spilled: its rows are reported, and what no later panel
// reads is released, for the writer of a kept factor.
void SkylineFactor::report_stored(std::int32_t I) {
    for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I); ++i) report_row(i);
    std::int32_t& released = shared_->released;
    while (released <= I && grid_.last_use[released] <= I) panels_.release(released++);
    if (writer_) writer_->publish(released < grid_.panels() ? grid_.row_begin(released) : grid_.n);
}

void SkylineFactor::prepare(const SparseKM& km, std::span<const double> values, Kind kind,
                            Progress& progress) {
    if (options_.write_files) files_.remove_old();
    kind_ = kind;
    D_.assign(profile_.rows(), 0.0);
    negative_pivots_ = 0;
    error_.clear();
    shared_ = std::make_unique<Shared>(grid_.panels(), progress, files_);
    for (std::int32_t i = 0; i < profile_.rows(); ++i) shared_->diagonal.push_back(values[km.diag_pos[i]]);
    // written over by the next factor, unless that of large packed panels is needed for those in work
    constexpr std::int64_t large = std::int64_t{32} << 20;  // doubles
    const bool needed = grid_.largest_packed_panel() > 0 && grid_.kept_start.back() > large;
    if (spilled() || panels_.empty() || needed) {
        panels_ = {};
        panels_ = PanelStore(profile_, grid_, spilled());
    }
    unwritten_ = !spilled() && options_.write_files;
    if (unwritten_ && !options_.write_last) begin_writing(progress);
}

void SkylineFactor::begin_writing(const Progress& progress) {
    const auto kept_rows = [this](std::int32_t first, std::int32_t last, const double** rows) {
        for (std::int32_t i = first; i < last; ++i) rows[i - first] = panels_.row(i);
    };
    writer_ = std::make_unique<FactorWriter>(files_, grid_.n, kept_rows,
                                             options_.write_behind ? *options_.write_behind : progress);
    unwritten_ = false;
}

void SkylineFactor::begin_files() {
    if (!unwritten_ || !options_.write_behind) return;
    try {
        begin_writing(*options_.write_behind);
        writer_->publish(grid_.n);
    } catch (const std::exception&) {  // no memory, or none for a thread
    }
}

FactorStatus SkylineFactor::await_files() {
    begin_files();
    if (unwritten_ && options_.write_behind) {
        fail(FactorStatus::out_of_memory);
        return FactorStatus::out_of_memory;
    }
    return finish_writing();
}

FactorStatus SkylineFactor::finish_writing() {
    if (!writer_) return FactorStatus::ok;
    const FactorStatus status = writer_->finish();
    writer_.reset();
    if (status != FactorStatus::ok) fail(status);
    return status;
}

FactorStatus SkylineFactor::factor_as(const SparseKM& km, std::span<const double> values, Kind kind,
                                      Progress& progress) {
    use_serial_blas();
    if (const FactorStatus former = finish_writing(); former != FactorStatus::ok) return former;
    FactorStatus status = FactorStatus::out_of_memory;
    try {
        prepare(km, values, kind, progress);
        std::thread reporter([this] { report_panels(); });
#pragma omp parallel num_threads(options_.threads)
        compute_panels(km, values);
        reporter.join();
        status = shared_->status;
        if (status == FactorStatus::ok && !options_.write_behind) status = finish_writing();
        while (status == FactorStatus::ok && shared_->division < divisions_.count())
            report_spill(profile_.rows());
    } catch (const std::exception&) {  // no memory, or none for a thread
    }
    if (status == FactorStatus::ok && spilled() && files_.failed())
        status = FactorStatus::file_failed;  // at its close
    if (status != FactorStatus::ok && writer_) {
        writer_->stop();
        writer_.reset();
    }
    if (status != FactorStatus::ok) fail(status);
    unwritten_ = unwritten_ && status == FactorStatus::ok;
    shared_.reset();
    if (spilled() || status != FactorStatus::ok) panels_ = {};
    return status;
}

void SkylineFactor::fail(FactorStatus why) {
    error_ = why == FactorStatus::file_failed ? files_.error()
             : why == FactorStatus::cancelled ? "stopped by the user"
                                              : "not enough memory for the factor";
}

FactorStatus SkylineFactor::factor(const SparseKM& km, std::span<const double> values, Progress& progress) {
    km_ = &km;
    values_ = values;
    return factor_ldl(km, values, progress);
}

std::vector<SmallPivot> SkylineFactor::small_pivots(double share) const {
    std::vector<SmallPivot> out;
    for (std::int32_t i = 0; i < profile_.rows(); ++i) {
        const double diagonal = std::abs(values_[km_->diag_pos[i]]), pivot = std::abs(D_[i]);
        if (std::isfinite(pivot) && pivot >= share * diagonal && pivot > 0) continue;
        const bool measurable = std::isfinite(pivot) && diagonal > 0;
        out.push_back({i, measurable ? pivot / diagonal : 0});
    }
    return out;
}

FactorStatus SkylineFactor::factor_ldl(const SparseKM& km, std::span<const double> values,
                                       Progress& progress) {
    const auto clock_start = std::chrono::steady_clock::now();
    progress.print("my_LDLsky_HD_Ksky\n");
    progress.print("  LDL K_sparse\n");
    progress.print("    Ls_num=%lld\n", static_cast<long long>(profile_.Ls_num));
    progress.print("    temp_L[%lld]\n",
                   static_cast<long long>(divisions_.div_profile[divisions_.count() > 1 ? 2 : 1]));
    const FactorStatus status = factor_as(km, values, Kind::ldl, progress);
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
    const FactorStatus status = factor_as(km, values, Kind::ww, progress);
    if (status != FactorStatus::ok) return status;
    progress.print("   WW M_sparse complete\n");
    return check_rows_of_w(km, values, progress);
}

void print_unsound_mass(std::int32_t i, Progress& progress) {
    progress.print("[M] is not positive define at %dth row\n", i);
}

void print_negative_mass(std::int32_t i, double v, double m, Progress& progress) {
    print_unsound_mass(i, progress);
    progress.print("  W[%d][%d]^2: %.3e = sqrt( %.3e - %.3e )\n", i, i, v, m, m - v);
}

// m_ii = Σ w_ij² must have come out; it does not where a negative value was replaced by its size.
FactorStatus SkylineFactor::check_rows_of_w(const SparseKM& km, std::span<const double> values,
                                            Progress& progress) {
    const Block buffer = spilled() ? allocate_block(grid_.largest_panel()) : nullptr;
    FactorStatus status = spilled() && !buffer ? FactorStatus::out_of_memory : FactorStatus::ok;
    for (std::int32_t I = 0; I < grid_.panels() && status == FactorStatus::ok; ++I) {
        if (progress.cancelled()) status = FactorStatus::cancelled;
        if (spilled() && !read_panel(I, buffer.get())) status = FactorStatus::file_failed;
        for (std::int32_t i = grid_.row_begin(I); i < grid_.row_end(I) && status == FactorStatus::ok; ++i) {
            const double* w = row_of(i, buffer.get());
            double m = values[km.diag_pos[i]];
            for (std::int32_t j = 0; j < profile_.height[i]; ++j) m -= w[j] * w[j];
            if (std::abs(m) >= w_tolerance) print_unsound_mass(i, progress);
        }
    }
    if (status != FactorStatus::ok) fail(status);
    return status;
}

const double* SkylineFactor::row_of(std::int32_t i, const double* buffer) const {
    return spilled() ? buffer + grid_.at(i / grid_.nb, i, profile_.first_column(i)) : panels_.row(i);
}

}  // namespace kestralum
