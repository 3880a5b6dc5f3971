#include "solver/aggregates.h"

#include <cmath>

namespace kestralum {

namespace {

// The three passes over the nodes, each in ascending order.
class Gathering {
public:
    Gathering(const BlockPattern& pattern, const std::vector<Connection>& connections, RowTeam& team)
        : pattern_(pattern), connections_(connections), team_(team), of_node_(pattern.rows(), -1) {}

    std::vector<std::int32_t> run() {
        each_free([&](std::int32_t i) { found_around(i); });
        const std::vector<std::int32_t> first = of_node_;
        each_free([&](std::int32_t i) { join(i, first); });
        each_free([&](std::int32_t i) { gather_leftovers(i); });
        return std::move(of_node_);
    }
    std::int32_t count() const { return count_; }

private:
    template <typename Visit>
    void each_free(const Visit& visit) {
        for (std::int32_t i = 0; i < pattern_.rows(); ++i) {
            if (i % 4096 == 0 && !team_.goes_on()) return;
            if (of_node_[i] < 0) visit(i);
        }
    }
    // visit(column) for the strong neighbours of node i until it returns false
    template <typename Visit>
    void each_strong(std::int32_t i, const Visit& visit) const {
        for (std::int64_t q = pattern_.start[i]; q < pattern_.start[i + 1]; ++q)
            if (connections_[q] == Connection::strong && !visit(pattern_.col[q])) return;
    }

    // A node whose strong neighbours are all free, with these.
    void found_around(std::int32_t i) {
        bool any = false, all_free = true;
        each_strong(i, [&](std::int32_t j) {
            any = true;
            return all_free = of_node_[j] < 0;
        });
        if (any && all_free) take_free(i);
    }
    // Joins what a strong neighbour belongs to since the first pass.
    void join(std::int32_t i, const std::vector<std::int32_t>& first) {
        each_strong(i, [&](std::int32_t j) {
            if (first[j] < 0) return true;
            of_node_[i] = first[j];
            return false;
        });
    }
    void gather_leftovers(std::int32_t i) {
        const auto begin = connections_.begin();
        if (std::any_of(begin + pattern_.start[i], begin + pattern_.start[i + 1],
                        [](Connection c) { return c != Connection::none; }))
            take_free(i);
    }
    void take_free(std::int32_t i) {
        of_node_[i] = count_;
        each_strong(i, [&](std::int32_t j) {
            if (of_node_[j] < 0) of_node_[j] = count_;
            return true;
        });
        ++count_;
    }

    const BlockPattern& pattern_;
    const std::vector<Connection>& connections_;
    RowTeam& team_;
    std::vector<std::int32_t> of_node_;
    std::int32_t count_ = 0;
};

// Rows of one aggregate's N, and what becomes of them.
struct Rows {
    std::vector<double> q;  // rows × 6, column after column
    std::size_t rows;
    double dot(int a, int b) const {
        double s = 0;
        for (std::size_t r = 0; r < rows; ++r) s += q[a * rows + r] * q[b * rows + r];
        return s;
    }
};

// Makes the columns orthonormal; R: 6 × 6, row-major, zero on entry.
void orthonormalize(Rows& part, double* R, char* live) {
    constexpr double dependent = 1e-20;  // of the square that is left of a column's
    for (int c = 0; c < 6; ++c) {
        double* column = part.q.data() + c * part.rows;
        const double before = part.dot(c, c);
        for (int twice = 0; twice < 2; ++twice)
            for (int e = 0; e < c; ++e) {
                const double s = part.dot(e, c);
                for (std::size_t r = 0; r < part.rows; ++r) column[r] -= s * part.q[e * part.rows + r];
                R[e * 6 + c] += s;
            }
        const double after = part.dot(c, c);
        live[c] = after > dependent * before;
        const double length = live[c] ? std::sqrt(after) : 0.0;
        R[c * 6 + c] = length;
        for (std::size_t r = 0; r < part.rows; ++r) column[r] = live[c] ? column[r] / length : 0.0;
    }
}

Aggregates list_nodes(std::vector<std::int32_t> of_node, std::int32_t count) {
    Aggregates out;
    out.of_node = std::move(of_node);
    out.start.assign(std::size_t(count) + 1, 0);
    for (const std::int32_t a : out.of_node)
        if (a >= 0) ++out.start[a + 1];
    for (std::int32_t a = 0; a < count; ++a) out.start[a + 1] += out.start[a];
    out.nodes.resize(out.start.back());
    std::vector<std::int64_t> next(out.start.begin(), out.start.end() - 1);
    for (std::size_t i = 0; i < out.of_node.size(); ++i)
        if (out.of_node[i] >= 0) out.nodes[next[out.of_node[i]]++] = static_cast<std::int32_t>(i);
    return out;
}

}  // namespace

Aggregates make_aggregates(const BlockPattern& pattern, const std::vector<Connection>& connections,
                           RowTeam& team) {
    Gathering gathering(pattern, connections, team);
    std::vector<std::int32_t> of_node = gathering.run();
    return list_nodes(std::move(of_node), gathering.count());
}

Aggregates find_parts(const BlockPattern& pattern, RowTeam& team) {
    std::vector<std::int32_t> of_node(pattern.rows(), -1), reached;
    std::int32_t count = 0;
    std::int64_t steps = 0;
    for (std::int32_t i = 0; i < pattern.rows(); ++i) {
        if (of_node[i] >= 0) continue;
        of_node[i] = count;
        for (reached.assign(1, i); !reached.empty();) {
            const std::int32_t from = reached.back();
            reached.pop_back();
            if (++steps % 4096 == 0 && !team.goes_on()) break;
            for (std::int64_t q = pattern.start[from]; q < pattern.start[from + 1]; ++q)
                if (of_node[pattern.col[q]] < 0) {
                    of_node[pattern.col[q]] = count;
                    reached.push_back(pattern.col[q]);
                }
        }
        ++count;
    }
    return list_nodes(std::move(of_node), count);
}

Tentative make_tentative(const Aggregates& aggregates, const std::vector<double>& N, int block_rows,
                         RowTeam& team) {
    Tentative out;
    const std::size_t B = block_rows, block = 6 * B;
    out.T.assign(N.size(), 0.0);
    out.R.assign(std::size_t(aggregates.count()) * 36, 0.0);
    out.live.assign(std::size_t(aggregates.count()) * 6, 0);
    team.rows(
        aggregates.count(),
        [&](std::int64_t first, std::int64_t last, int) {
            Rows part;
            for (std::int64_t a = first; a < last; ++a) {
                const std::int32_t* nodes = aggregates.nodes.data() + aggregates.start[a];
                const std::size_t count = aggregates.start[a + 1] - aggregates.start[a];
                part.rows = count * B;
                part.q.resize(6 * part.rows);
                for (std::size_t n = 0; n < count; ++n)
                    for (std::size_t r = 0; r < B; ++r)
                        for (std::size_t c = 0; c < 6; ++c)
                            part.q[c * part.rows + n * B + r] = N[nodes[n] * block + r * 6 + c];
                orthonormalize(part, out.R.data() + 36 * a, out.live.data() + 6 * a);
                for (std::size_t n = 0; n < count; ++n)
                    for (std::size_t c = 0; c < 6; ++c)
                        for (std::size_t r = 0; r < B; ++r)
                            out.T[nodes[n] * block + c * B + r] = part.q[c * part.rows + n * B + r];
            }
        },
        32);
    return out;
}

}  // namespace kestralum
