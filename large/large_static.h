// The linear static analysis on the ranks of a team.
#pragma once

#include "large/large_run.h"

namespace kestralum {

// As analyse_large().
void analyse_static_large(const Team& team, Job& job, bool pieces);

}  // namespace kestralum
