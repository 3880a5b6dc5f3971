// The multigrid levels' kernels for AVX2.
#ifdef __x86_64__
#define KESTRALUM_WIDE 1
#define KESTRALUM_KERNEL_SET level_avx2
#define KESTRALUM_KERNEL_NAME "AVX2"
#include "solver/level_kernel_body.h"
#endif
