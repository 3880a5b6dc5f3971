#include "solver/elimination_order.h"

#include <metis.h>
#include <signal.h>

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>
#include <numeric>

namespace kestralum {

namespace {

bool same_columns(const SparseKM& km, std::int32_t a, std::int32_t b) {
    const auto from = [&](std::int32_t r) { return km.col_index.begin() + km.row_start[r]; };
    return km.row_count[a] == km.row_count[b] && std::equal(from(a), from(a) + km.row_count[a], from(b));
}

}  // namespace

Groups make_groups(const SparseKM& km, std::span<const char> late) {
    Groups out;
    const std::int32_t n = km.rows();
    Indices group_of(n);
    for (std::int32_t r = 0; r < n; ++r) {
        const bool same_kind = r > 0 && (late.empty() || (!late[r] && !late[r - 1]));
        if (!same_kind || !same_columns(km, r - 1, r)) out.start.push_back(r);
        group_of[r] = static_cast<std::int32_t>(out.start.size()) - 1;
    }
    const auto groups = static_cast<std::int32_t>(out.start.size());
    out.start.push_back(n);
    out.late.resize(groups);
    out.neighbour_start.push_back(0);
    for (std::int32_t g = 0; g < groups; ++g) {
        const std::int32_t r = out.start[g];
        out.late[g] = late.empty() ? 0 : late[r];
        std::int32_t former = -1;
        for (std::int64_t e = km.row_start[r]; e < km.row_start[r] + km.row_count[r]; ++e) {
            const std::int32_t h = group_of[km.col_index[e]];
            if (h != g && h != former) out.neighbours.push_back(h);
            former = h;
        }
        out.neighbour_start.push_back(static_cast<std::int64_t>(out.neighbours.size()));
    }
    return out;
}

namespace {

// METIS draws its random numbers from one generator for the whole process: one caller at a time, and the same
// seed for each.
Indices order_by_metis(const Groups& groups) {
    static std::mutex lock;
    const std::lock_guard guard(lock);
    if (groups.neighbours.size() > std::size_t(std::numeric_limits<idx_t>::max())) throw std::bad_alloc();
    std::vector<idx_t> start(groups.neighbour_start.begin(), groups.neighbour_start.end());
    std::vector<idx_t> neighbours(groups.neighbours.begin(), groups.neighbours.end());
    idx_t count = groups.count();
    std::vector<idx_t> order(count), place(count);
    idx_t options[METIS_NOPTIONS];
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_SEED] = 1;
    if (neighbours.empty()) {  // METIS does not take a graph without edges
        std::iota(order.begin(), order.end(), 0);
        return {order.begin(), order.end()};
    }
    // METIS takes these two signals to itself and gives them back changed; a request to end that came
    // meanwhile ends it and is sent once more
    struct sigaction abort_action, end_action;
    sigaction(SIGABRT, nullptr, &abort_action);
    sigaction(SIGTERM, nullptr, &end_action);
    const int result =
        METIS_NodeND(&count, start.data(), neighbours.data(), nullptr, options, order.data(), place.data());
    sigaction(SIGABRT, &abort_action, nullptr);
    sigaction(SIGTERM, &end_action, nullptr);
    if (result == METIS_ERROR) raise(SIGTERM);
    if (result != METIS_OK) throw std::bad_alloc();  // the graph is sound
    return {order.begin(), order.end()};
}

// Puts late groups behind the first of their neighbours in the order.
void place_late_groups(const Groups& groups, Indices& order) {
    if (std::ranges::none_of(groups.late, [](char c) { return c != 0; })) return;
    Indices out;
    std::vector<char> placed(groups.count(), 0);
    for (const std::int32_t g : order) {
        if (groups.late[g]) continue;
        out.push_back(g);
        for (const std::int32_t h : groups.neighbours_of(g))
            if (groups.late[h] && !placed[h]) placed[h] = 1, out.push_back(h);
    }
    for (const std::int32_t g : order)  // late groups among themselves: at the end
        if (groups.late[g] && !placed[g]) out.push_back(g);
    order = std::move(out);
}

}  // namespace

Indices order_groups(const Groups& groups) {
    Indices order = order_by_metis(groups);
    place_late_groups(groups, order);
    return order;
}

Indices inverse_of(const Indices& order) {
    Indices inverse(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) inverse[order[i]] = static_cast<std::int32_t>(i);
    return inverse;
}

double lower_entries(double columns, double rows) {
    return columns * rows - columns * (columns - 1) / 2;
}

namespace {

// Elimination tree over the places of `order`.
Indices elimination_tree(const Groups& groups, const Indices& order) {
    const Indices place = inverse_of(order);
    Indices parent(order.size(), -1), ancestor(order.size(), -1);
    for (std::int32_t i = 0; i < groups.count(); ++i)
        for (const std::int32_t g : groups.neighbours_of(order[i]))
            for (std::int32_t j = place[g]; j != -1 && j < i;) {
                const std::int32_t next = ancestor[j];
                ancestor[j] = i;
                if (next == -1) parent[j] = i;
                j = next;
            }
    return parent;
}

// Children before parents, each node's children one subtree after the other, by ascending `rank` (by number
// where it is empty).
Indices postorder(const Indices& parent, const std::vector<double>& rank = {}) {
    const auto n = static_cast<std::int32_t>(parent.size());
    Indices by_rank(n), head(n, -1), next(n, -1), out, stack;
    std::iota(by_rank.begin(), by_rank.end(), 0);
    if (!rank.empty())
        std::ranges::stable_sort(by_rank, [&](std::int32_t a, std::int32_t b) { return rank[a] < rank[b]; });
    for (std::int32_t k = n; k-- > 0;) {
        const std::int32_t i = by_rank[k];
        if (parent[i] >= 0) next[i] = head[parent[i]], head[parent[i]] = i;
    }
    out.reserve(n);
    for (std::int32_t r = 0; r < n; ++r) {
        if (parent[r] >= 0) continue;
        for (stack.push_back(r); !stack.empty();) {
            const std::int32_t v = stack.back();
            if (head[v] >= 0)
                stack.push_back(head[v]), head[v] = next[head[v]];
            else
                out.push_back(v), stack.pop_back();
        }
    }
    return out;
}

Indices composed(const Indices& order, const Indices& of) {
    Indices out(of.size());
    for (std::size_t i = 0; i < of.size(); ++i) out[i] = order[of[i]];
    return out;
}

// Groups in each column of the factor, the diagonal included; the order is a postorder of its tree.
Indices column_counts(const Groups& groups, const Indices& order, const Indices& parent) {
    const std::int32_t n = groups.count();
    const Indices place = inverse_of(order);
    Indices first(n, -1), farthest(n, -1), previous(n, -1), set(n), count(n);
    for (std::int32_t k = 0; k < n; ++k) {
        set[k] = k;
        count[k] = first[k] == -1;
        for (std::int32_t j = k; j != -1 && first[j] == -1; j = parent[j]) first[j] = k;
    }
    for (std::int32_t j = 0; j < n; ++j) {
        if (parent[j] >= 0) --count[parent[j]];
        for (const std::int32_t g : groups.neighbours_of(order[j])) {
            const std::int32_t i = place[g];
            if (i <= j || first[j] <= farthest[i]) continue;
            farthest[i] = first[j];
            const std::int32_t last = previous[i];
            previous[i] = j;
            ++count[j];
            if (last < 0) continue;
            std::int32_t q = last;
            while (set[q] != q) q = set[q];
            for (std::int32_t s = last; s != q;) {
                const std::int32_t up = set[s];
                set[s] = q;
                s = up;
            }
            --count[q];
        }
        if (parent[j] >= 0) set[j] = parent[j];
    }
    for (std::int32_t j = 0; j < n; ++j)
        if (parent[j] >= 0) count[parent[j]] += count[j];
    return count;
}

// A supernode on the way to a front; columns, rows and zeros in equations, from the mean size of a group.
struct Supernode {
    std::int32_t parent = -1, into = -1;
    double columns = 0, rows = 0, zeros = 0;
};

// Whether a child is worth eliminating with its parent: zeros that this stores cost less than a front of its
// own.
bool worth_merging(double columns, double share) {
    return columns <= 12 || (columns <= 48 && share < 0.8) || (columns <= 144 && share < 0.2) || share < 0.06;
}

struct Supernodes {
    std::vector<Supernode> nodes;
    Indices of;  // places: their supernode
};

Supernodes find_supernodes(const Indices& parent, const Indices& count, double group_size) {
    Supernodes out;
    const auto n = static_cast<std::int32_t>(parent.size());
    Indices last;
    for (std::int32_t j = 0; j < n; ++j) {
        if (j > 0 && parent[j - 1] == j && count[j] == count[j - 1] - 1) {
            out.nodes.back().columns += group_size;
            last.back() = j;
        } else {
            out.nodes.push_back({-1, -1, group_size, count[j] * group_size, 0});
            last.push_back(j);
        }
        out.of.push_back(static_cast<std::int32_t>(out.nodes.size()) - 1);
    }
    for (std::size_t s = 0; s < last.size(); ++s)
        if (parent[last[s]] >= 0) out.nodes[s].parent = out.of[parent[last[s]]];
    for (std::size_t s = 0; s < out.nodes.size(); ++s) {
        Supernode& a = out.nodes[s];
        if (a.parent < 0) continue;
        Supernode& b = out.nodes[a.parent];
        const double columns = a.columns + b.columns, rows = a.columns + b.rows;
        const double whole = lower_entries(columns, rows);
        const double zeros = whole - (lower_entries(a.columns, a.rows) - a.zeros) -
                             (lower_entries(b.columns, b.rows) - b.zeros);
        if (!worth_merging(columns, zeros / whole)) continue;
        a.into = a.parent;
        b.columns = columns, b.rows = rows, b.zeros = zeros;
    }
    return out;
}

// Rank of each node among its siblings for which the update matrices alive at once are the fewest: those
// whose subtree needs more than it leaves come first.
std::vector<double> stack_ranks(const Indices& parent, const std::vector<Supernode>& nodes) {
    const std::size_t n = parent.size();
    std::vector<double> rank(n), peak(n), left(n);
    std::vector<Indices> children(n);
    for (std::size_t s = 0; s < n; ++s) {  // children stand before their parents
        std::ranges::stable_sort(children[s],
                                 [&](std::int32_t a, std::int32_t b) { return rank[a] < rank[b]; });
        double waiting = 0;
        for (const std::int32_t c : children[s]) {
            peak[s] = std::max(peak[s], waiting + peak[c]);
            waiting += left[c];
        }
        const double updates = nodes[s].rows - nodes[s].columns;
        left[s] = lower_entries(updates, updates);
        peak[s] = std::max(peak[s], waiting + left[s]);
        rank[s] = left[s] - peak[s];
        if (parent[s] >= 0) children[parent[s]].push_back(static_cast<std::int32_t>(s));
        children[s] = {};
    }
    return rank;
}

}  // namespace

std::vector<FrontShape> shape_fronts(const Groups& groups, Indices& order) {
    Indices parent = elimination_tree(groups, order);
    order = composed(order, postorder(parent));
    parent = elimination_tree(groups, order);
    const double group_size = static_cast<double>(groups.start.back()) / groups.count();
    const Supernodes found = find_supernodes(parent, column_counts(groups, order, parent), group_size);
    const auto all = static_cast<std::int32_t>(found.nodes.size());
    Indices top(all), number(all, -1), kept_parent;
    for (std::int32_t s = all; s-- > 0;) top[s] = found.nodes[s].into < 0 ? s : top[found.nodes[s].into];
    std::vector<Supernode> kept;
    for (std::int32_t s = 0; s < all; ++s)
        if (top[s] == s) number[s] = static_cast<std::int32_t>(kept.size()), kept.push_back(found.nodes[s]);
    for (const Supernode& s : kept) kept_parent.push_back(s.parent < 0 ? -1 : number[top[s.parent]]);
    const Indices sequence = postorder(kept_parent, stack_ranks(kept_parent, kept));
    std::vector<Indices> members(kept.size());
    for (std::int32_t j = 0; j < groups.count(); ++j) members[number[top[found.of[j]]]].push_back(j);
    const Indices place = inverse_of(sequence);
    std::vector<FrontShape> shapes;
    Indices columns;
    for (const std::int32_t s : sequence) {
        shapes.push_back(
            {static_cast<std::int32_t>(members[s].size()), kept_parent[s] < 0 ? -1 : place[kept_parent[s]]});
        columns.insert(columns.end(), members[s].begin(), members[s].end());
    }
    order = composed(order, columns);
    return shapes;
}

}  // namespace kestralum
