// Blocks of doubles that are used again and again: touching fresh pages costs more than the additions on
// them.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "solver/panels.h"

namespace kestralum {

// Several threads may take and give.
class BlockPool {
public:
    // At most about `limit` doubles are kept unused.
    explicit BlockPool(std::int64_t limit) : limit_(limit) {}
    // Every block must have come back or be forgotten: give() each before the pool goes.
    ~BlockPool() = default;
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    // Uninitialised; null when there is no memory.
    double* take(std::int64_t doubles) {
        doubles = std::max<std::int64_t>(doubles, 8);
        const std::lock_guard guard(lock_);
        auto found = free_.lower_bound(doubles);
        if (found != free_.end() && found->first <= 2 * doubles) {
            Block block = std::move(found->second);
            held_ -= found->first;
            free_.erase(found);
            return block.release() + head;
        }
        Block block = allocate_block(doubles + head);
        if (!block) return nullptr;
        block[0] = static_cast<double>(doubles);  // its size stands before it, exact below 2⁵³
        return block.release() + head;
    }

    void give(double* taken) {  // null is none
        if (!taken) return;
        Block block(taken - head);
        const std::int64_t doubles = static_cast<std::int64_t>(block[0]);
        const std::lock_guard guard(lock_);
        try {
            free_.emplace(doubles, std::move(block));
        } catch (...) {  // no memory for its place: the block itself goes
            return;
        }
        held_ += doubles;
        while (held_ > limit_ && !free_.empty()) {
            held_ -= free_.begin()->first;
            free_.erase(free_.begin());
        }
    }

private:
    static constexpr std::int64_t head = 8;  // doubles: what follows stays aligned
    std::mutex lock_;
    std::multimap<std::int64_t, Block> free_;
    std::int64_t held_ = 0, limit_;
};

}  // namespace kestralum
