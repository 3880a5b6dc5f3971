// Collects what a reader, a run or a writer says, kind by kind.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>
#include <string>

#include "model/progress.h"

namespace kestralum::testing {

class Collected : public Progress {
public:
    std::string lines, notices, errors, summaries;
    void clear() { lines = notices = errors = summaries = ""; }

protected:
    void take(Kind kind, std::string_view text) override {
        const std::lock_guard lock(lock_);
        (kind == Kind::line     ? lines
         : kind == Kind::notice ? notices
         : kind == Kind::error  ? errors
                                : summaries) += text;
    }

private:
    std::mutex lock_;
};

// Asks to stop from the n-th look at it on, or has no memory then; counts the looks.
class StopsAtLook : public Collected {
public:
    explicit StopsAtLook(std::int64_t n = std::numeric_limits<std::int64_t>::max(), bool no_memory = false)
        : n_(n), no_memory_(no_memory) {}
    bool cancelled() const override {
        if (++looks < n_) return false;
        return no_memory_ ? throw std::bad_alloc() : true;
    }
    mutable std::atomic<std::int64_t> looks = 0;

private:
    const std::int64_t n_;
    const bool no_memory_;
};

}  // namespace kestralum::testing
