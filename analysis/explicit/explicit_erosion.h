// Erosion: elements are taken out of a run at the plastic strain that their material names (`erode=`).
//
// An element goes when the mean of its points' equivalent plastic strains has reached the limit, or when the
// volume of one of its points has fallen below a twentieth of that at rest. It goes between two
// configurations: its stresses act in the first one and not in the second. The half of the step's work that
// they still do by the trapezoidal rule is booked with what is stored in it, so that the balance stays exact.
// Its mass stays at its nodes; nodes without elements fly on by themselves.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "model/model.h"
#include "model/topology.h"

namespace kestralum {

struct ExplicitState;
class ExplicitTeam;

struct Eroded {
    std::int64_t elements = 0;
    double mass_share = 0;  // of the material's mass at rest
};

class Erosion {
public:
    // mesh: of the elements that are stepped. `rigid`: per element, inside a rigid body, where nothing
    // yields; empty: none is.
    Erosion(const Model& model, const Mesh& mesh, std::span<const char> rigid);

    // Takes elements out between the last configuration and that in force, whose forces come next. Collective
    // with others.
    void erode(ExplicitState& state);
    // The stable step and the surfaces without the elements that are out; once for each change.
    void take_up(ExplicitState& state);

    std::int64_t count() const { return count_; }
    std::vector<std::int32_t> removed(const ExplicitState& state) const;  // elements, ascending
    double energy() const { return energy_; }                             // that went with them, J
    // Of all processes; null: of this one, which is all.
    Eroded total(const ExplicitTeam* ranks) const;
    // Elements around each node that are not out; of runs of one process.
    const NodeElements& node_elements(const NodeElements& all) const { return count_ > 0 ? live_ : all; }

    // What the steps change, but for which elements are out: the blocks know.
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(count_, energy_, gone_);
    }

private:
    bool is_thin(const ExplicitState& state, std::int32_t e) const;
    void book(ExplicitState& state, std::int32_t e);
    std::vector<std::int32_t> bared_nodes(const ExplicitState& state) const;
    void lay_bare(ExplicitState& state);

    const Mesh& mesh_;
    std::span<const Part> parts_;
    std::vector<double> limit_, mass_;  // per element: infinite where it stays; kg
    NodeElements live_;
    std::int64_t count_ = 0, taken_ = 0;
    std::vector<char> taken_up_;  // per element here: it is out for bound and surfaces too
    std::vector<char> out_;       // per element of the whole run's steps, with those of others
    double energy_ = 0, gone_ = 0, whole_ = 0;
};

// Of `all` the elements that are not out; gone: per element.
NodeElements live_elements(const NodeElements& all, std::span<const char> gone);

// Whether some material of the model's elements erodes.
bool some_erode(const Model& model);

}  // namespace kestralum
