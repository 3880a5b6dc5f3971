#include "analysis/explicit/explicit_search.h"

#include <algorithm>
#include <cmath>

namespace kestralum {

namespace {

constexpr std::int32_t most_cells_a_side = 256;

}  // namespace

void ContactBox::add(const double* p, double reach) {
    for (std::size_t c = 0; c < 3; ++c) {
        low[c] = std::min(low[c], p[c] - reach);
        high[c] = std::max(high[c], p[c] + reach);
    }
}

bool ContactBox::holds(const double* p) const {
    return p[0] >= low[0] && p[0] <= high[0] && p[1] >= low[1] && p[1] <= high[1] && p[2] >= low[2] &&
           p[2] <= high[2];
}

bool ContactBox::meets(const ContactBox& other) const {
    for (std::size_t c = 0; c < 3; ++c)
        if (!(other.high[c] >= low[c] && other.low[c] <= high[c])) return false;
    return true;
}

// Cells of the boxes' mean size over the box around them all.
void BoxGrid::size_cells() {
    ContactBox all;
    double sum = 0;
    for (const ContactBox& box : boxes_) {
        double largest = 0;
        for (std::size_t c = 0; c < 3; ++c) {
            all.low[c] = std::min(all.low[c], box.low[c]);
            all.high[c] = std::max(all.high[c], box.high[c]);
            largest = std::max(largest, box.high[c] - box.low[c]);
        }
        sum += largest;
    }
    low_ = all.low;
    cell_ = sum / static_cast<double>(std::max<std::size_t>(boxes_.size(), 1));
    for (std::size_t c = 0; c < 3; ++c)
        cell_ = std::max(cell_, (all.high[c] - all.low[c]) / most_cells_a_side);
    if (!(cell_ > 0) || !std::isfinite(cell_)) cell_ = 1;
    for (std::size_t c = 0; c < 3; ++c) {
        const double wanted = (all.high[c] - all.low[c]) / cell_;  // infinite in a run that is about to end
        count_[c] = wanted < most_cells_a_side ? std::max(static_cast<std::int32_t>(wanted), 0) + 1
                                               : most_cells_a_side + 1;
    }
}

void BoxGrid::fill(std::span<const std::int32_t> items, std::span<const ContactBox> boxes) {
    items_.assign(items.begin(), items.end());
    boxes_.assign(boxes.begin(), boxes.end());
    size_cells();
    const std::size_t cells = std::size_t(count_[0]) * std::size_t(count_[1]) * std::size_t(count_[2]);
    const std::size_t buckets = std::min(cells, 4 * items.size() + 1);
    start_.assign(buckets + 1, 0);
    const auto each_cell = [&](const ContactBox& box, const auto& visit) {
        std::array<std::int32_t, 3> from, to;
        for (std::size_t c = 0; c < 3; ++c) {
            from[c] = index(c, box.low[c]);
            to[c] = index(c, box.high[c]);
        }
        for (std::int32_t k = from[2]; k <= to[2]; ++k)
            for (std::int32_t j = from[1]; j <= to[1]; ++j)
                for (std::int32_t i = from[0]; i <= to[0]; ++i) visit(bucket(i, j, k));
    };
    for (const ContactBox& box : boxes_) each_cell(box, [&](std::size_t in) { ++start_[in + 1]; });
    for (std::size_t k = 0; k < buckets; ++k) start_[k + 1] += start_[k];
    entry_.resize(start_.back());
    next_.assign(start_.begin(), start_.end() - 1);
    for (std::size_t i = 0; i < boxes_.size(); ++i)
        each_cell(boxes_[i], [&](std::size_t in) {
            // two cells of a box may share a bucket
            if (next_[in] > start_[in] && entry_[next_[in] - 1] == static_cast<std::int32_t>(i)) return;
            entry_[next_[in]++] = static_cast<std::int32_t>(i);
        });
    // what was counted twice leaves room at the end of its bucket
    for (std::size_t k = 0; k < buckets; ++k)
        for (std::int32_t at = next_[k]; at < start_[k + 1]; ++at)
            entry_[at] = static_cast<std::int32_t>(boxes_.size());
    boxes_.emplace_back();  // holds nothing
}

std::int32_t BoxGrid::index(std::size_t axis, double value) const {
    const double place = (value - low_[axis]) / cell_;
    if (!(place > 0)) return 0;
    return place < count_[axis] ? static_cast<std::int32_t>(place) : count_[axis] - 1;
}

std::size_t BoxGrid::bucket(std::int32_t i, std::int32_t j, std::int32_t k) const {
    const std::uint64_t cell_number =
        static_cast<std::uint64_t>(i) +
        static_cast<std::uint64_t>(count_[0]) *
            (static_cast<std::uint64_t>(j) +
             static_cast<std::uint64_t>(count_[1]) * static_cast<std::uint64_t>(k));
    return static_cast<std::size_t>(cell_number % (start_.size() - 1));
}

}  // namespace kestralum
