// Loads of an explicit run that change with time: factors of `time`, pressures that follow the displaced
// faces, temperatures. What is constant is in ExplicitState::F once and for all.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/explicit/explicit_team.h"
#include "elements/explicit_blocks.h"
#include "system/load_set.h"

namespace kestralum {

class ExplicitLoads {
public:
    // Takes from the loads of the run's case what is constant into `constant` (dof_num, N) and keeps the
    // rest. Borrows the job.
    ExplicitLoads(const Job& job, LoadSet loads, std::span<double> constant);

    bool varies() const { return !groups_.empty() || !surface_.empty(); }
    // What acts at all times, node × 4: before the first set().
    void keep_constant(const LineDoubles& F) { constant_ = F; }
    const LineDoubles& constant() const { return constant_; }
    std::span<const std::int32_t> touched() const { return touched_; }

    // Leaves the nodes that have a place, and gives them that. The job's mesh and the constant loads are to
    // follow.
    void keep(std::span<const std::int32_t> place_of);

    // F at a time with the displacements u (node × 4, m); no memory is taken. False where a load has no
    // finite value. `ranks`: have the other faces; null: all are here.
    bool set(double time, const double* u, double* F, ExplicitTeam* ranks = nullptr);
    // Of what varies at the nodes before `nodes`, with velocities v (node × 4), W.
    double power(const double* F, const double* v, std::int64_t nodes) const;
    const std::string& trouble() const { return trouble_; }

private:
    struct Group {
        std::string record;  // the first load of the group: "force F"
        LoadOptions options;
        std::vector<std::int32_t> places;  // 4 node + direction
        std::vector<double> values;        // N, at factor 1
    };
    struct Surface {
        const Load* load;
        std::string record;               // "load P"
        std::vector<std::int32_t> nodes;  // 0-based, ascending
    };
    bool take_factor(const std::string& record, const LoadOptions& options, double time, double& factor);

    const Job& job_;
    std::vector<Group> groups_;
    std::vector<Surface> surface_;
    std::vector<std::int32_t> touched_;  // places (4 node + direction) that change
    LineDoubles constant_;
    std::vector<double> u_, nodal_;  // dof_num, where surface loads act
    std::string trouble_;
};

// Temperatures: thermal strains of the integration points over the time.
class ExplicitHeat {
public:
    ExplicitHeat(const Job& job, const LoadSet& loads);

    bool empty() const { return heatings_.empty(); }
    // Hands the strains at a time on; true where they are numbers.
    bool set(double time, int threads, ElementBlocks& blocks);
    const std::string& trouble() const { return trouble_; }
    // Leaves these elements; the job's mesh is to follow.
    void keep(std::span<const std::int32_t> elements);

private:
    void tell_trouble(double time);
    const Job& job_;
    std::vector<Heating> heatings_;
    std::vector<std::vector<double>> fixed_;  // per heating whose temperature does not change: at factor 1
    std::vector<double> strain_;              // element × point
    bool varies_ = false, begun_ = false;
    std::string trouble_;
};

}  // namespace kestralum
