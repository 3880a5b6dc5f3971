// The solves' kernels for AVX2.
#ifdef __x86_64__
#define KESTRALUM_SOLVE_SET avx2
#define KESTRALUM_SOLVE_ROWS 2
#include "solver/solve_kernel_body.h"
#endif
