// The solves' kernels for AVX-512.
#ifdef __x86_64__
#define KESTRALUM_SOLVE_SET avx512
#define KESTRALUM_SOLVE_ROWS 8
#include "solver/solve_kernel_body.h"
#endif
