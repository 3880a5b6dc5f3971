// Collects what a reader, a run or a writer says, kind by kind.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
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

// Asks to stop from the n-th look at it on; counts the looks.
class StopsAtLook : public Collected {
public:
    explicit StopsAtLook(std::int64_t n = std::numeric_limits<std::int64_t>::max()) : n_(n) {}
    bool cancelled() const override { return ++looks >= n_; }
    mutable std::atomic<std::int64_t> looks = 0;

private:
    const std::int64_t n_;
};

}  // namespace kestralum::testing
