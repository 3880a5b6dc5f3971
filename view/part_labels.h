// Names of parts beside what is seen of them.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "view/surface.h"
#include "view/symbols.h"

namespace kestralum::view {

struct PartLabel {
    std::string text;
    Vec3 place{};                                        // of a part without drawn faces
    std::vector<std::array<std::int32_t, 3>> triangles;  // nodes, 0-based: a few, spread over the drawn faces
};

// One for each part that is not hidden; about `most` triangles in all.
std::vector<PartLabel> part_labels(const Mesh& mesh, std::span<const Part> parts, const Surface& outside,
                                   const PartLooks& looks, std::size_t most = 600);

// Of the places in sight the one nearest to the middle of them on the screen; -1 where none is. One flag and
// one place each.
std::ptrdiff_t middle_in_sight(const Camera& camera, const Scene& scene, std::span<const Vec3> places,
                               std::span<const char> in_sight);

}  // namespace kestralum::view
