// Explicit dynamics on the ranks of a team: each steps the elements that it counts.
#pragma once

#include "large/large_run.h"

namespace kestralum {

// As analyse_large().
void analyse_explicit_large(const Team& team, Job& job, bool pieces);

}  // namespace kestralum
