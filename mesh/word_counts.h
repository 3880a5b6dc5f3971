// Counts words for a notice: "*STEP (2), *MATERIAL", in the order in which they came.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kestralum {

class WordCounts {
public:
    void add(const std::string& word, std::int64_t times) {
        const auto [place, added] = index_.try_emplace(word, counts_.size());
        if (added) counts_.emplace_back(word, 0);
        counts_[place->second].second += times;
    }
    bool empty() const { return counts_.empty(); }
    // The first twelve words, each with its count where it is not 1, and how many more there are.
    std::string listed() const {
        constexpr std::size_t most = 12;
        std::string text;
        for (std::size_t k = 0; k < std::min(most, counts_.size()); ++k) {
            text += (k == 0 ? "" : ", ") + counts_[k].first;
            if (counts_[k].second > 1) text += " (" + std::to_string(counts_[k].second) + ")";
        }
        if (counts_.size() > most) text += " and " + std::to_string(counts_.size() - most) + " more";
        return text;
    }

private:
    std::unordered_map<std::string, std::size_t> index_;
    std::vector<std::pair<std::string, std::int64_t>> counts_;
};

}  // namespace kestralum
