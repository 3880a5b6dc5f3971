#include "solver/tall_blocks.h"

#include <cblas.h>

#include <algorithm>

namespace kestralum {

namespace {

constexpr std::int64_t most_pieces = 64;
// Short enough to see a cancel, long enough for OpenBLAS to leave its kernels for small matrices, which take
// three times as long here.
constexpr std::int64_t rows_of_a_sum = 4096;

}  // namespace

TallBlocks::TallBlocks(std::int64_t n, std::int32_t widest, RowTeam& team)
    : n_(n), widest_(widest), team_(team) {
    piece_ = std::max(rows_of_a_sum,
                      ((n + most_pieces - 1) / most_pieces + rows_at_once - 1) / rows_at_once * rows_at_once);
    pieces_ = (n + piece_ - 1) / piece_;
    room_.resize(team.threads() * rows_at_once * widest);
}

bool TallBlocks::add_pieces(std::int64_t count, std::span<double> out) {
    std::fill_n(out.begin(), count, 0.0);
    for (std::int64_t p = 0; p < pieces_; ++p)
        for (std::int64_t k = 0; k < count; ++k) out[k] += partial_[p * count + k];
    return team_.ended() == RowTeam::Ended::no;
}

bool TallBlocks::gram(const double* A, std::int32_t a, const double* B, std::int32_t b,
                      std::span<double> out) {
    const std::int64_t count = std::int64_t{a} * b;
    if (count == 0) return team_.goes_on();
    partial_.assign(pieces_ * count, 0.0);
    const int ld = static_cast<int>(n_);
    team_.rows(
        n_,
        [&](std::int64_t first, std::int64_t last, int) {
            double* sums = &partial_[first / piece_ * count];
            for (std::int64_t i = first; i < last && team_.goes_on(); i += rows_of_a_sum)
                cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, a, b,
                            static_cast<int>(std::min(rows_of_a_sum, last - i)), 1.0, A + i, ld, B + i, ld,
                            1.0, sums, a);
        },
        piece_);
    return add_pieces(count, out);
}

bool TallBlocks::project(const double* B, std::int32_t b, std::span<const double> G, double* W,
                         std::int32_t w, std::span<const double> V, std::int32_t v) {
    if (w == 0 || v == 0) return team_.goes_on();
    const int ld = static_cast<int>(n_);
    return team_.rows(
        n_,
        [&](std::int64_t first, std::int64_t last, int thread) {
            double* rows = &room_[thread * rows_at_once * widest_];
            const int m = static_cast<int>(last - first);
            for (std::int32_t k = 0; k < w; ++k)
                std::copy_n(W + k * n_ + first, m, rows + k * std::int64_t{m});
            if (b > 0)
                cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, m, w, b, -1.0, B + first, ld, G.data(),
                            b, 1.0, rows, m);
            cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, m, v, w, 1.0, rows, m, V.data(), w, 0.0,
                        W + first, ld);
        },
        rows_at_once);
}

bool TallBlocks::choose(double* A, std::span<const std::int32_t> chosen) {
    return team_.rows(
        n_,
        [&](std::int64_t first, std::int64_t last, int) {
            for (std::size_t k = 0; k < chosen.size(); ++k)
                if (chosen[k] != static_cast<std::int32_t>(k))
                    std::copy(A + chosen[k] * n_ + first, A + chosen[k] * n_ + last,
                              A + static_cast<std::int64_t>(k) * n_ + first);
        },
        16384);
}

}  // namespace kestralum
