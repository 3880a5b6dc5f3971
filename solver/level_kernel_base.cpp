// The multigrid levels' kernels for any processor.
#define KESTRALUM_WIDE 0
#define KESTRALUM_KERNEL_SET level_base
#define KESTRALUM_KERNEL_NAME "base"
#include "solver/level_kernel_body.h"
