#include "large/team.h"

#include <algorithm>
#include <limits>
#include <new>
#include <numeric>

namespace kestralum {

Team::Team(MPI_Comm comm, std::size_t most_values) : comm_(comm), most_values_(most_values) {
    MPI_Comm_rank(comm, &rank_);
    MPI_Comm_size(comm, &size_);
}

void Team::each_message(std::span<double> values, const std::function<void(double*, int)>& send) const {
    for (std::size_t at = 0; at < values.size(); at += most_values_)
        send(&values[at], static_cast<int>(std::min(most_values_, values.size() - at)));
}

void Team::sum(std::span<double> values) const {
    // a sum at one place and its copies: a sum on every rank need not have the same bits on all
    each_message(values, [this](double* part, int count) {
        MPI_Reduce(first() ? MPI_IN_PLACE : part, part, count, MPI_DOUBLE, MPI_SUM, 0, comm_);
        MPI_Bcast(part, count, MPI_DOUBLE, 0, comm_);
    });
}

double Team::sum(double value) const {
    sum(std::span(&value, 1));
    return value;
}

std::int64_t Team::sum(std::int64_t value) const {
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_SUM, comm_);
    return value;
}

double Team::largest(double value) const {
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_MAX, comm_);
    return value;
}

std::int32_t Team::lowest(std::int32_t number) const {
    constexpr std::int32_t none = std::numeric_limits<std::int32_t>::max();
    std::int32_t least = number < 0 ? none : number;
    MPI_Allreduce(MPI_IN_PLACE, &least, 1, MPI_INT32_T, MPI_MIN, comm_);
    return least == none ? -1 : least;
}

bool Team::any(bool here) const {
    int flag = here;
    MPI_Allreduce(MPI_IN_PLACE, &flag, 1, MPI_INT, MPI_MAX, comm_);
    return flag != 0;
}

void Team::share(std::vector<std::int32_t>& values) const {
    std::int64_t count = std::ssize(values);
    MPI_Bcast(&count, 1, MPI_INT64_T, 0, comm_);
    values.resize(count);
    MPI_Bcast(values.data(), static_cast<int>(count), MPI_INT32_T, 0, comm_);
}

void Team::share(std::string& text, int from) const {
    int length = static_cast<int>(text.size());
    MPI_Bcast(&length, 1, MPI_INT, from, comm_);
    text.resize(length);
    MPI_Bcast(text.data(), length, MPI_CHAR, from, comm_);
}

std::string Team::first_text(std::string here) const {
    const int from = lowest(here.empty() ? -1 : rank_);
    if (from < 0) return {};
    share(here, from);
    return here;
}

std::vector<double> Team::gathered(std::span<const double> values, bool everywhere) const {
    std::vector<std::int64_t> counts(size_);
    const std::int64_t own = std::ssize(values);
    MPI_Allgather(&own, 1, MPI_INT64_T, counts.data(), 1, MPI_INT64_T, comm_);
    const auto total =
        static_cast<std::size_t>(std::accumulate(counts.begin(), counts.end(), std::int64_t(0)));
    std::vector<double> all(first() || everywhere ? total : 0);
    if (total > most_values_) {
        gather_by_messages(values, counts, all);
        return all;
    }
    std::vector<int> sizes(counts.begin(), counts.end()), starts(sizes.size(), 0);
    std::partial_sum(sizes.begin(), sizes.end() - 1, starts.begin() + 1);
    if (everywhere)
        MPI_Allgatherv(values.data(), sizes[rank_], MPI_DOUBLE, all.data(), sizes.data(), starts.data(),
                       MPI_DOUBLE, comm_);
    else
        MPI_Gatherv(values.data(), sizes[rank_], MPI_DOUBLE, all.data(), sizes.data(), starts.data(),
                    MPI_DOUBLE, 0, comm_);
    return all;
}

// What is too much for one message; to every rank where `all` has room on each.
void Team::gather_by_messages(std::span<const double> values, std::span<const std::int64_t> counts,
                              std::vector<double>& all) const {
    constexpr int tag = 3;
    if (first()) {
        std::ranges::copy(values, all.begin());
        std::size_t at = values.size();
        for (int rank = 1; rank < size_; at += counts[rank++])
            each_message(std::span(all).subspan(at, counts[rank]), [&](double* part, int count) {
                MPI_Recv(part, count, MPI_DOUBLE, rank, tag, comm_, MPI_STATUS_IGNORE);
            });
    } else {
        std::vector<double> sent(values.begin(), values.end());
        each_message(sent,
                     [&](double* part, int count) { MPI_Send(part, count, MPI_DOUBLE, 0, tag, comm_); });
    }
    if (!any(all.empty()))
        each_message(all, [&](double* part, int count) { MPI_Bcast(part, count, MPI_DOUBLE, 0, comm_); });
}

std::vector<double> Team::gather(std::span<const double> values) const {
    return gathered(values, false);
}

std::vector<double> Team::gather_everywhere(std::span<const double> values) const {
    return gathered(values, true);
}

bool Team::goes_on(Job& job) const {
    if (any(job.progress.cancelled())) job.progress.cancel();
    return agrees(job) && job.goes_on();
}

bool Team::agrees(Job& job) const {
    RunReport& report = job.report();
    const bool failed = report.status != RunStatus::done && report.status != RunStatus::cancelled;
    int worst = failed ? rank_ : size_;
    MPI_Allreduce(MPI_IN_PLACE, &worst, 1, MPI_INT, MPI_MIN, comm_);
    if (worst == size_) {
        if (!any(report.status == RunStatus::cancelled)) return true;
        job.progress.cancel();
        return job.goes_on();
    }
    int status = static_cast<int>(report.status);
    MPI_Bcast(&status, 1, MPI_INT, worst, comm_);
    std::string text = report.remarks.errors.empty() ? std::string() : report.remarks.errors.front();
    share(text, worst);
    report.status = static_cast<RunStatus>(status);
    report.remarks.errors.assign(1, text);
    return false;
}

void Team::work_alone(Job& job, const std::function<bool()>& work) const {
    try {
        work();
    } catch (const std::bad_alloc&) {
        job.fail(RunStatus::failed, "not enough memory for this model on rank " + std::to_string(rank_) +
                                        " of " + std::to_string(size_));
    }
}

bool Team::stage(Job& job, const std::function<bool()>& work) const {
    work_alone(job, work);
    return goes_on(job);
}

bool Team::conclude(Job& job, const std::function<bool()>& work) const {
    work_alone(job, work);
    return agrees(job);
}

}  // namespace kestralum
