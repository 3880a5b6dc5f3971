// Node numbers of a mesh file, sparse and in any order, and the place of each node in the file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "model/progress.h"

namespace kestralum {

class NodeNumbers {
public:
    // numbers[n] is that of the n-th node of the file (0-based), any value. `repeated`: the first node whose
    // number came before, -1 where there is none. Dense numbers take 4 bytes up to the largest one, others
    // 16 bytes each. False where `progress` asks to stop.
    bool build(std::span<const std::int64_t> numbers, const Progress& progress, std::int64_t& repeated);

    // Place (0-based) of the node of this number, -1 where there is none.
    std::int32_t find(std::int64_t number) const {
        if (number >= 0 && number < static_cast<std::int64_t>(place_.size())) return place_[number];
        if (sorted_.empty()) return -1;
        const auto at = std::lower_bound(sorted_.begin(), sorted_.end(), std::pair{number, std::int32_t{0}});
        return at != sorted_.end() && at->first == number ? at->second : -1;
    }

private:
    bool sort(const Progress& progress);
    std::vector<std::int32_t> place_;                            // by number, -1 where there is none
    std::vector<std::pair<std::int64_t, std::int32_t>> sorted_;  // number and place, where numbers are sparse
};

}  // namespace kestralum
