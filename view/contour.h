// The contour quantities, their values at the nodes, range and colours.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fields/quantities.h"
#include "model/run.h"
#include "view/color_scale.h"
#include "view/vector.h"

namespace kestralum::view {

// Where the values of a quantity stand. A new quantity is one row of `quantities`.
enum class Source {
    magnitude,     // length of the displacement vector
    displacement,  // its component
    stress,        // component of a group of Frame::node_stress
    error,         // Frame::error, in percent
    field,         // row `group` of field_quantities; the length of a vector
    none,          // no values: the part's own colour
};
struct Quantity {
    const char* menu_text;
    const char* text;  // in the legend
    const char* unit;  // "": the title has none
    Source source;
    int group;      // of node_stress; the index of a further quantity
    int component;  // 0 … 2
};
inline constexpr std::array<Quantity, 18> quantities{{
    {"&Disp. Mag.", "Displacement Mag.", "m", Source::magnitude, 0, 0},
    {"&Disp. x", "Displacement x", "m", Source::displacement, 0, 0},
    {"&Disp. y", "Displacement y", "m", Source::displacement, 0, 1},
    {"&Disp. z", "Displacement z", "m", Source::displacement, 0, 2},
    {"&Mises Stress", "Mises Stress", "Pa", Source::stress, 4, 0},
    {"&Stress xx", "Stress x", "Pa", Source::stress, 0, 0},
    {"&Stress yy", "Stress y", "Pa", Source::stress, 0, 1},
    {"&Stress zz", "Stress z", "Pa", Source::stress, 0, 2},
    {"&Stress xy", "Stress xy", "Pa", Source::stress, 1, 0},
    {"&Stress yz", "Stress yz", "Pa", Source::stress, 1, 1},
    {"&Stress xz", "Stress zx", "Pa", Source::stress, 1, 2},
    {"&Strain xx", "Strain x", "-", Source::stress, 2, 0},
    {"&Strain yy", "Strain y", "-", Source::stress, 2, 1},
    {"&Strain zz", "Strain z", "-", Source::stress, 2, 2},
    {"&Strain xy", "Strain xy", "-", Source::stress, 3, 0},
    {"&Strain yz", "Strain yz", "-", Source::stress, 3, 1},
    {"&Strain xz", "Strain zx", "-", Source::stress, 3, 2},
    {"&Part Color", "", "", Source::none, 0, 0},
}};

// Beside the menu's eighteen, under a number of its own: it has a toggle in the toolbar.
inline constexpr std::int32_t plastic_strain_row = 100;
inline constexpr Quantity plastic_strain{"Plastic Strain", "Eq. plastic strain", "", Source::stress, 4, 1};

// The estimated error of the stresses, which static runs have.
inline constexpr std::int32_t error_row = 101;
inline constexpr Quantity error_estimate{
    "E&rror Estimate", "Estimated stress error", "%", Source::error, 0, 0};

// The rest of field_quantities that colours a picture, in its order: all but the directions, which have no
// size. Behind the menu's rows; its index is that of the field quantity.
std::span<const Quantity> further_quantities();

// Row of the table, plastic_strain_row, error_row or a further one; null for any other index.
const Quantity* quantity_at(std::int32_t index);

// Text of the legend: empty for 17 and for every index without a row.
const char* quantity_text(std::int32_t index);

// Frames in order, the first one counted as 1.
using Frames = std::span<const std::shared_ptr<const Frame>>;

inline std::int32_t mode_num(Frames frames) {
    return static_cast<std::int32_t>(frames.size());
}

// Null where the frame does not exist.
std::shared_ptr<const Frame> frame_at(Frames frames, std::int32_t frame);

// What further quantities are made of beside a frame.
struct FieldBase {
    const Model& model;
    std::span<const std::int32_t> material;  // node_materials() of the mesh
};

// Values of a quantity at all nodes (node_num); empty where there are none, or where the frame belongs to
// another mesh. Further quantities want a `base`.
std::vector<double> nodal_values(std::int32_t index, const Mesh& mesh, const Frame& frame,
                                 const FieldBase* base = nullptr);

// The same of a table in the layout of Frame::node_stress for any places: its rows are those of `places` in
// `table`, whose displacements do not count; base.material is of the places. Empty for displacements and
// errors, and where the table is.
std::vector<double> place_values(std::int32_t index, const Frame& table, const FieldBase* base = nullptr);

struct Extreme {
    double value = 0;
    std::int32_t node = 0;    // 1-based
    std::int32_t frame = 0;   // 1-based; 0 where one frame was looked at
    bool of_element = false;  // `node` is an element
};
struct ValueRange {
    Extreme low, high;
};

// The node, or the middle of the element's nodes, at `places` (node_num × 3 at least); none for a number that
// the mesh does not have.
std::optional<Vec3> place_of_extreme(const Mesh& mesh, std::span<const double> places,
                                     const Extreme& extreme);

// Least and largest value over `nodes` (0-based), the first node where several have it. Values that
// are not finite do not count; none where nothing remains.
std::optional<ValueRange> value_range(std::span<const double> values, std::span<const std::int32_t> nodes);

// The same over all frames, of the values that a frame has; over `nodes_of` a frame that has lost elements,
// where it is given.
using ValuesOfFrame = std::function<std::vector<double>(const Frame&)>;
using NodesOfFrame = std::function<std::vector<std::int32_t>(const Frame&)>;
std::optional<ValueRange> value_range_all_frames(Frames frames, const ValuesOfFrame& values_of,
                                                 std::span<const std::int32_t> nodes,
                                                 const NodesOfFrame& nodes_of = {});

}  // namespace kestralum::view
