// Writes the rows of a factor that stays in memory to its division files while the work goes on.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "model/progress.h"
#include "solver/factor.h"
#include "solver/factor_files.h"

namespace kestralum {

class FactorWriter {
public:
    static constexpr std::int32_t most_rows = 64;  // at a time

    // Tells where the entries of rows [first, last) lie: rows[i - first]; called from the writer's thread, in
    // the order of the rows. They must stay there until the next call.
    using Rows = std::function<void(std::int32_t first, std::int32_t last, const double** rows)>;

    // Borrows `files`, which are nobody else's until finish(), and `progress`, whose cancel ends the writing.
    // Throws std::system_error where there is no thread.
    FactorWriter(FactorFiles& files, std::int32_t row_num, Rows rows, const Progress& progress);
    ~FactorWriter();
    FactorWriter(const FactorWriter&) = delete;
    FactorWriter& operator=(const FactorWriter&) = delete;

    // The rows below are in their places.
    void publish(std::int32_t rows);
    // What is not written yet stays unwritten.
    void stop();
    // Waits for the last row. file_failed: files.error() says why.
    FactorStatus finish();

private:
    void work();

    FactorFiles& files_;
    std::int32_t row_num_;
    Rows rows_;
    const Progress& progress_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::int32_t published_ = 0;
    bool stopped_ = false;
    FactorStatus status_ = FactorStatus::ok;
    std::thread thread_;  // the last member: it works with the others
};

}  // namespace kestralum
