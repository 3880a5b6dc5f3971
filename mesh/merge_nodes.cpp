#include "mesh/merge_nodes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

namespace kestralum {

namespace {

struct Box {
    std::array<double, 3> low, high;

    bool contains(const double* p) const {
        for (std::size_t k = 0; k < 3; ++k)
            if (p[k] < low[k] || p[k] > high[k]) return false;
        return true;
    }
    bool overlaps(const Box& other) const {
        for (std::size_t k = 0; k < 3; ++k)
            if (low[k] > other.high[k] || other.low[k] > high[k]) return false;
        return true;
    }
};

// Cells of twice the tolerance, found by hashing: the nodes within the tolerance of a place lie in
// the eight cells nearest to it.
class CellGrid {
public:
    CellGrid(std::array<double, 3> low, double cell, std::size_t expected) : low_(low), cell_(cell) {
        const std::size_t size = std::bit_ceil(2 * expected + 16);
        heads_.assign(size, -1);
        shift_ = 64 - std::countr_zero(size);
        entries_.reserve(expected);
    }
    void insert(const double* p, std::int32_t node) {
        std::array<std::int64_t, 3> at;
        for (std::size_t k = 0; k < 3; ++k)
            at[k] = static_cast<std::int64_t>(std::floor((p[k] - low_[k]) / cell_));
        const std::uint64_t key = key_of(at);
        std::int32_t& head = heads_[slot(key)];
        entries_.push_back({key, node, head});
        head = static_cast<std::int32_t>(entries_.size() - 1);
    }
    template <typename Visit>
    void visit_near(const double* p, Visit visit) const {
        std::array<std::int64_t, 3> first;
        for (std::size_t k = 0; k < 3; ++k)
            first[k] = static_cast<std::int64_t>(std::floor((p[k] - low_[k]) / cell_ - 0.5));
        for (std::int64_t c = 0; c < 8; ++c) {
            const std::uint64_t key =
                key_of({first[0] + (c & 1), first[1] + (c >> 1 & 1), first[2] + (c >> 2)});
            for (std::int32_t e = heads_[slot(key)]; e >= 0; e = entries_[e].next)
                if (entries_[e].key == key) visit(entries_[e].node);
        }
    }

private:
    struct Entry {
        std::uint64_t key;
        std::int32_t node, next;
    };
    // The tolerance is a millionth of the model's extent: 21 bits hold each index.
    static std::uint64_t key_of(const std::array<std::int64_t, 3>& at) {
        return static_cast<std::uint64_t>(at[0] + 1) | static_cast<std::uint64_t>(at[1] + 1) << 21 |
               static_cast<std::uint64_t>(at[2] + 1) << 42;
    }
    std::size_t slot(std::uint64_t key) const { return key * 0x9E3779B97F4A7C15u >> shift_; }

    std::array<double, 3> low_;
    double cell_;
    int shift_;
    std::vector<std::int32_t> heads_;
    std::vector<Entry> entries_;
};

struct Candidate {
    double distance2;
    std::int32_t target, node;
    bool operator<(const Candidate& other) const {
        if (distance2 != other.distance2) return distance2 < other.distance2;
        return target != other.target ? target < other.target : node < other.node;
    }
};

class Merger {
public:
    Merger(std::span<const double> coordinates, std::span<const NodeRange> parts, double tolerance,
           MergedNodes& out, const Progress& progress)
        : x_(coordinates), parts_(parts), tolerance_(tolerance), out_(out), progress_(progress) {}

    bool merge(std::pair<std::int32_t, std::int32_t>& crowded) {
        out_ = {};
        out_.target.resize(x_.size() / 3);
        std::iota(out_.target.begin(), out_.target.end(), 0);
        find_shared_nodes();
        if (shared_num_ == 0) return true;
        std::array<double, 3> low = boxes_[0].low;
        for (const Box& box : boxes_)
            for (std::size_t k = 0; k < 3; ++k) low[k] = std::min(low[k], box.low[k]);
        CellGrid grid(low, 2 * tolerance_, shared_num_);
        for (std::size_t part = 0; part < parts_.size(); ++part) {
            if (!parts_[part].merges) continue;
            if (progress_.cancelled()) return true;
            if (!find_candidates(grid, static_cast<std::int32_t>(part), crowded)) return false;
            take_closest_first();
            for (std::int64_t n = parts_[part].first; n < parts_[part].last; ++n)
                if (shared_[n] && out_.target[n] == n) grid.insert(place(n), static_cast<std::int32_t>(n));
        }
        find_part_pairs();
        return true;
    }

private:
    const double* place(std::int64_t n) const { return x_.data() + 3 * n; }
    std::int32_t part_of(std::int32_t node) const {
        const auto after = std::partition_point(parts_.begin(), parts_.end(),
                                                [&](const NodeRange& r) { return r.last <= node; });
        return static_cast<std::int32_t>(after - parts_.begin());
    }

    // Marks the nodes that lie in another part's box, the only ones that can meet a node of it.
    void find_shared_nodes() {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        boxes_.assign(parts_.size(), {{infinity, infinity, infinity}, {-infinity, -infinity, -infinity}});
        for (std::size_t p = 0; p < parts_.size(); ++p) {
            if (!parts_[p].merges) continue;
            for (std::int64_t n = parts_[p].first; n < parts_[p].last; ++n)
                for (std::size_t k = 0; k < 3; ++k) {
                    boxes_[p].low[k] = std::min(boxes_[p].low[k], place(n)[k] - tolerance_);
                    boxes_[p].high[k] = std::max(boxes_[p].high[k], place(n)[k] + tolerance_);
                }
        }
        shared_.assign(x_.size() / 3, 0);
        std::vector<const Box*> near;
        for (std::size_t p = 0; p < parts_.size() && !progress_.cancelled(); ++p) {
            near.clear();
            for (std::size_t other = 0; other < parts_.size(); ++other)
                if (other != p && boxes_[p].overlaps(boxes_[other])) near.push_back(&boxes_[other]);
            if (near.empty() || !parts_[p].merges) continue;
            for (std::int64_t n = parts_[p].first; n < parts_[p].last; ++n)
                if (std::any_of(near.begin(), near.end(),
                                [&](const Box* box) { return box->contains(place(n)); })) {
                    shared_[n] = 1;
                    ++shared_num_;
                }
        }
    }
    bool find_candidates(const CellGrid& grid, std::int32_t part,
                         std::pair<std::int32_t, std::int32_t>& crowded) {
        // A mesh coarser than the tolerance gives a node one or two neighbours at most.
        constexpr std::int64_t most_per_node = 64, most_anyway = 100000;
        const NodeRange& range = parts_[part];
        const std::int64_t most = most_anyway + most_per_node * (range.last - range.first);
        std::int64_t visited = 0;
        std::int32_t last_seen = 0;
        candidates_.clear();
        for (std::int64_t n = range.first; n < range.last && visited <= most; ++n) {
            if (!shared_[n]) continue;
            if (n % 4096 == 0 && progress_.cancelled()) return true;
            const double* p = place(n);
            grid.visit_near(p, [&](std::int32_t other) {
                const double* q = place(other);
                const double d[3] = {p[0] - q[0], p[1] - q[1], p[2] - q[2]};
                const double distance2 = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
                ++visited;
                last_seen = other;
                if (distance2 <= tolerance_ * tolerance_)
                    candidates_.push_back({distance2, other, static_cast<std::int32_t>(n)});
            });
        }
        if (visited <= most) return true;
        crowded = {part_of(last_seen), part};
        return false;
    }
    void take_closest_first() {
        std::sort(candidates_.begin(), candidates_.end());
        if (!candidates_.empty()) last_taker_.resize(out_.target.size(), -1);
        for (const Candidate& c : candidates_) {
            if (out_.target[c.node] != c.node) continue;
            std::int32_t& last_taker = last_taker_[c.target];
            if (last_taker >= 0 && part_of(last_taker) == part_of(c.node)) continue;
            last_taker = c.node;
            out_.target[c.node] = c.target;
            ++out_.merged;
        }
    }
    void find_part_pairs() {
        std::vector<std::pair<std::int32_t, std::int32_t>>
            meetings;  // (node that stays, part that shares it)
        for (std::size_t n = 0; n < out_.target.size(); ++n) {
            const std::int32_t target = out_.target[n];
            if (target == static_cast<std::int32_t>(n)) continue;
            meetings.emplace_back(target, part_of(target));
            meetings.emplace_back(target, part_of(static_cast<std::int32_t>(n)));
        }
        std::sort(meetings.begin(), meetings.end());
        meetings.erase(std::unique(meetings.begin(), meetings.end()), meetings.end());
        auto& pairs = out_.part_pairs;
        for (std::size_t a = 0; a < meetings.size(); ++a)
            for (std::size_t b = a + 1; b < meetings.size() && meetings[b].first == meetings[a].first; ++b)
                pairs.emplace_back(meetings[a].second, meetings[b].second);
        std::sort(pairs.begin(), pairs.end());
        pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    }

    std::span<const double> x_;
    std::span<const NodeRange> parts_;
    double tolerance_;
    MergedNodes& out_;
    const Progress& progress_;
    std::vector<Box> boxes_;
    std::vector<char> shared_;
    std::size_t shared_num_ = 0;
    std::vector<Candidate> candidates_;
    std::vector<std::int32_t> last_taker_;  // per node: who gave way to it last
};

}  // namespace

bool merge_coincident_nodes(std::span<const double> coordinates, std::span<const NodeRange> parts,
                            double tolerance, MergedNodes& merged,
                            std::pair<std::int32_t, std::int32_t>& crowded, const Progress& progress) {
    return Merger(coordinates, parts, tolerance, merged, progress).merge(crowded);
}

}  // namespace kestralum
