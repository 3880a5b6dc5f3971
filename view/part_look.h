// How single parts are drawn, and what of the mesh is pointed out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/mesh.h"
#include "view/vector.h"

namespace kestralum::view {

struct PartLook {
    bool visible = true;         // else neither drawn nor picked
    double opacity = 1;          // 0 … 1, times the opacity of the whole model
    std::optional<Color> color;  // in place of the part's own
    bool operator==(const PartLook&) const = default;
};

// Per part of the mesh; an empty list, or one that ends before the part, leaves it as it is.
using PartLooks = std::vector<PartLook>;

inline PartLook look_of(const PartLooks& looks, std::int32_t part) {
    return part >= 0 && part < std::ssize(looks) ? looks[part] : PartLook{};
}

// Pointed out in the picture, over contours too. What the drawn mesh does not have is passed over.
struct Highlight {
    std::vector<std::int32_t> nodes;  // 0-based: marked
    std::vector<ElementFace> faces;   // tinted and outlined
    std::vector<std::int32_t> parts;  // the same for all their drawn faces
    std::vector<Vec3> points;         // of the undeformed model, m: marked
    std::vector<std::string> sets;    // named beside their middle
    bool operator==(const Highlight&) const = default;
    bool empty() const {
        return nodes.empty() && faces.empty() && parts.empty() && points.empty() && sets.empty();
    }
};

}  // namespace kestralum::view
