// The faces of all elements, those with the same corners beside each other.
#pragma once

#include <cstdint>
#include <vector>

#include "model/mesh.h"
#include "model/progress.h"

namespace kestralum {

// A face under its smallest corner node; the other corners, ascending, tell it from its neighbours.
struct FaceKey {
    std::int32_t corner[3];  // the corners but the smallest, ascending; -1 fills
    std::int32_t element, face;
    bool same_corners(const FaceKey& other) const {
        return corner[0] == other.corner[0] && corner[1] == other.corner[1] && corner[2] == other.corner[2];
    }
};

struct FaceBuckets {
    std::vector<std::int64_t> start;  // node_num + 1: the keys of each smallest corner
    std::vector<FaceKey> keys;        // within a bucket in the order of the elements
};

// O(faces). Empty where a `progress` is cancelled meanwhile.
FaceBuckets bucket_faces(const Mesh& mesh, const Progress* progress = nullptr);

}  // namespace kestralum
