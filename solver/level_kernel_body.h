// Body of the level kernels, included once for each build with KESTRALUM_WIDE (0 or 1: four doubles at a
// time), KESTRALUM_KERNEL_SET and KESTRALUM_KERNEL_NAME. No inline function from elsewhere may be used in it:
// the linker would be free to take this build's for the whole program.
#include "solver/level_kernel.h"

#if KESTRALUM_WIDE
#include <immintrin.h>
#endif

namespace kestralum {
namespace {

constexpr bool wide = KESTRALUM_WIDE;

typedef double Four __attribute__((vector_size(32)));
inline void load(const float* from, Four& to) {
#if KESTRALUM_WIDE
    to = _mm256_cvtps_pd(_mm_loadu_ps(from));
#else
    for (int k = 0; k < 4; ++k) to[k] = from[k];
#endif
}
inline void load(const double* from, Four& to) {
    __builtin_memcpy(&to, from, sizeof to);
}
inline void store(const Four& from, double* to) {
    __builtin_memcpy(to, &from, sizeof from);
}

// y = Σ block q · x of its column over `count` blocks that lie one after the other: blocks R × C, x C × K for
// each column, y R × K. With one column of x a block's columns are loaded by fours: of three rows the fourth
// value belongs to nobody, of six the two fours overlap.
template <int R, int C, int K>
inline void multiply_row(const float* block, const std::int32_t* col, std::int64_t count, const double* x,
                         double* y) {
    const float* const end = block + count * R * C;
    Four a;
    if constexpr (wide && K == 4) {
        Four sum[R] = {};
        for (; block != end; block += R * C, ++col) {
            const double* xq = x + std::int64_t{*col} * C * K;
            for (int c = 0; c < C; ++c) {
                load(xq + c * K, a);
                for (int r = 0; r < R; ++r) sum[r] += static_cast<double>(block[c * R + r]) * a;
            }
        }
        for (int r = 0; r < R; ++r) store(sum[r], y + r * K);
    } else if constexpr (wide) {
        constexpr int chains = 3;  // of sums side by side
        Four head[chains] = {}, tail[chains] = {};
        for (; block != end; block += R * C, ++col) {
            const double* xq = x + std::int64_t{*col} * C;
            for (int c = 0; c < C; ++c) {
                load(block + c * R, a);
                head[c % chains] += a * xq[c];
                if constexpr (R == 6) {
                    load(block + c * R + 2, a);
                    tail[c % chains] += a * xq[c];
                }
            }
        }
        const Four first = head[0] + head[1] + head[2], last = tail[0] + tail[1] + tail[2];
        for (int r = 0; r < R; ++r) y[r] = r < 4 ? first[r & 3] : last[(r - 2) & 3];
    } else {
        double sum[R * K] = {};
        for (; block != end; block += R * C, ++col) {
            const double* xq = x + std::int64_t{*col} * C * K;
            for (int c = 0; c < C; ++c)
                for (int r = 0; r < R; ++r)
                    for (int k = 0; k < K; ++k)
                        sum[r * K + k] += static_cast<double>(block[c * R + r]) * xq[c * K + k];
        }
        for (int r = 0; r < R * K; ++r) y[r] = sum[r];
    }
}

template <int B, int K>
inline void residual_of_row(const LevelArrays& level, std::int64_t i, const double* b, const double* x,
                            double* r) {
    const std::int64_t q = level.start[i];
    double product[B * K];
    multiply_row<B, B, K>(level.A + q * B * B, level.col + q, level.start[i + 1] - q, x, product);
    for (int k = 0; k < B * K; ++k) r[k] = b[i * B * K + k] - product[k];
}

// z = D⁻¹ r of row i
template <int B, int K>
inline void apply_inverse(const LevelArrays& level, std::int64_t i, const double* r, double* z) {
    constexpr std::int32_t own = 0;
    multiply_row<B, B, K>(level.inverse + i * B * B, &own, 1, r, z);
}

template <int B, int K>
void smooth(const LevelArrays& level, const SmoothingStep& step, std::int64_t first, std::int64_t last) {
    for (std::int64_t i = first; i < last; ++i) {
        const std::int64_t at = i * B * K;
        double r[B * K], z[B * K];
        if (step.from)
            residual_of_row<B, K>(level, i, step.b, step.from, r);
        else
            for (int k = 0; k < B * K; ++k) r[k] = step.b[at + k];
        apply_inverse<B, K>(level, i, r, z);
        for (int k = 0; k < B * K; ++k) {
            const double d = (step.f != 0 ? step.f * step.d[at + k] : 0.0) + step.g * z[k];
            step.d[at + k] = d;
            step.to[at + k] = (step.from ? step.from[at + k] : 0.0) + d;
        }
    }
}

template <int B, int K>
void residual(const LevelArrays& level, const double* b, const double* x, double* r, std::int64_t first,
              std::int64_t last) {
    for (std::int64_t i = first; i < last; ++i) residual_of_row<B, K>(level, i, b, x, r + i * B * K);
}

template <int B, int K>
void scaled_product(const LevelArrays& level, const double* x, double factor, double* y, std::int64_t first,
                    std::int64_t last) {
    for (std::int64_t i = first; i < last; ++i) {
        const std::int64_t q = level.start[i];
        double product[B * K], z[B * K];
        multiply_row<B, B, K>(level.A + q * B * B, level.col + q, level.start[i + 1] - q, x, product);
        apply_inverse<B, K>(level, i, product, z);
        for (int k = 0; k < B * K; ++k) y[i * B * K + k] = factor * z[k];
    }
}

template <int B, int K>
void restrict_to(const LevelArrays& level, const double* r, double* below, std::int64_t first,
                 std::int64_t last) {
    constexpr int motions = 6, block = B * motions;
    for (std::int64_t i = first; i < last; ++i) {
        double sum[motions * K] = {};
        for (std::int64_t e = level.list_start[i]; e < level.list_start[i + 1]; ++e) {
            const float* p = level.P + level.list_entry[e] * block;
            const double* rq = r + std::int64_t{level.list_row[e]} * B * K;
            for (int c = 0; c < motions; ++c)
                for (int b = 0; b < B; ++b)
                    for (int k = 0; k < K; ++k)
                        sum[c * K + k] += static_cast<double>(p[c * B + b]) * rq[b * K + k];
        }
        for (int c = 0; c < motions * K; ++c) below[i * motions * K + c] = sum[c];
    }
}

template <int B, int K>
void prolong(const LevelArrays& level, const double* below, double* x, std::int64_t first,
             std::int64_t last) {
    constexpr int motions = 6;
    for (std::int64_t i = first; i < last; ++i) {
        const std::int64_t q = level.p_start[i];
        double sum[B * K];
        multiply_row<B, motions, K>(level.P + q * B * motions, level.p_col + q, level.p_start[i + 1] - q,
                                    below, sum);
        for (int k = 0; k < B * K; ++k) x[i * B * K + k] += sum[k];
    }
}

template <int B, int K>
constexpr LevelKernels kernels_of{smooth<B, K>, residual<B, K>, restrict_to<B, K>, prolong<B, K>,
                                  scaled_product<B, K>};

}  // namespace

namespace kernels {
extern const LevelKernelSet KESTRALUM_KERNEL_SET{
    KESTRALUM_KERNEL_NAME, {{kernels_of<3, 1>, kernels_of<3, 4>}, {kernels_of<6, 1>, kernels_of<6, 4>}}};
}

}  // namespace kestralum
