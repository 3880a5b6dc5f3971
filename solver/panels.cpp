#include "solver/panels.h"

#include <cblas.h>
#include <omp.h>
#include <sys/mman.h>

#include <string_view>
#include <vector>

namespace kestralum {

Block allocate_block(std::int64_t doubles) {
    constexpr std::size_t large_page = std::size_t{2} << 20;
    std::size_t bytes = static_cast<std::size_t>(std::max<std::int64_t>(doubles, 1)) * sizeof(double);
    const bool large = bytes >= 2 * large_page;
    const std::size_t alignment = large ? large_page : 64;
    bytes = (bytes + alignment - 1) / alignment * alignment;
    void* block = std::aligned_alloc(alignment, bytes);
    if (block && large) madvise(block, bytes, MADV_HUGEPAGE);  // an advice: failure changes nothing
    return Block(static_cast<double*>(block));
}

namespace {

// Wide panels feed the matrix products, narrow ones waste less beside a narrow band.
std::int32_t choose_panel_rows(std::int32_t height) {
    if (height >= 2000) return 256;
    if (height >= 900) return 128;
    if (height >= 350) return 64;
    return 32;
}

std::int64_t entries_of(const Profile& profile, const PanelGrid& grid, std::int32_t I) {
    return profile.sky_start[grid.row_end(I)] - profile.sky_start[grid.row_begin(I)];
}

// Solves go faster over panels that lie dense than over packed ones, which they spread out first. Up to this
// share of zeros left of the rows it is worth the memory.
bool is_wasteful(const PanelGrid& grid, std::int32_t I, std::int64_t entries) {
    constexpr double most = 1.125;
    const std::int64_t triangle = std::int64_t{grid.rows(I)} * (grid.rows(I) - 1) / 2;
    return static_cast<double>(grid.doubles(I) - triangle) > most * static_cast<double>(entries);
}

}  // namespace

PanelGrid make_panel_grid(const Profile& profile, std::int32_t panel_rows) {
    PanelGrid grid;
    grid.n = profile.rows();
    grid.nb = panel_rows > 0 ? panel_rows : choose_panel_rows(profile.max_height);
    const std::int32_t panels = (grid.n + grid.nb - 1) / grid.nb;
    grid.first_col.resize(panels);
    grid.ld.resize(panels);
    grid.begin_span.resize(panels);
    grid.last_use.resize(panels);
    grid.packed.resize(panels);
    grid.kept_start.assign(std::int64_t{panels} + 1, 0);
    for (std::int32_t I = 0; I < panels; ++I) {
        std::int32_t first = I * grid.nb;
        for (std::int32_t i = grid.row_begin(I); i < grid.row_end(I); ++i)
            first = std::min(first, profile.first_column(i));
        first = first / 8 * 8;  // every panel starts on the same vector boundary
        std::int32_t latest = first;
        for (std::int32_t i = grid.row_begin(I); i < grid.row_end(I); ++i)
            latest = std::max(latest, profile.first_column(i));
        const std::size_t p = I;
        grid.first_col[p] = first;
        grid.begin_span[p] = (std::min(latest, grid.row_begin(I)) - first + 7) / 8 * 8;
        grid.ld[p] = (grid.row_end(I) - first + 7) / 8 * 8;
        if (grid.ld[p] % 512 == 0) grid.ld[p] += 8;  // rows must not fall on the same cache sets
        for (std::int32_t J = first / grid.nb; J <= I; ++J) grid.last_use[J] = I;
        const std::int64_t entries = entries_of(profile, grid, I);
        grid.packed[p] = is_wasteful(grid, I, entries);
        grid.kept_start[p + 1] =
            grid.kept_start[p] + (grid.packed[p] ? (entries + 7) / 8 * 8 : grid.doubles(I));
    }
    return grid;
}

std::int64_t PanelGrid::largest_panel() const {
    std::int64_t largest = 0;
    for (std::int32_t I = 0; I < panels(); ++I) largest = std::max(largest, doubles(I));
    return largest;
}

std::int64_t PanelGrid::largest_packed_panel() const {
    std::int64_t largest = 0;
    for (std::int32_t I = 0; I < panels(); ++I)
        if (packed[I]) largest = std::max(largest, doubles(I));
    return largest;
}

namespace {

// Most doubles at a time: of the panels released so far what is kept, of those that are still read, wait for
// their file or are in work all, and the threads' scratch panels.
std::int64_t most_doubles(const PanelGrid& grid, int threads, bool spilled) {
    const std::int64_t ahead = std::int64_t{most_panels_waiting} + 1 + threads;
    const auto dense = [&](std::int64_t I) {
        return I < grid.panels() ? grid.doubles(static_cast<std::int32_t>(I)) : 0;
    };
    std::int64_t now = 0, most = 0;
    for (std::int64_t I = 0; I < ahead; ++I) now += dense(I);
    for (std::int32_t stored = 0, released = 0; stored <= grid.panels(); ++stored) {
        most = std::max(most, now);
        for (; released < stored && grid.last_use[released] < stored; ++released)
            now -= grid.doubles(released) -
                   (spilled ? 0 : grid.kept_start[std::int64_t{released} + 1] - grid.kept_start[released]);
        now += dense(stored + ahead);
    }
    return most + threads * grid.largest_panel();
}

}  // namespace

double panel_megabytes(const Profile& profile, int threads) {
    return 8e-6 * static_cast<double>(most_doubles(make_panel_grid(profile), threads, false));
}

double spilled_megabytes(const Profile& profile, int threads) {
    return 8e-6 * static_cast<double>(most_doubles(make_panel_grid(profile), threads, true));
}

PanelStore::PanelStore(const Profile& profile, const PanelGrid& grid, bool spilled)
    : profile_(&profile),
      grid_(&grid),
      spilled_(spilled),
      dense_(grid.panels(), nullptr),
      blocks_(grid.panels()) {
    if (!spilled) kept_ = allocate_block(grid.kept_start.back());
}

double* PanelStore::take(std::int32_t I) {
    if (!spilled_ && !kept_) return nullptr;
    if (!spilled_ && !grid_->packed[I]) return dense_[I] = kept_.get() + grid_->kept_start[I];
    blocks_[I] = allocate_block(grid_->doubles(I));
    return dense_[I] = blocks_[I].get();
}

void PanelStore::release(std::int32_t I) {
    if (!blocks_[I]) return;
    for (std::int32_t i = grid_->row_begin(I); !spilled_ && i < grid_->row_end(I); ++i) {
        const double* from = dense_[I] + grid_->at(I, i, profile_->first_column(i));
        std::copy(from, from + profile_->height[i], kept_.get() + kept_offset(i));
    }
    blocks_[I].reset();
    dense_[I] = nullptr;
}

std::int64_t PanelStore::kept_offset(std::int32_t i) const {
    const std::int32_t I = i / grid_->nb;
    return grid_->kept_start[I] + (grid_->packed[I]
                                       ? profile_->sky_start[i] - profile_->sky_start[grid_->row_begin(I)]
                                       : grid_->at(I, i, profile_->first_column(i)));
}

const double* PanelStore::row(std::int32_t i) const {
    return kept_.get() + kept_offset(i);
}

const double* PanelStore::dense(std::int32_t I, std::int32_t first, std::int32_t last, double* buffer) const {
    if (!grid_->packed[I])
        return kept_.get() + grid_->kept_start[I] + grid_->at(I, first, grid_->first_col[I]);
    clear_before_rows(*profile_, *grid_, first, last, buffer);
    double* to = buffer;
    for (std::int32_t i = first; i < last; ++i, to += grid_->ld[I])
        std::copy_n(row(i), profile_->height[i], to + (profile_->first_column(i) - grid_->first_col[I]));
    return buffer;
}

void PanelStore::copy_columns(std::int32_t I, std::int32_t begin, std::int32_t end, double* columns) const {
    for (std::int32_t i = grid_->row_begin(I); i < grid_->row_end(I); ++i, columns += end - begin) {
        const std::int32_t first = profile_->first_column(i),
                           zeros = std::clamp(first - begin, 0, end - begin);
        std::fill_n(columns, zeros, 0.0);
        if (begin + zeros < end)
            std::copy_n(row(i) + (begin + zeros - first), end - begin - zeros, columns + zeros);
    }
}

void PanelStore::copy_triangle(std::int32_t I, double* triangle) const {
    for (std::int32_t i = grid_->row_begin(I); i < grid_->row_end(I); ++i, triangle += grid_->nb) {
        const std::int32_t end = i - grid_->row_begin(I) + 1, entries = std::min(end, profile_->height[i]);
        std::fill_n(triangle, end - entries, 0.0);
        std::copy_n(row(i) + profile_->height[i] - entries, entries, triangle + end - entries);
    }
}

void clear_before_rows(const Profile& profile, const PanelGrid& grid, std::int32_t first, std::int32_t last,
                       double* rows) {
    const std::int32_t I = first / grid.nb;
    for (std::int32_t i = first; i < last; ++i, rows += grid.ld[I])
        std::fill_n(rows, profile.first_column(i) - grid.first_col[I], 0.0);
}

const char* better_blas_kernels() {
#if defined(__x86_64__)
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512dq") ||
        !__builtin_cpu_supports("avx512bw") || !__builtin_cpu_supports("avx512vl"))
        return nullptr;
    const std::string_view chosen = openblas_get_corename();
    return chosen == "Haswell" || chosen == "Zen" ? "SkylakeX" : nullptr;
#else
    return nullptr;
#endif
}

void use_serial_blas() {
    openblas_set_num_threads(1);
}

int blas_threads() {
    return openblas_get_num_threads();
}

void set_blas_threads(int threads) {
    openblas_set_num_threads(threads);
}

// Long enough that the calls of all threads are under way at the same time.
void take_blas_buffers() {
    use_serial_blas();
    constexpr int n = 512;
    const std::vector<double> a(n * n, 1.0);
    std::vector<double> all(static_cast<std::size_t>(omp_get_max_threads()) * n * n);
#pragma omp parallel
    {
#pragma omp barrier
        cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, n, n, n, 1.0, a.data(), n, a.data(), n, 0.0,
                    all.data() + static_cast<std::size_t>(omp_get_thread_num()) * n * n, n);
    }
}

}  // namespace kestralum
