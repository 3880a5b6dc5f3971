// What a nonlinear run writes beside its result file.
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "analysis/nonlinear/newton_body.h"
#include "system/job.h"

namespace kestralum {

// Per increment: internal forces, Mises stresses of all points (none where each process keeps its own); the
// run's rows of the history with the probes' displacements.
struct NonlinearHistory {
    std::vector<std::vector<double>> Q;      // increment × equations, N
    std::vector<std::vector<double>> mises;  // increment × points, N/m^2
    std::vector<std::int32_t> probes;        // nodes, 0-based

    void begin(Job& job, const NodeElements& node_elements);
    void add(Job& job, const IncrementReport& increment, std::span<const double> internal,
             const NewtonBody& body);

    // "log\integ_stress.txt": a line for each point of the 100 elements with the largest Mises stress at the
    // end, "[element][point]:%e " per increment (element from 1, point from 0). "log\Q.txt": a line for each
    // equation, "%e " per increment. "log\history_nonlinear_NAME.csv". False with status failed when one
    // cannot be written.
    bool write(Job& job) const;
};

}  // namespace kestralum
