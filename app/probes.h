// What a result has at chosen nodes, along lines and sets and over the frames, as histories for a chart.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "fields/locate.h"
#include "model/run.h"
#include "results/history.h"

namespace kestralum {

// The node (0-based) nearest to a place (m), within 1e-9 of the mesh's largest edge; -1 where there is none.
std::int32_t node_at(const Mesh& mesh, const Vec3& place);

// The first element with a node, both 0-based; -1 where there is none.
std::int32_t element_with(const Mesh& mesh, std::int32_t node);

// A quantity as it is told: its name, its unit and the factors on values and lengths (m).
struct ToldQuantity {
    std::string name, unit;
    double factor = 1;
    std::string length = "m";
    double length_factor = 1;
};

// Nodal values (one per node) at the points of a line, over the distance from its first one: columns value,
// x, y, z. No number outside the body and in elements that are `gone` (0-based).
History along_line(const Mesh& mesh, std::span<const LinePoint> points, std::span<const double> values,
                   const std::function<bool(std::int32_t)>& gone, const ToldQuantity& told);

enum class SetAxis { x, y, z, distance };
inline constexpr const char* set_axis_names[] = {"x", "y", "z", "distance"};
// Nodal values at a set's nodes, over a coordinate or the distance from its first node, rising: columns
// value, node, x, y, z.
History along_set(const Mesh& mesh, const MeshSet& set, std::span<const double> values, SetAxis axis,
                  const ToldQuantity& told);

// A column for each node (0-based) over the frames: P1, P2, … Values of a frame are those that `value` makes
// of a mesh and a frame that have these nodes alone; no number where it gives none.
using NodeValues = std::function<std::vector<double>(const Mesh& nodes, const Frame& at_nodes)>;
History over_frames(const Run& run, std::span<const std::int32_t> nodes, const NodeValues& value,
                    const ToldQuantity& told);

// The first column as a column for each of its pieces without a gap.
History split_at_gaps(const History& history);

}  // namespace kestralum
