// The explicit analysis' kernels for SSE2: 2 elements at a time.
#define KESTRALUM_LANES 2
#define KESTRALUM_KERNEL_SET base
#define KESTRALUM_KERNEL_NAME "SSE2"
#include "elements/explicit_kernel_body.h"
