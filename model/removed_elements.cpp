#include "model/removed_elements.h"

#include "model/face_buckets.h"

namespace kestralum {

FaceNumbers number_faces(const Mesh& mesh) {
    const FaceBuckets buckets = bucket_faces(mesh);
    const std::size_t faces = face_table(mesh.element_type).faces;
    FaceNumbers out;
    out.of.resize(buckets.keys.size());
    const auto number = [&](const FaceKey& key) -> std::int32_t& {
        return out.of[faces * static_cast<std::size_t>(key.element) + static_cast<std::size_t>(key.face)];
    };
    for (std::size_t n = 0; n + 1 < buckets.start.size(); ++n)
        for (std::int64_t a = buckets.start[n]; a < buckets.start[n + 1]; ++a) {
            std::int64_t b = buckets.start[n];
            while (!buckets.keys[b].same_corners(buckets.keys[a])) ++b;
            number(buckets.keys[a]) = b < a ? number(buckets.keys[b]) : out.count++;
        }
    return out;
}

std::vector<ElementFace> free_faces_left(const Mesh& mesh, const FaceNumbers& numbers,
                                         std::span<const char> gone) {
    const int faces = face_table(mesh.element_type).faces;
    std::vector<std::int32_t> owners(numbers.count, 0);
    const std::int32_t* number = numbers.of.data();
    for (std::int32_t e = 0; e < mesh.element_num(); ++e, number += faces)
        for (int f = 0; f < faces && !gone[e]; ++f) ++owners[number[f]];
    std::vector<ElementFace> out;
    number = numbers.of.data();
    for (std::int32_t e = 0; e < mesh.element_num(); ++e, number += faces)
        for (int f = 0; f < faces && !gone[e]; ++f)
            if (owners[number[f]] == 1) out.push_back({e, f});
    return out;
}

std::vector<char> bare_nodes(const Mesh& mesh, std::span<const std::int32_t> removed) {
    if (removed.empty()) return {};
    std::vector<char> gone(mesh.element_num(), 0), bare(mesh.node_num(), 0);
    for (const std::int32_t e : removed) {
        if (e < 0 || e >= mesh.element_num()) continue;
        gone[e] = 1;
        for (const std::int32_t n : mesh.element(e)) bare[node_index(n)] = 1;
    }
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        if (!gone[e])
            for (const std::int32_t n : mesh.element(e)) bare[node_index(n)] = 0;
    return bare;
}

}  // namespace kestralum
