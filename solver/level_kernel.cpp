#include "solver/level_kernel.h"

namespace kestralum {

const LevelKernelSet& level_kernels([[maybe_unused]] bool wide) {
#ifdef __x86_64__
    static const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    if (wide && avx2) return kernels::level_avx2;
#endif
    return kernels::level_base;
}

}  // namespace kestralum
