// The explicit analysis' kernels for AVX-512: 8 elements at a time.
#ifdef __x86_64__
#define KESTRALUM_LANES 8
#define KESTRALUM_KERNEL_SET avx512
#define KESTRALUM_KERNEL_NAME "AVX-512"
#include "elements/explicit_kernel_body.h"
#endif
