// The explicit analysis' kernels for AVX2: 4 elements at a time.
#ifdef __x86_64__
#define KESTRALUM_LANES 4
#define KESTRALUM_KERNEL_SET avx2
#define KESTRALUM_KERNEL_NAME "AVX2"
#include "elements/explicit_kernel_body.h"
#endif
