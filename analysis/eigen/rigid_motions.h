// The rigid motions of a body on the equations of a system: what supports leave of them, and the
// translations.
#pragma once

#include <vector>

#include "system/assembly.h"

namespace kestralum {

// Rigid motions that no support and no spring of one resists: n × r, column after column. Six where nothing
// is supported; none where a support without options is among the records; of
// supports with options what is left (rollers). The bodies of a model are taken as one.
std::vector<double> free_rigid_motions(const Job& job, const AssembledSystem& system);

// What translations along the axes mean for the equations: n × 3.
std::vector<double> translations(const AssembledSystem& system);

}  // namespace kestralum
