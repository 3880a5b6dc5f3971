// The equations of motion, node by node: v_{n+½} from the forces at t_n, u_{n+1} and x_{n+1} from it.
//
// Nodes are swept in portions, the same for any number of threads. Where no contact and no load can act on a
// portion these arrays are not read.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "elements/explicit_kernel.h"

namespace kestralum {

struct ExplicitState;

struct NodeSweep {
    static constexpr std::int64_t portion_nodes = 1024;
    std::vector<NodeForces> forces;  // that can act, per portion
    std::vector<double> damping;     // per portion 2: its work in the half steps before and after t_n, J
};

// After all that acts on nodes is known.
void begin_sweep(ExplicitState& state);

// v_new of the degrees of freedom that the equations of motion rule; the others get 0. Returns the work of
// damping in the half steps before and after t_n.
std::array<double, 2> update_velocities(ExplicitState& state);

// u_{n+1} and x_{n+1} by v_new, which is v then; false when some displacement is not a finite number.
bool move_nodes(ExplicitState& state);

}  // namespace kestralum
