// What an explicit run asks of the other processes that compute the same model with it.
//
// Each process has the elements that it counts, and all nodes of them. What these elements do at a node that
// several processes have is summed up in each step; from there on each of them leads the node alike, to the
// bit. In sums over nodes the owner alone counts it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "elements/stable_step.h"

namespace kestralum {

struct ExplicitState;
struct Job;

// What ends a run: the first of a step is told, in the order of `kind`, then of the elements.
struct StepFault {
    std::int64_t step = -1;  // -1: none
    int kind = 0;
    std::int32_t element = -1;  // of the run, 0-based
    std::string text;
};

// Values of all nodes and elements of the run, in its order; on the first process alone. Stresses are empty
// where each process has written its own.
struct GatheredFrame {
    std::vector<double> u, v, v_new, residual;  // 3 per node
    std::vector<double> node_stress;            // as in Frame
    std::vector<float> element_stress, element_plastic;
    std::vector<std::int32_t> removed;  // elements that are out, ascending
};

// All functions but first() are called by every process, in the same order.
class ExplicitTeam {
public:
    virtual ~ExplicitTeam() = default;
    virtual bool first() const = 0;

    // Adds up what the processes have at the nodes that they share: `width` values per node here, of which 3
    // count; what one has at a node that it only looks at does not. The same bits on all of them.
    virtual void add_shared(double* values, int width) = 0;

    virtual void sum(std::span<double> values) const = 0;
    virtual double largest(double value) const = 0;
    // What the processes name, rank after rank.
    virtual std::vector<std::int32_t> everywhere(std::span<const std::int32_t> here) const = 0;
    // Of elements of the run; the first of equal ones. An element of -1 is none.
    virtual StableStep smallest(StableStep here) const = 0;
    // As StepBound::highest(), of all processes: elements of others have none.
    virtual std::vector<StepBound::Candidate> highest(std::span<const StepBound::Candidate> here,
                                                      std::span<const std::int32_t> of_run) const = 0;

    // The bits that some process has set: those of this call with `at_once`, of the one before otherwise, so
    // that nobody waits for them.
    virtual int flags(int here, bool at_once) = 0;
    // Makes `fault` the first of all processes' ones.
    virtual void share_first(StepFault& fault) const = 0;

    // residual: 3 per node here.
    virtual GatheredFrame gather(const Job& job, ExplicitState& state, std::span<const double> residual) = 0;
};

}  // namespace kestralum
