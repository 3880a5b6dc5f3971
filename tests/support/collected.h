// Collects what a reader, a run or a writer says, kind by kind.
#pragma once

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

}  // namespace kestralum::testing
