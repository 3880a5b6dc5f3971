#include "solver/panels.h"

#include <cblas.h>
#include <sys/mman.h>

#include <string_view>

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
    }
    return grid;
}

std::int64_t PanelGrid::largest_panel() const {
    std::int64_t largest = 0;
    for (std::int32_t I = 0; I < panels(); ++I) largest = std::max(largest, doubles(I));
    return largest;
}

double panel_megabytes(const Profile& profile, int threads) {
    const PanelGrid grid = make_panel_grid(profile);
    std::int64_t doubles = threads * grid.largest_panel();
    for (std::int32_t I = 0; I < grid.panels(); ++I) doubles += grid.doubles(I);
    return 8e-6 * static_cast<double>(doubles);
}

double spilled_megabytes(const Profile& profile, int threads) {
    const PanelGrid grid = make_panel_grid(profile);
    // the panels that are stored but still read, those that wait for their file, those in work
    std::int64_t most = 0;
    for (std::int32_t stored = 0, freed = 0; stored <= grid.panels(); ++stored) {
        while (freed < stored && grid.last_use[freed] < stored) ++freed;
        const std::int64_t ahead = static_cast<std::int64_t>(most_panels_waiting) + 1 + threads;
        most = std::max(most, std::min<std::int64_t>(stored + ahead, grid.panels()) - freed);
    }
    return 8e-6 * static_cast<double>((most + threads) * grid.largest_panel());
}

PanelStore::PanelStore(const PanelGrid& grid, bool spilled)
    : place_(static_cast<std::size_t>(grid.panels()), nullptr), lock_(std::make_unique<std::mutex>()) {
    if (spilled) {
        block_doubles_ = grid.largest_panel();
        blocks_.resize(place_.size());
        return;
    }
    std::int64_t total = 0;
    for (std::int32_t I = 0; I < grid.panels(); ++I) total += grid.doubles(I);
    all_ = allocate_block(total);
    double* next = all_.get();
    if (!next) return;
    for (std::int32_t I = 0; I < grid.panels(); ++I) {
        place_[I] = next;
        next += grid.doubles(I);
    }
}

double* PanelStore::take(std::int32_t I) {
    const std::size_t p = I;
    if (block_doubles_ == 0) return place_[p];
    std::lock_guard hold(*lock_);
    if (spare_.empty()) {
        blocks_[p] = allocate_block(block_doubles_);
    } else {
        blocks_[p] = std::move(spare_.back());
        spare_.pop_back();
    }
    return place_[p] = blocks_[p].get();
}

void PanelStore::give_back(std::int32_t I) {
    const std::size_t p = I;
    std::lock_guard hold(*lock_);
    if (blocks_.empty()) return;
    spare_.push_back(std::move(blocks_[p]));
    place_[p] = nullptr;
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

}  // namespace kestralum
