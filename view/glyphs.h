// Signs of vectors and principal stresses at the nodes.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "view/contour.h"
#include "view/display_state.h"
#include "view/symbols.h"

namespace kestralum::view {

struct GlyphRequest {
    const Mesh& mesh;
    const Frame& frame;
    const FieldBase& base;
    std::span<const std::int32_t> nodes;  // 0-based: where signs may stand
    std::span<const double> places;       // as drawn, node_num × 3 at least
    Glyphs what = Glyphs::none;
    double scale = 1;
};

struct GlyphSigns {
    std::vector<Arrow> arrows;  // from the node along the vector, the longest scale · max_length / 10 long
    std::vector<Line> lines;  // along a principal stress, its middle at the node: tension red, pressure blue,
                              // the largest stress scale · max_length / 12.5 to either side
    std::string text;         // what the longest is: "Velocity, longest 12.3 m/s"
    double longest = 0;       // its size, in the unit of the quantity
    const char* unit = "";
};

// At no more than about 800 nodes, spread evenly; vectors of less than a hundredth of the longest have none.
// Empty where the frame does not have the quantity.
GlyphSigns glyph_signs(const GlyphRequest& request);

}  // namespace kestralum::view
