// The processes that compute one model together, each a rank of MPI. Every rank runs the same stages on its
// own piece of the mesh; what follows from the model alone is computed by each for itself.
//
// All functions are collective: every rank calls them, in the same order.
#pragma once

#include <mpi.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "system/job.h"

namespace kestralum {

class Team {
public:
    // most_values: that go in one message, whose counts are of 32 bits.
    explicit Team(MPI_Comm comm, std::size_t most_values = std::size_t(1) << 28);

    MPI_Comm comm() const { return comm_; }
    int rank() const { return rank_; }
    int size() const { return size_; }
    bool first() const { return rank_ == 0; }  // the rank that prints and writes

    // Sums over the ranks, the same bits on each of them.
    void sum(std::span<double> values) const;
    double sum(double value) const;
    std::int64_t sum(std::int64_t value) const;
    double largest(double value) const;
    // The lowest of the numbers from 0 on; -1 where no rank has one.
    std::int32_t lowest(std::int32_t number) const;
    bool any(bool here) const;

    // Makes `values` those of the first rank, `text` that of a rank.
    void share(std::vector<std::int32_t>& values) const;
    void share(std::string& text, int from = 0) const;
    // The text of the lowest rank that has one, on every rank; empty where none has.
    std::string first_text(std::string here) const;

    // Sends every rank's values to the first one, rank after rank; nothing comes back on the others.
    std::vector<double> gather(std::span<const double> values) const;
    // The same on every rank.
    std::vector<double> gather_everywhere(std::span<const double> values) const;

    // Whether every rank can go on: where one has failed, all get the status and the error of the lowest such
    // rank; where one was asked to stop, all stop.
    bool goes_on(Job& job) const;
    // The same, but a request to stop that has not ended the work of a rank comes too late.
    bool agrees(Job& job) const;
    // Does the work of this rank alone, no collective call in it, then goes_on(); a lack of memory is a
    // failure.
    bool stage(Job& job, const std::function<bool()>& work) const;
    // As the last stage, of which files stand: agrees() behind it.
    bool conclude(Job& job, const std::function<bool()>& work) const;

private:
    void work_alone(Job& job, const std::function<bool()>& work) const;
    void each_message(std::span<double> values, const std::function<void(double*, int)>& send) const;
    void gather_by_messages(std::span<const double> values, std::span<const std::int64_t> counts,
                            std::vector<double>& all) const;
    std::vector<double> gathered(std::span<const double> values, bool everywhere) const;

    MPI_Comm comm_;
    std::size_t most_values_;
    int rank_ = 0, size_ = 1;
};

}  // namespace kestralum
