// What a static analysis tells of its load cases.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "system/linear_loads.h"

namespace kestralum {

inline constexpr std::int32_t static_columns = 6;  // of the result file

// The load cases that the frames are made of, each once, in their order.
std::vector<std::string> cases_of(std::span<const CaseTerms> frames);

// The nodal loads taken off the internal forces (dof_num, N) at the nodes with wanted[node] != 0.
std::vector<double> less_loads(std::vector<double> internal, std::span<const char> wanted,
                               const LinearLoad& load);

// Loads and reactions of a frame with displacements, which gets its nodal reactions; not the largest values.
// residual: less_loads() at the nodes of reaction_nodes(); q: the amounts of the rigid bodies' motions.
CaseReport report_case(Job& job, const Freedoms& freedoms, std::span<const double> residual,
                       const LinearLoad& load, std::span<const double> q, Frame& frame);

// What the report tells of the whole run is that of its first case.
void report_first_case(RunReport& report);

}  // namespace kestralum
