// Loops over rows on several threads that end early on a cancel or when memory is missing, and sums whose
// order does not depend on the threads.
#pragma once

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <new>
#include <span>
#include <vector>

#include "model/progress.h"

namespace kestralum {

class RowTeam {
public:
    enum class Ended { no, cancelled, out_of_memory };

    // `progress` may be null; borrowed.
    RowTeam(int threads, const Progress* progress) : threads_(std::max(1, threads)), progress_(progress) {}

    int threads() const { return threads_; }
    Ended ended() const { return ended_.load(std::memory_order_relaxed); }
    // Looks for a cancel: false when the work is to be left.
    bool goes_on() {
        if (progress_ && progress_->cancelled()) ended_.store(Ended::cancelled, std::memory_order_relaxed);
        return ended() == Ended::no;
    }
    void out_of_memory() { ended_.store(Ended::out_of_memory, std::memory_order_relaxed); }

    // work(first, last, thread) for pieces of [0, count), each worth some fifty microseconds; whoever comes
    // takes the next one, so a piece may write only what is its own. False: given up, the rest was not done.
    template <typename Work>
    bool rows(std::int64_t count, const Work& work, std::int64_t piece = 512) {
        const std::int64_t pieces = (count + piece - 1) / piece;
        const auto take = [&](std::int64_t p, int thread) {
            try {
                if (!goes_on()) return;
                work(p * piece, std::min(count, (p + 1) * piece), thread);
            } catch (...) {  // no exception may leave a thread
                out_of_memory();
            }
        };
        if (threads_ == 1 || pieces < worth_a_team) {
            for (std::int64_t p = 0; p < pieces; ++p) take(p, 0);
        } else {
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads_)
            for (std::int64_t p = 0; p < pieces; ++p) take(p, omp_get_thread_num());
        }
        return ended() == Ended::no;
    }

    // Σ value(i) over [0, count): by pieces of a fixed length, these one after the other.
    template <typename Value>
    double sum(std::int64_t count, const Value& value) {
        constexpr std::int64_t piece = 16384;
        sums_.assign((count + piece - 1) / piece, 0.0);
        rows(
            count,
            [&](std::int64_t first, std::int64_t last, int) {
                double s = 0;
                for (std::int64_t i = first; i < last; ++i) s += value(i);
                sums_[first / piece] = s;
            },
            piece);
        double all = 0;
        for (const double s : sums_) all += s;
        return all;
    }
    double dot(std::span<const double> a, std::span<const double> b) {
        const double *pa = a.data(), *pb = b.data();
        return sum(static_cast<std::int64_t>(a.size()), [=](std::int64_t i) { return pa[i] * pb[i]; });
    }

private:
    static constexpr std::int64_t worth_a_team = 4;  // pieces
    const int threads_;
    const Progress* const progress_;
    std::atomic<Ended> ended_{Ended::no};
    std::vector<double> sums_;  // pieces
};

}  // namespace kestralum
