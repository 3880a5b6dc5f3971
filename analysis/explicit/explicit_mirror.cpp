#include "analysis/explicit/explicit_mirror.h"

#include <algorithm>

namespace kestralum {

ContactMirror::ContactMirror(std::span<const std::int32_t> nodes, std::span<const std::int32_t> place_of) {
    for (const std::int32_t n : nodes) rows_.push_back({4 * std::size_t(place_of[n]), 4 * std::size_t(n)});
    for (LineDoubles* table : {&x_, &v_, &v_new_, &mass_, &b_, &F_}) table->assign(4 * place_of.size(), 0.0);
}

void ContactMirror::copy(const double* from, LineDoubles& to) const {
    for (const Row& row : rows_) std::copy_n(from + row.here, 3, to.data() + row.whole);
}

ContactArrays ContactMirror::take(const ContactArrays& here) {
    copy(here.x, x_);
    copy(here.v, v_);
    copy(here.mass, mass_);
    copy(here.b, b_);
    for (const Row& row : rows_) std::fill_n(F_.data() + row.whole, 3, 0.0);
    return {x_.data(), v_.data(), mass_.data(), b_.data(), F_.data()};
}

void ContactMirror::give(double* F) const {
    for (const Row& row : rows_)
        for (std::size_t c = 0; c < 3; ++c) F[row.here + c] += F_[row.whole + c];
}

const double* ContactMirror::follow(const double* v_new) {
    copy(v_new, v_new_);
    return v_new_.data();
}

}  // namespace kestralum
