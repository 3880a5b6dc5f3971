#include "mesh/node_numbers.h"

namespace kestralum {

bool NodeNumbers::build(std::span<const std::int64_t> numbers, const Progress& progress,
                        std::int64_t& repeated) {
    place_.clear();
    sorted_.clear();
    repeated = -1;
    const auto nodes = static_cast<std::int64_t>(numbers.size());
    if (nodes == 0) return true;
    const auto [least, most] = std::minmax_element(numbers.begin(), numbers.end());
    if (*least >= 0 && *most <= 4 * nodes + 1000) {
        place_.assign(*most + 1, -1);
        for (std::int64_t n = 0; n < nodes; ++n) {
            if (n % 4096 == 0 && progress.cancelled()) return false;
            std::int32_t& place = place_[numbers[n]];
            if (place >= 0) {
                repeated = n;
                return true;
            }
            place = static_cast<std::int32_t>(n);
        }
        return true;
    }
    sorted_.reserve(nodes);
    for (std::int64_t n = 0; n < nodes; ++n) sorted_.emplace_back(numbers[n], static_cast<std::int32_t>(n));
    if (!sort(progress)) return false;
    for (std::int64_t n = 1; n < nodes; ++n)
        if (sorted_[n].first == sorted_[n - 1].first && (repeated < 0 || sorted_[n].second < repeated))
            repeated = sorted_[n].second;
    return true;
}

// In pieces, so that a stop on request is seen between them.
bool NodeNumbers::sort(const Progress& progress) {
    constexpr std::size_t piece = 1 << 18;
    const std::size_t nodes = sorted_.size();
    const auto at = [&](std::size_t n) {
        return sorted_.begin() + static_cast<std::ptrdiff_t>(std::min(n, nodes));
    };
    for (std::size_t first = 0; first < nodes; first += piece) {
        if (progress.cancelled()) return false;
        std::sort(at(first), at(first + piece));
    }
    for (std::size_t width = piece; width < nodes; width *= 2)
        for (std::size_t first = 0; first + width < nodes; first += 2 * width) {
            if (progress.cancelled()) return false;
            std::inplace_merge(at(first), at(first + width), at(first + 2 * width));
        }
    return true;
}

}  // namespace kestralum
