// What one traversal of a multifrontal factor's tree shares among its threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <vector>

#include "solver/block_pool.h"
#include "solver/factor_files.h"
#include "solver/multifrontal.h"

namespace kestralum {

struct MultifrontalFactor::Walk {
    Walk(const FrontTree& tree, int threads, std::int64_t pooled, const Progress* asked)
        : pool(pooled), left(tree.fronts.size(), nullptr), progress(asked) {
        for (int t = 0; t < threads; ++t) scratch.push_back(allocate_block(scratch_doubles));
    }
    ~Walk() {
        for (double* block : left) pool.give(block);
    }
    bool whole() const {  // false: there was no memory for it
        for (const Block& block : scratch)
            if (!block) return false;
        return true;
    }
    void end(FactorStatus why) {
        FactorStatus none = FactorStatus::ok;
        status.compare_exchange_strong(none, why);
    }
    // `operations` of `all` are done besides those before; any thread.
    void count(double operations, double all) {
        const double sum = operations_done.fetch_add(operations) + operations;
        if (lines) lines->set_share(std::min(sum / all, 1.0));
    }
    bool ended() const { return status.load(std::memory_order_relaxed) != FactorStatus::ok; }

    static constexpr std::int64_t scratch_doubles = std::int64_t{tile_columns} * tile_columns;
    BlockPool pool;
    std::vector<Block> scratch;  // threads: for use within one task
    std::vector<double*> left;   // fronts: what each leaves to its parent, or takes from it
    std::atomic<FactorStatus> status{FactorStatus::ok};
    std::atomic<std::int64_t> negative{0}, replaced{0}, done{0};
    std::atomic<double> operations_done{0};
    const Progress* progress;
    Progress* lines = nullptr;  // for the counter
};

// The file of a factor that is not kept: the panels one after the other, raw doubles. Several threads may
// read and write.
class MultifrontalFactor::PanelFile {
public:
    explicit PanelFile(const std::string& log_folder);
    ~PanelFile();
    PanelFile(const PanelFile&) = delete;
    PanelFile& operator=(const PanelFile&) = delete;

    // False with error() where the system refuses.
    bool open();
    // Piece by piece; false too where `stops` says so between two.
    using Stops = std::function<bool()>;
    bool write(const double* from, std::int64_t offset, std::int64_t doubles, const Stops& stops);
    bool read(double* to, std::int64_t offset, std::int64_t doubles, const Stops& stops);
    std::string error() const;

private:
    static constexpr std::int64_t piece = 1 << 25;  // bytes
    bool fail(const char* what);
    std::string name_;
    int file_ = -1;
    std::atomic<int> number_{0};  // errno of the first failure
    std::atomic<const char*> what_{""};
};

}  // namespace kestralum
