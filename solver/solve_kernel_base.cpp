// The solves' kernels for SSE2.
#define KESTRALUM_SOLVE_SET base
#define KESTRALUM_SOLVE_ROWS 2
#include "solver/solve_kernel_body.h"
