// Bulk viscosity of a run: its coefficients by the elements' present lengths, and what it takes of the stable
// step.
//
// The length of an element is that of its stable step, l = 2 c/ω, c of its pressure waves. Damping that lags
// by half a step lowers the stable step by √(1 + ξ²) - ξ, ξ the share of the critical damping (Belytschko,
// Liu and Moran, 2000, 6.2). With b = b1 + b2² l max(0, -tr d)/c it is b in a plane wave of frequency ω, and
// at most b ρ c²/K, K the bulk modulus, in any motion: it is that where a body swells in all directions.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/explicit/explicit_team.h"
#include "elements/explicit_blocks.h"
#include "elements/stable_step.h"
#include "model/model.h"

namespace kestralum {

class BulkViscosity {
public:
    // `rigid`: per element, inside a rigid body and without viscosity; empty: none is.
    BulkViscosity(const Model& model, const Mesh& mesh, std::span<const char> rigid);

    // Lengths of the configuration x (node × 4), where it is time for them: often where they change fast.
    // With `ranks`: the fastest of all; null: all elements are here.
    void follow(std::int64_t step, const double* x, const StepBound& bound, int threads,
                ElementBlocks& blocks, const ExplicitTeam* ranks = nullptr);

    // Leaves these elements.
    void keep(std::span<const std::int32_t> elements);

    // Share of the undamped stable step: at rest, and with the compression of the last forces.
    double share_at_rest() const;
    double share_now(const ElementBlocks& blocks) const;

    // What the steps change.
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(length_, weight_, next_, interval_);
    }

private:
    double find_lengths(const double* x, const StepBound& bound, int threads);
    void set(ElementBlocks& blocks);

    double linear_, quadratic_;
    double stiffest_ = 0;                            // the largest of stiffer_, of all elements of the run
    std::vector<double> density_, speed_, stiffer_;  // per element: kg/m^3; c, m/s; ρ c²/K
    std::vector<char> rigid_;
    std::vector<double> length_, weight_;  // per element: l, m; b2² l/c · ρ c²/K, s
    std::int64_t next_ = 0, interval_ = 1;
};

}  // namespace kestralum
