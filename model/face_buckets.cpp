#include "model/face_buckets.h"

#include <utility>

namespace kestralum {

FaceBuckets bucket_faces(const Mesh& mesh, const Progress* progress) {
    const auto stopped = [&](std::int32_t turn) {
        return turn % 4096 == 0 && progress && progress->cancelled();
    };
    const FaceTable table = face_table(mesh.element_type);
    const std::int32_t elements = mesh.element_num();
    const std::size_t nodes = mesh.node_num();

    // counts, then places, then keys
    FaceBuckets out;
    out.start.assign(nodes + 1, 0);
    out.keys.resize(std::size_t(elements) * table.faces);
    const auto sorted_corners = [&](std::int32_t e, int f, std::int32_t* c) {
        const auto element = mesh.element(e);
        const auto local = face_corners(mesh.element_type, f);
        for (int k = 0; k < table.corners; ++k) c[k] = element[local[k]];
        for (int k = 1; k < table.corners; ++k)
            for (int m = k; m > 0 && c[m] < c[m - 1]; --m) std::swap(c[m], c[m - 1]);
    };
    std::int32_t c[4];
    for (std::int32_t e = 0; e < elements; ++e) {
        if (stopped(e)) return {};
        for (int f = 0; f < table.faces; ++f) {
            sorted_corners(e, f, c);
            ++out.start[c[0]];
        }
    }
    for (std::size_t n = 1; n <= nodes; ++n) out.start[n] += out.start[n - 1];
    std::vector<std::int64_t> place(out.start.begin(), out.start.end() - 1);
    for (std::int32_t e = 0; e < elements; ++e) {
        if (stopped(e)) return {};
        for (int f = 0; f < table.faces; ++f) {
            sorted_corners(e, f, c);
            FaceKey& key = out.keys[place[c[0] - 1]++];
            key = {{c[1], c[2], table.corners == 4 ? c[3] : -1}, e, f};
        }
    }
    return out;
}

}  // namespace kestralum
