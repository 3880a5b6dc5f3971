#include "solver/front_tree.h"

#include <algorithm>
#include <numeric>

#include "solver/elimination_order.h"

namespace kestralum {

namespace {

// The fronts' rows and sizes from their shapes.
class TreeBuilder {
public:
    TreeBuilder(const SparseKM& km, const Groups& groups, const Indices& order)
        : km_(km), groups_(groups), order_(order), place_(inverse_of(order)) {}

    FrontTree build(const std::vector<FrontShape>& shapes) {
        number_positions();
        link(shapes);
        std::int32_t first_group = 0;
        for (std::size_t s = 0; s < shapes.size(); ++s) {
            find_rows(static_cast<std::int32_t>(s), first_group, first_group + shapes[s].groups);
            first_group += shapes[s].groups;
        }
        relate_rows();
        count_stack();
        return std::move(tree_);
    }

private:
    std::int32_t columns_end(const Front& f) const { return f.first + f.columns; }

    void number_positions() {
        for (const std::int32_t g : order_) {
            tree_.group_start.push_back(tree_.size());
            for (std::int32_t e = groups_.start[g]; e < groups_.start[g + 1]; ++e)
                tree_.equation.push_back(e);
        }
        tree_.group_start.push_back(tree_.size());
    }

    void link(const std::vector<FrontShape>& shapes) {
        const std::size_t n = shapes.size();
        tree_.fronts.resize(n);
        tree_.child_start.assign(n + 1, 0);
        for (std::size_t s = 0; s < n; ++s) {
            tree_.fronts[s].parent = shapes[s].parent;
            if (shapes[s].parent >= 0) ++tree_.child_start[shapes[s].parent + 1];
        }
        std::partial_sum(tree_.child_start.begin(), tree_.child_start.end(), tree_.child_start.begin());
        tree_.children.resize(tree_.child_start[n]);
        Indices at(tree_.child_start.begin(), tree_.child_start.end() - 1);
        for (std::size_t s = 0; s < n; ++s)
            if (shapes[s].parent >= 0) tree_.children[at[shapes[s].parent]++] = static_cast<std::int32_t>(s);
    }

    // Update rows of front s: what its columns and its children's updates reach.
    void find_rows(std::int32_t s, std::int32_t group, std::int32_t group_end) {
        Front& f = tree_.fronts[s];
        f.first_group = group;
        f.first = tree_.group_start[group];
        f.columns = tree_.group_start[group_end] - f.first;
        f.update = static_cast<std::int64_t>(tree_.update_rows.size());
        mark_.resize(groups_.count(), -1);
        reached_.clear();
        const auto reach = [&](std::int32_t place) {
            if (place < group_end || mark_[place] == s) return;
            mark_[place] = s;
            reached_.push_back(place);
        };
        for (std::int32_t i = group; i < group_end; ++i)
            for (const std::int32_t g : groups_.neighbours_of(order_[i])) reach(place_[g]);
        for (const std::int32_t c : tree_.children_of(s))
            for (std::int64_t p = updates_[c].first; p < updates_[c].second; ++p) reach(update_groups_[p]);
        std::ranges::sort(reached_);
        updates_.emplace_back(update_groups_.size(), update_groups_.size() + reached_.size());
        for (const std::int32_t place : reached_) {
            update_groups_.push_back(place);
            for (std::int32_t p = tree_.group_start[place]; p < tree_.group_start[place + 1]; ++p)
                tree_.update_rows.push_back(p);
        }
        f.rows = f.columns + static_cast<std::int32_t>(tree_.update_rows.size() - f.update);
        measure(s);
    }

    void measure(std::int32_t s) {
        Front& f = tree_.fronts[s];
        f.panel = tree_.panel_doubles;
        const std::int64_t panel = trapezoid_doubles(f.rows, f.columns);
        tree_.panel_doubles += panel;
        tree_.largest_panel = std::max(tree_.largest_panel, panel);
        const double c = f.columns, r = f.rows;
        tree_.entries += static_cast<std::int64_t>(lower_entries(c, r));
        for (double j = 0; j < c; ++j) f.work += (r - j) * (r - j);
        f.subtree_work += f.work;
        tree_.work += f.work;
        f.first_descendant = s;
        const auto children = tree_.children_of(s);
        if (!children.empty()) f.first_descendant = tree_.fronts[children.front()].first_descendant;
        if (f.parent >= 0) tree_.fronts[f.parent].subtree_work += f.subtree_work;
    }

    // Rows of the children in each front, and where the matrix goes.
    void relate_rows() {
        tree_.scatter_start.push_back(0);
        const auto fronts = static_cast<std::int32_t>(tree_.fronts.size());
        std::vector<std::vector<RowRun>> runs(fronts);
        Indices row_of(tree_.size(), -1);
        for (std::int32_t s = 0; s < fronts; ++s) {
            const Front& f = tree_.fronts[s];
            for (std::int32_t k = 0; k < f.columns; ++k) row_of[f.first + k] = k;
            for (std::int32_t k = 0; k < f.update_count(); ++k)
                row_of[tree_.update_rows[f.update + k]] = f.columns + k;
            for (const std::int32_t c : tree_.children_of(s)) runs[c] = runs_in(tree_.fronts[c], row_of);
            for (std::int32_t i = f.first_group; i < tree_.group_end(s); ++i) scatter_group(i, row_of);
        }
        tree_.run_start.push_back(0);
        for (const std::vector<RowRun>& of : runs) {
            tree_.runs.insert(tree_.runs.end(), of.begin(), of.end());
            tree_.run_start.push_back(static_cast<std::int64_t>(tree_.runs.size()));
        }
    }

    std::vector<RowRun> runs_in(const Front& child, const Indices& row_of) const {
        std::vector<RowRun> runs;
        for (std::int32_t k = 0; k < child.update_count(); ++k) {
            const std::int32_t row = row_of[tree_.update_rows[child.update + k]];
            if (!runs.empty() && runs.back().to + runs.back().count == row)
                ++runs.back().count;
            else
                runs.push_back({k, row, 1});
        }
        return runs;
    }

    void scatter_group(std::int32_t i, const Indices& row_of) {
        const std::int32_t r = groups_.start[order_[i]];
        const std::int64_t begin = km_.row_start[r], end = begin + km_.row_count[r];
        for (std::int64_t e = begin; e < end;) {
            const std::int32_t g = group_of_column(km_.col_index[e]);
            const std::int32_t size = groups_.size(g);
            if (place_[g] >= i)
                tree_.scatter.push_back(
                    {static_cast<std::int32_t>(e - begin), row_of[tree_.group_start[place_[g]]], size});
            e += size;
        }
        tree_.scatter_start.push_back(static_cast<std::int64_t>(tree_.scatter.size()));
    }

    std::int32_t group_of_column(std::int32_t column) const {
        const auto next = std::ranges::upper_bound(groups_.start, column);
        return static_cast<std::int32_t>(next - groups_.start.begin()) - 1;
    }

    void count_stack() {
        std::int64_t held = 0;
        for (std::size_t s = 0; s < tree_.fronts.size(); ++s) {
            const std::int32_t u = tree_.fronts[s].update_count();
            held += trapezoid_doubles(u, u);
            tree_.stack_doubles = std::max(tree_.stack_doubles, held);
            for (const std::int32_t c : tree_.children_of(static_cast<std::int32_t>(s))) {
                const std::int32_t v = tree_.fronts[c].update_count();
                held -= trapezoid_doubles(v, v);
            }
        }
    }

    const SparseKM& km_;
    const Groups& groups_;
    const Indices& order_;
    Indices place_;
    FrontTree tree_;
    Indices mark_, reached_, update_groups_;
    std::vector<std::pair<std::int64_t, std::int64_t>> updates_;  // fronts: their range of update_groups_
};

}  // namespace

std::int64_t tile_offset(std::int32_t rows, std::int32_t k) {
    const std::int64_t t = tile_columns;
    return t * k * rows - t * t * k * (k - 1) / 2;
}

std::int64_t trapezoid_doubles(std::int32_t rows, std::int32_t columns) {
    const std::int32_t k = columns / tile_columns;
    return tile_offset(rows, k) + std::int64_t{columns % tile_columns} * (rows - k * tile_columns);
}

FrontTree analyse_pattern(const SparseKM& km, std::span<const char> late) {
    const Groups groups = make_groups(km, late);
    if (groups.count() == 0) return {};
    Indices order = order_groups(groups);
    const std::vector<FrontShape> shapes = shape_fronts(groups, order);
    return TreeBuilder(km, groups, order).build(shapes);
}

}  // namespace kestralum
