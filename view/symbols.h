// Symbols of the picture besides the mesh: axes, forces, supports, walls, dimensions, labels.
// Lengths in m, places in the model's space.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/model.h"
#include "view/camera.h"
#include "view/vector.h"

namespace kestralum::view {

struct Line {
    Vec3 from, to;
    Color color;
};
struct Label {
    Vec3 at;
    std::string text;
};
struct Arrow {
    Vec3 tail, tip;
};
struct Cone {
    Vec3 tip;   // at the node
    Vec3 axis;  // unit, from the tip to the base
    double height, radius;
};

struct ForceSymbols {
    std::vector<Arrow> arrows;
    std::vector<Label> labels;  // "%.3e[N]" per record, at the free end of its (middle) arrow
};

// Twelve edges of the box low … high; part of a circle from `u` towards `v`.
void add_box(std::vector<Line>& lines, const Vec3& low, const Vec3& high, const Color& color);
void add_circle(std::vector<Line>& lines, const Vec3& centre, const Vec3& u, const Vec3& v, double degrees,
                const Color& color);

// Mean of the places; the origin where there are none.
Vec3 middle(std::span<const Vec3> places);

// Every how many-th of `count` entries leaves about `limit` at most; at least 1.
std::size_t stride_for(std::size_t count, std::size_t limit);

// Indices of at most `limit` of the places, spread evenly and hardly nearer than `spacing`: for each cell of
// the finest grid that suffices the one nearest to its middle, whatever the places' order.
std::vector<std::size_t> spread_out(const std::vector<Vec3>& places, std::size_t limit, double spacing);

// Triad of unit length scaled by `size`: x red with a cross at its tip, y green, z blue.
std::vector<Line> axes(double size);

// The triad in the frame of every as-read part that is active: at origin × unit factor, turned by the
// euler angles z, x, z.
std::vector<Line> part_axes(std::span<const Part> parts_o, double size);

// Place of a point of the part's own frame, m, in the model.
Vec3 part_point(const Part& part, const Vec3& local);

// Wire outlines, in the part's colour, of the parts that have sizes but no elements: surface and cut
// features. Size values are taken × unit factor; rectangles have their corner, circles their centre at
// the part's origin, and the feature runs along its z.
std::vector<Line> feature_outlines(std::span<const Part> parts_o);

// Arrows of max_length·0.15 at the loaded nodes, as drawn at `coordinates`, that point the way the force
// acts: they end at the nodes, or begin there where the force pulls outwards. A node force that found no node
// stands at its point. An area force has one arrow on each of its nodes, thinned out evenly to about 40, and
// one label. A force of 0 has a label only.
// `force_node` has the node (1-based, 0 for none) of each node force.
ForceSymbols force_symbols(const Mesh& mesh, std::span<const AppliedForce> forces,
                           std::span<const std::int32_t> force_node, std::span<const double> coordinates);

// One cone per fixed node (0-based; repeats and numbers outside the mesh are passed over), outside the
// body where the node lies on its surface. Thinned out evenly to about 5000.
std::vector<Cone> support_cones(const Mesh& mesh, std::span<const std::int32_t> fixed_nodes,
                                std::span<const double> coordinates);

// Outlines with names.
struct Markers {
    std::vector<Line> lines;
    std::vector<Label> labels;
};

// Outlines of rigid walls at a time: a hatched rectangle, one of max_length about the model's middle where
// a plane has no bounds; circles of a cylinder and of a sphere; names.
Markers wall_markers(std::span<const RigidWall> walls, std::span<const Parameter> parameters, double time,
                     const Scene& scene);

// Boxes about the two parts of each contact pair, as drawn at `coordinates`; "name: part - part" between.
Markers contact_markers(const Mesh& mesh, std::span<const Part> parts, std::span<const ContactPair> contacts,
                        std::span<const double> coordinates);

// Dimension lines along three edges of the model's box, set off from it, with "x:%.4g[m]" and so on;
// an axis without length has none.
Markers dimensions(const Scene& scene);

// Name of each part at the middle of its elements' nodes or facets; parts without either at their origin.
std::vector<Label> part_names(const Mesh& mesh, std::span<const Part> parts,
                              std::span<const double> coordinates);

// Lines of the mesh counts: element type, nodes, elements, degrees of freedom, parts.
std::vector<std::string> fem_information(const Mesh& mesh, std::size_t part_num);

}  // namespace kestralum::view
