// The nonlinear static analysis on the ranks of a team.
#pragma once

#include "large/large_run.h"

namespace kestralum {

// As analyse_large(), with the logs and the history of a nonlinear run. `pieces` is refused: status
// bad_input.
void analyse_nonlinear_large(const Team& team, Job& job, bool pieces);

}  // namespace kestralum
