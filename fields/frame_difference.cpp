#include "fields/frame_difference.h"

namespace kestralum {

std::vector<double> value_difference(std::span<const double> a, std::span<const double> b, int components,
                                     std::span<const std::int32_t> node_of) {
    std::vector<double> out;
    const std::size_t width = components;
    if (a.size() != b.size() || (!node_of.empty() && a.size() != width * node_of.size())) return out;
    out.resize(a.size());
    for (std::size_t k = 0; k < a.size(); ++k) {
        const std::size_t n = k / width;
        out[k] = a[k] - b[node_of.empty() ? k : width * std::size_t(node_of[n]) + k % width];
    }
    return out;
}

}  // namespace kestralum
