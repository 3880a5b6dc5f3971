#include "solver/factor_writer.h"

#include <algorithm>
#include <array>
#include <exception>

namespace kestralum {

FactorWriter::FactorWriter(FactorFiles& files, std::int32_t row_num, Rows rows, const Progress& progress)
    : files_(files), row_num_(row_num), rows_(std::move(rows)), progress_(progress), thread_([this] {
          try {
              work();
          } catch (const std::exception&) {
              status_ = FactorStatus::out_of_memory;
          }
      }) {}

FactorWriter::~FactorWriter() {
    finish();
}

void FactorWriter::publish(std::int32_t rows) {
    const std::lock_guard hold(lock_);
    published_ = rows;
    changed_.notify_all();
}

void FactorWriter::stop() {
    const std::lock_guard hold(lock_);
    stopped_ = true;
    changed_.notify_all();
}

FactorStatus FactorWriter::finish() {
    if (thread_.joinable()) thread_.join();
    return status_;
}

void FactorWriter::work() {
    std::array<const double*, most_rows> places;
    for (std::int32_t first = 0, last = 0; first < row_num_; first = last) {
        {
            std::unique_lock hold(lock_);
            const std::int32_t wanted = std::min(row_num_, first + most_rows);
            changed_.wait(hold, [&] { return published_ >= wanted || stopped_; });
            last = wanted;
            if (stopped_) return;
        }
        if (progress_.cancelled()) {
            status_ = FactorStatus::cancelled;
            return;
        }
        rows_(first, last, places.data());
        if (!files_.write_rows(first, last, places.data())) break;
    }
    files_.flush();
    files_.close_all();
    if (files_.failed()) status_ = FactorStatus::file_failed;
}

}  // namespace kestralum
