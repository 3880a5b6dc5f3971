// The largest time step of central differences, 2/ω: no frequency of the mesh is above the largest one
// of its elements taken alone with their shares of the lumped mass (Irons and Treharne, 1971; Belytschko,
// Smolinski and Liu, Comput. Methods Appl. Mech. Eng. 49, 1985).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "elements/element_type.h"
#include "model/mesh.h"

namespace kestralum {

struct StableStep {
    double step = 0;            // s
    std::int32_t element = -1;  // the one that sets it, 0-based
};

// Mass that elements get so that their stable step is a wished one.
struct AddedMass {
    std::vector<double> nodes;           // per node, kg
    std::vector<double> parts, present;  // per part: added, and lumped before, kg
    std::vector<std::int32_t> elements;  // per part: how many got some
};

class StepBound {
public:
    // `mass_factor`: lumped mass of a degree of freedom over the sum of its elements' diagonal entries of
    // the consistent mass. `rigid`: per element, it lies inside a rigid body and does not count where another
    // does (empty: all count). The tables must outlive the object.
    StepBound(const Mesh& mesh, std::span<const Part> parts, std::span<const Material> materials,
              double mass_factor, int threads, std::span<const char> rigid = {});

    // That of some elements of the mesh: `mesh` has them, and `elements` says which they are. undeformed()
    // and least_size() stay those of all.
    StepBound(const StepBound& whole, const Mesh& mesh, std::span<const std::int32_t> elements);

    // Gives elements whose stable step is below `step` mass so that it is `step`; they count with it from
    // then on.
    AddedMass add_mass(double step);

    // Estimates of the ω² of every element in the configuration x (node × 4; null: undeformed, then exact but
    // for congruent ones' rounding), 1/s²; 0 of those that do not count.
    std::vector<double> estimates_at(const double* x, int threads) const;

    // The element does not count from here on; undeformed() stays.
    void leave_out(std::int32_t element) { ratio_[element] = 0; }

    // The undeformed mesh. Congruent elements are computed once.
    const StableStep& undeformed() const { return undeformed_; }

    // The least size of an element as its stable step shows it: that step times the speed of its pressure
    // waves, m.
    double least_size() const { return least_size_; }

    // Of the configuration x (node × 4): the smallest stable step and its element. The few with the highest
    // estimates are computed in full; no other one's estimate is above what is given.
    StableStep now(const double* x, int threads) const;

    // Its two halves: the highest estimates of ω², in order, and the step by them. One that is not finite
    // stands alone. `element` -1: it is another's, whose estimate counts alone.
    struct Candidate {
        double estimate = 0;  // 1/s²
        std::int32_t element = -1;
    };
    std::vector<Candidate> highest(const double* x, int threads) const;
    StableStep judged(const double* x, std::span<const Candidate> highest) const;
    static const std::size_t most_candidates;  // of highest(), at most

    // In the configuration x (node × 4): the element whose frequency is above 2/step, -1 for none. An
    // estimate from the elements' gradients picks the few that are computed in full.
    StableStep worst_above(const double* x, double step, int threads) const;

private:
    double estimate(std::int32_t e, const double* coordinates, double* squared_frequency) const;
    // The `few` highest of `candidates` come first, in order.
    static void put_highest_first(std::vector<std::int32_t>& candidates, std::size_t few,
                                  const std::vector<double>& estimates);
    void gather(std::int32_t e, const double* x4, double* coordinates) const;  // null: undeformed

    const Mesh& mesh_;
    std::span<const Part> parts_;
    std::span<const Material> materials_;
    const ElementType& type_;
    std::vector<double> mass_;  // element × local node: lumped mass, kg
    std::vector<double>
        ratio_;  // per element: largest ω² over its estimate in the undeformed mesh; 0: does not count
    StableStep undeformed_;
    double least_size_ = 0;
};

// Largest eigenvalue ω² of Ke φ = ω² diag(mass) φ; size ≤ 3 · most_nodes.
double largest_eigenvalue(int size, const double* ke, const double* mass);

}  // namespace kestralum
