#include "solver/multifrontal.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "solver/multifrontal_walk.h"

namespace kestralum {

namespace {

// Multiplications and additions from which a front is worth tasks of its own.
constexpr double large_front = 5e7;
// Rows of a task in tiles: among the pivots and below them, and of the update matrix.
constexpr std::int32_t strip_tiles = 4, update_strip_tiles = 8;

constexpr double doubles_to_megabytes = 8e-6;

std::int32_t tiles_of(std::int32_t columns) {
    return (columns + tile_columns - 1) / tile_columns;
}
std::int32_t tile_width(std::int32_t columns, std::int32_t k) {
    return std::min(tile_columns, columns - k * tile_columns);
}

}  // namespace

double front_megabytes(const FrontTree& tree) {
    // several subtrees are under way at once: half as much again as in their strict order
    return (static_cast<double>(tree.panel_doubles) + 1.5 * static_cast<double>(tree.stack_doubles)) *
           doubles_to_megabytes;
}

double spilled_front_megabytes(const FrontTree& tree, int threads) {
    const std::int64_t panels = std::min(threads * tree.largest_panel, tree.panel_doubles);
    return (static_cast<double>(panels) + 1.5 * static_cast<double>(tree.stack_doubles)) *
           doubles_to_megabytes;
}

MultifrontalFactor::MultifrontalFactor(FrontTree tree, MultifrontalOptions options)
    : tree_(std::move(tree)), options_(std::move(options)) {
    use_serial_blas();
    for (std::vector<double>* table : {&d_, &e_, &reference_, &diagonal_, &share_})
        table->resize(tree_.size());
    order_.resize(tree_.size());
}

MultifrontalFactor::~MultifrontalFactor() = default;

Pivots MultifrontalFactor::pivots_at(std::int32_t position) {
    return {&d_[position],     &e_[position],        &reference_[position],
            &share_[position], &diagonal_[position], &order_[position]};
}

void MultifrontalFactor::take_reference() {
    for (std::int32_t p = 0; p < tree_.size(); ++p) {
        const std::int32_t r = tree_.equation[p];
        double largest = 0;
        for (std::int64_t e = km_->row_start[r]; e < km_->row_start[r] + km_->row_count[r]; ++e)
            largest = std::max(largest, std::abs(values_[e]));
        reference_[p] = largest;
        diagonal_[p] = km_->diag_pos[r] < 0 ? 0 : std::abs(values_[km_->diag_pos[r]]);
        e_[p] = 0;
        share_[p] = 1;
    }
}

bool MultifrontalFactor::ends(Walk& walk) const {
    if (walk.ended()) return true;
    try {
        if (!walk.progress || !walk.progress->cancelled()) return false;
        walk.end(FactorStatus::cancelled);
    } catch (const std::bad_alloc&) {
        walk.end(FactorStatus::out_of_memory);
    }
    return true;
}

// Small subtrees are one task each; above them the thread that finishes a front's last child goes on with the
// front.
void MultifrontalFactor::walk_up(Walk& walk, const std::function<void(std::int32_t)>& visit) const {
    const auto n = static_cast<std::int32_t>(tree_.fronts.size());
    const std::vector<Front>& fronts = tree_.fronts;
    const double cut = std::max(tree_.work / 1000, 2e7);
    const auto pending = std::make_unique<std::atomic<std::int32_t>[]>(n);
    for (std::int32_t s = 0; s < n; ++s) pending[s] = static_cast<std::int32_t>(tree_.children_of(s).size());
    std::atomic<std::int32_t>* const waits = pending.get();
    const auto visit_guarded = [&](std::int32_t s) {
        try {
            if (!walk.ended()) visit(s);
        } catch (const std::bad_alloc&) {
            walk.end(FactorStatus::out_of_memory);
        }
    };
    const auto climb = [&visit_guarded, &fronts, waits, cut](std::int32_t s) {
        for (std::int32_t t = fronts[s].subtree_work <= cut ? fronts[s].first_descendant : s; t <= s; ++t)
            visit_guarded(t);
        for (std::int32_t p = fronts[s].parent; p >= 0 && --waits[p] == 0; p = fronts[p].parent)
            visit_guarded(p);
    };
#pragma omp parallel num_threads(options_.threads)
#pragma omp single
    for (std::int32_t s = 0; s < n; ++s) {
        const bool small = fronts[s].subtree_work <= cut, leaf = tree_.children_of(s).empty();
        const bool top = fronts[s].parent < 0 || fronts[fronts[s].parent].subtree_work > cut;
        if (!(small ? top : leaf)) continue;
#pragma omp task firstprivate(s) shared(climb)
        climb(s);
    }
}

void MultifrontalFactor::walk_down(Walk& walk, const std::function<void(std::int32_t)>& visit) const {
    const double cut = std::max(tree_.work / 1000, 2e7);
    const auto visit_guarded = [&](std::int32_t s) {
        try {
            visit(s);
        } catch (const std::bad_alloc&) {
            walk.end(FactorStatus::out_of_memory);
        }
    };
    std::function<void(std::int32_t)> descend = [&](std::int32_t s) {
        if (walk.ended()) return;
        if (tree_.fronts[s].subtree_work <= cut) {
            for (std::int32_t t = s; t >= tree_.fronts[s].first_descendant && !walk.ended(); --t)
                visit_guarded(t);
            return;
        }
        visit_guarded(s);
        for (const std::int32_t c : tree_.children_of(s)) {
#pragma omp task firstprivate(c) shared(descend)
            descend(c);
        }
    };
#pragma omp parallel num_threads(options_.threads)
#pragma omp single
    {
        for (auto s = static_cast<std::int32_t>(tree_.fronts.size()); s-- > 0;)
            if (tree_.fronts[s].parent < 0) descend(s);
    }
}

FactorStatus MultifrontalFactor::factor(const SparseKM& km, std::span<const double> values,
                                        Progress& progress) {
    km_ = &km;
    values_ = values;
    refines_ = false;
    error_.clear();
    take_reference();
    Walk walk(tree_, options_.threads, tree_.stack_doubles / 4, &progress);
    walk.lines = &progress;
    if (options_.keep_in_memory && !panels_) panels_ = allocate_block(tree_.panel_doubles);
    if (!walk.whole() || (options_.keep_in_memory && !panels_)) walk.end(FactorStatus::out_of_memory);
    if (!options_.keep_in_memory) {
        file_ = std::make_unique<PanelFile>(options_.log_folder);
        if (!file_->open()) walk.end(FactorStatus::file_failed);
    }
    if (!walk.ended()) walk_up(walk, [&](std::int32_t s) { factor_front(walk, s); });
    progress.set_share(-1);  // what follows has its own count
    negative_ = walk.negative;
    const FactorStatus status = finish(walk);
    if (status != FactorStatus::ok || (negative_ == 0 && walk.replaced == 0)) return status;
    return check_growth(progress);
}

FactorStatus MultifrontalFactor::finish(Walk& walk) {
    const FactorStatus status = walk.status;
    if (status == FactorStatus::out_of_memory) error_ = "not enough memory";
    if (status == FactorStatus::file_failed) error_ = file_->error();
    if (status == FactorStatus::cancelled) error_ = "stopped on request";
    return status;
}

// L of a front's columns, tile by tile of columns, strip by strip of rows: strip_tiles tiles each, among the
// pivots and below them. Each method is one task's work; what it waits for stands at eliminate_large().
struct MultifrontalFactor::Elimination {
    MultifrontalFactor& factor;
    Walk& walk;
    const Front& f;
    double* panel;
    const std::int32_t tiles = tiles_of(f.columns);
    const std::int32_t among = (f.columns + strip_rows - 1) / strip_rows;  // strips among the pivots
    const std::int32_t strips = among + (f.update_count() + strip_rows - 1) / strip_rows;

    static constexpr std::int32_t strip_rows = strip_tiles * tile_columns;
    // Strip g: rows edge(g) … edge(g + 1) - 1.
    std::int32_t edge(std::int32_t g) const {
        if (g <= among) return std::min(f.columns, g * strip_rows);
        return std::min(f.rows, f.columns + (g - among) * strip_rows);
    }
    double* tile(std::int32_t k) const { return panel + tile_offset(f.rows, k); }
    double* scratch() const { return walk.scratch[omp_get_thread_num()].get(); }

    // The diagonal tile k and the rows below it in its strip.
    void factor_diagonal(std::int32_t k) const {
        if (factor.ends(walk)) return;
        const std::int32_t start = k * tile_columns, width = tile_width(f.columns, k), ld = f.rows - start;
        const Pivots pivots = factor.pivots_at(f.first + start);
        const PivotCount count = factor_tile(tile(k), ld, width, pivots, scratch());
        walk.negative += count.negative;
        walk.replaced += count.replaced;
        const std::int32_t below = edge(k / strip_tiles + 1) - start - width;
        if (below > 0) divide_rows(below, width, tile(k) + width, ld, tile(k), ld, pivots);
    }
    // Strip g of tile k.
    void divide_strip(std::int32_t k, std::int32_t g) const {
        if (factor.ends(walk)) return;
        const std::int32_t start = k * tile_columns, ld = f.rows - start;
        divide_rows(edge(g + 1) - edge(g), tile_width(f.columns, k), tile(k) + edge(g) - start, ld, tile(k),
                    ld, factor.pivots_at(f.first + start));
    }
    // Strip g of tile j less its product with tile k.
    void subtract_strip(std::int32_t k, std::int32_t j, std::int32_t g) const {
        if (factor.ends(walk)) return;
        const std::int32_t start = k * tile_columns, width = tile_width(f.columns, k), ld = f.rows - start;
        const std::int32_t at = j * tile_columns, columns = tile_width(f.columns, j);
        double* const ld_rows = scratch();
        multiply_by_d(columns, width, tile(k) + at - start, ld, factor.pivots_at(f.first + start), ld_rows);
        const std::int32_t first = std::max(edge(g), at);
        subtract_product({edge(g + 1) - first, columns, width, tile(k) + first - start, ld, ld_rows, columns},
                         first == at, 1, tile(j) + first - at, f.rows - at);
    }
};

void MultifrontalFactor::factor_front(Walk& walk, std::int32_t s) {
    if (ends(walk)) return;
    const Front& f = tree_.fronts[s];
    const std::int64_t doubles = trapezoid_doubles(f.rows, f.columns);
    double* const panel = options_.keep_in_memory ? panels_.get() + f.panel : take(walk, doubles);
    if (!panel) return;
    const auto give_back = [&walk](double* taken) { walk.pool.give(taken); };
    // also where memory ends on the way
    const std::unique_ptr<double, decltype(give_back)> passing(options_.keep_in_memory ? nullptr : panel,
                                                               give_back);
    const bool large = f.work > large_front;
    const std::int32_t tiles = tiles_of(f.columns);
#pragma omp taskgroup
    for (std::int32_t k = 0; k < tiles; ++k) {
#pragma omp task firstprivate(k) shared(walk) if (large)
        assemble_tile(walk, s, k, panel + tile_offset(f.rows, k));
    }
    eliminate({*this, walk, f, panel});
    if (!ends(walk)) make_update(walk, s, panel);
    for (const std::int32_t c : tree_.children_of(s)) {
        walk.pool.give(walk.left[c]);
        walk.left[c] = nullptr;
    }
    if (!large) walk.count(f.work, tree_.work);
    if (passing && !walk.ended() && !file_->write(panel, f.panel, doubles, [&] { return ends(walk); }))
        walk.end(FactorStatus::file_failed);
    const std::int64_t before = walk.done.fetch_add(f.columns), after = before + f.columns;
    const std::int64_t n = tree_.size(), part = n / 100 + 1;  // a counter line each hundredth
    if (walk.lines && after / part != before / part) walk.lines->counter(after, n);
}

// Tile k of the front's panel: its part of the matrix and of the children's updates.
void MultifrontalFactor::assemble_tile(const Walk& walk, std::int32_t s, std::int32_t k, double* tile) const {
    const Front& f = tree_.fronts[s];
    const std::int32_t first = k * tile_columns, width = tile_width(f.columns, k), ld = f.rows - first;
    std::memset(tile, 0, sizeof(double) * width * ld);
    scatter_columns(s, first, first + width, tile, ld);
    for (const std::int32_t c : tree_.children_of(s))
        add_update(walk.left[c], c, first, first + width, tile, ld);
}

void MultifrontalFactor::scatter_columns(std::int32_t s, std::int32_t first, std::int32_t last, double* tile,
                                         int ld) const {
    const Front& f = tree_.fronts[s];
    const auto begin = tree_.group_start.begin() + f.first_group,
               end = tree_.group_start.begin() + tree_.group_end(s);
    auto group = std::upper_bound(begin, end, f.first + first) - 1 - tree_.group_start.begin();
    for (; group < tree_.group_end(s) && tree_.group_start[group] < f.first + last; ++group) {
        const std::int32_t from = std::max(first, tree_.group_start[group] - f.first);
        const std::int32_t to = std::min(last, tree_.group_start[group + 1] - f.first);
        for (std::int32_t q = from; q < to; ++q) {
            const double* row = values_.data() + km_->row_start[tree_.equation[f.first + q]];
            double* column = tile + std::int64_t{q - first} * ld - first;
            for (std::int64_t b = tree_.scatter_start[group]; b < tree_.scatter_start[group + 1]; ++b) {
                const ScatterBlock& block = tree_.scatter[b];
                for (std::int32_t r = std::max(0, q - block.row); r < block.size; ++r)
                    column[block.row + r] += row[block.offset + r];
            }
        }
    }
}

// Adds the columns of the child's update matrix that fall on the parent's columns [first, last) to `to`,
// whose rows and columns begin at the parent's `first`.
void MultifrontalFactor::add_update(const double* update, std::int32_t child, std::int32_t first,
                                    std::int32_t last, double* to, int ld) const {
    const std::span<const RowRun> runs = tree_.runs_of(child);
    const std::int32_t rows = tree_.fronts[child].update_count();
    auto run = std::ranges::partition_point(runs, [&](const RowRun& r) { return r.to + r.count <= first; });
    for (; run != runs.end() && run->to < last; ++run) {
        const std::int32_t end = std::min(last, run->to + run->count);
        for (std::int32_t q = std::max(first, run->to); q < end; ++q) {
            const std::int32_t c = run->from + q - run->to, k = c / tile_columns, start = k * tile_columns;
            const double* from =
                update + tile_offset(rows, k) + std::int64_t{c - start} * (rows - start) - start;
            double* column = to + std::int64_t{q - first} * ld - first;
            for (auto down = run; down != runs.end(); ++down) {
                const std::int32_t skip = std::max(0, c - down->from), count = down->count - skip;
                const double* a = from + down->from + skip;
                double* b = column + down->to + skip;
                for (std::int32_t i = 0; i < count; ++i) b[i] += a[i];
            }
        }
    }
}

namespace {

// Of the elimination of a tile's columns inside the front, in the unit of FrontTree::work; the update matrix
// is counted apart.
double operations_of_tile(const Front& f, std::int32_t k) {
    const double first = k * tile_columns, n = f.update_count();
    double sum = 0;
    for (std::int32_t j = 0; j < tile_width(f.columns, k); ++j)
        sum += std::pow(f.rows - first - j, 2) - n * n;
    return sum;
}

}  // namespace

void MultifrontalFactor::eliminate(const Elimination& work) {
    if (work.f.work > large_front) return eliminate_large(work);
    for (std::int32_t k = 0; k < work.tiles; ++k) {
        work.factor_diagonal(k);
        for (std::int32_t g = k / strip_tiles + 1; g < work.strips; ++g) work.divide_strip(k, g);
        for (std::int32_t j = k + 1; j < work.tiles; ++j)
            for (std::int32_t g = j / strip_tiles; g < work.strips; ++g) work.subtract_strip(k, j, g);
    }
}

void MultifrontalFactor::eliminate_large(const Elimination& work) {
    const std::int32_t tiles = work.tiles, strips = work.strips;
    const auto dependences = std::make_unique<char[]>(std::int64_t{strips} * tiles);
    char* const token = dependences.get();  // of strip g of tile k: token[g * tiles + k]
    (void)token;                            // g++ does not see its use in the dependences
#pragma omp taskgroup
    for (std::int32_t k = 0; k < tiles; ++k) {
        const std::int32_t gk = k / strip_tiles;
#pragma omp task firstprivate(k) shared(work) depend(inout : token[gk * tiles + k])
        {
            work.factor_diagonal(k);
            work.walk.count(operations_of_tile(work.f, k), tree_.work);
        }
        for (std::int32_t g = gk + 1; g < strips; ++g) {
#pragma omp task firstprivate(k, g) shared(work) depend(in                       \
                                                        : token[gk * tiles + k]) \
    depend(inout                                                                 \
           : token[g * tiles + k])
            work.divide_strip(k, g);
        }
        for (std::int32_t j = k + 1; j < tiles; ++j)
            for (std::int32_t g = j / strip_tiles; g < strips; ++g) {
                const std::int32_t gj = j / strip_tiles;
                (void)gj;
#pragma omp task firstprivate(k, j, g) shared(work) depend(in                                             \
                                                           : token[g * tiles + k], token[gj * tiles + k]) \
    depend(inout                                                                                          \
           : token[g * tiles + j])
                work.subtract_strip(k, j, g);
            }
    }
}

// What the front leaves to its parent: -L D Lᵀ of its update rows and the children's updates there.
void MultifrontalFactor::make_update(Walk& walk, std::int32_t s, const double* panel) {
    const Front& f = tree_.fronts[s];
    const std::int32_t n = f.update_count();
    if (n == 0) return;
    double* const update = walk.left[s] = take(walk, trapezoid_doubles(n, n));
    if (!update) return;
    const std::int32_t tiles = tiles_of(n), inner = tiles_of(f.columns);
    const bool large = f.work > large_front;
#pragma omp taskgroup
    for (std::int32_t j = 0; j < tiles; ++j)
        for (std::int32_t i = j; i < tiles; i += update_strip_tiles) {
#pragma omp task firstprivate(i, j) shared(walk) if (large)
            if (!ends(walk)) {
                double* const scratch = walk.scratch[omp_get_thread_num()].get();
                const std::int32_t first = i * tile_columns,
                                   last = std::min(n, (i + update_strip_tiles) * tile_columns);
                const std::int32_t at = j * tile_columns, columns = tile_width(n, j);
                double* const to = update + tile_offset(n, j) + first - at;
                for (std::int32_t k = 0; k < inner && !ends(walk); ++k) {
                    const std::int32_t start = k * tile_columns, ld = f.rows - start,
                                       width = tile_width(f.columns, k);
                    const double* l = panel + tile_offset(f.rows, k) + f.columns - start;
                    multiply_by_d(columns, width, l + at, ld, pivots_at(f.first + start), scratch);
                    subtract_product({last - first, columns, width, l + first, ld, scratch, columns}, i == j,
                                     k > 0, to, n - at);
                }
                if (large) walk.count(2.0 * (last - first) * columns * f.columns, tree_.work);
            }
        }
#pragma omp taskgroup
    for (std::int32_t j = 0; j < tiles; ++j) {
#pragma omp task firstprivate(j) shared(walk) if (large)
        if (!ends(walk)) {
            const std::int32_t at = j * tile_columns, first = f.columns + at;
            for (const std::int32_t c : tree_.children_of(s))
                add_update(walk.left[c], c, first, first + tile_width(n, j), update + tile_offset(n, j),
                           n - at);
        }
    }
}

std::vector<SmallPivot> MultifrontalFactor::small_pivots(double share) const {
    std::vector<SmallPivot> out;
    for (std::int32_t p = 0; p < tree_.size(); ++p)
        if (!(share_[p] >= share))
            out.push_back({tree_.equation[p], std::isfinite(share_[p]) ? share_[p] : 0});
    std::ranges::sort(out, {}, &SmallPivot::equation);
    return out;
}

}  // namespace kestralum
