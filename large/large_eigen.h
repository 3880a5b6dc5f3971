// Natural frequencies on the ranks of a team, by SLEPc: Krylov-Schur on the inverted operator behind MUMPS
// (Stewart, SIAM J. Matrix Anal. Appl. 23, 2002), or generalized Davidson with the multigrid as
// its preconditioner (Morgan and Scott, SIAM J. Sci. Stat. Comput. 7, 1986) where that factor would be too
// large.
#pragma once

#include "large/large_run.h"

namespace kestralum {

// As analyse_large().
void analyse_eigen_large(const Team& team, Job& job, bool pieces);

}  // namespace kestralum
