#include "solver/solve_kernel.h"

namespace kestralum {

const SolveKernels& solve_kernels(std::int32_t values) {
    const int wide = values > 8;
#ifdef __x86_64__
    static const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
    static const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    if (avx512) return solve::avx512[wide];
    if (avx2) return solve::avx2[wide];
#endif
    return solve::base[wide];
}

}  // namespace kestralum
