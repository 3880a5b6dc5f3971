#include "elements/explicit_kernel.h"

namespace kestralum {

const KernelSet& kernel_set(int widest) {
#ifdef __x86_64__
    static const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
    static const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    if (avx512 && widest >= 8) return kernels::avx512;
    if (avx2 && widest >= 4) return kernels::avx2;
#else
    static_cast<void>(widest);
#endif
    return kernels::base;
}

}  // namespace kestralum
